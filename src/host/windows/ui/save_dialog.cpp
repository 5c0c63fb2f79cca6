// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/ui/save_dialog.h"

#include <commdlg.h>

#include <algorithm>

#include "host/windows/windows_text.h"

namespace vornalux {
namespace {

constexpr std::size_t kLongestPath = 32768;  // characters, with the NUL

}  // namespace

std::optional<std::string> AskForTextFile(HWND owner, const std::string& title,
                                          const std::string& initial) {
  const std::wstring wide_title = ToWide(title);
  std::wstring path = ToWide(initial);
  path.resize(kLongestPath, L'\0');
  OPENFILENAMEW question = {};
  question.lStructSize = sizeof question;
  question.hwndOwner = owner;
  question.lpstrFilter = L"Text files (*.txt)\0*.txt\0All files (*.*)\0*.*\0";
  question.lpstrFile = path.data();
  question.nMaxFile = static_cast<DWORD>(path.size());
  question.lpstrTitle = wide_title.c_str();
  question.lpstrDefExt = L"txt";
  // A working folder that changed would keep the drive that it lies on in use.
  question.Flags =
      OFN_EXPLORER | OFN_OVERWRITEPROMPT | OFN_PATHMUSTEXIST | OFN_HIDEREADONLY | OFN_NOCHANGEDIR;
  if (!GetSaveFileNameW(&question)) return std::nullopt;
  path.resize(std::min(path.find(L'\0'), path.size()));
  return FromWide(path);
}

}  // namespace vornalux
