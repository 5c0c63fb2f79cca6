// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/ui/input_box.h"

#include "host/windows/ui/resource.h"
#include "host/windows/windows_text.h"

namespace vornalux {
namespace {

struct Question {
  std::wstring prompt;
  std::wstring title;
  std::wstring text;  // at first and, after OK, in the end
};

void Begin(HWND box, const Question& question) {
  SetWindowTextW(box, question.title.c_str());
  SetDlgItemTextW(box, IDC_INPUT_PROMPT, question.prompt.c_str());
  SetDlgItemTextW(box, IDC_INPUT_TEXT, question.text.c_str());
}

void End(HWND box, WORD button, Question& question) {
  const HWND field = GetDlgItem(box, IDC_INPUT_TEXT);
  question.text.assign(static_cast<std::size_t>(GetWindowTextLengthW(field)) + 1, L'\0');
  const int length =
      GetWindowTextW(field, question.text.data(), static_cast<int>(question.text.size()));
  question.text.resize(static_cast<std::size_t>(length));
  EndDialog(box, button);
}

INT_PTR CALLBACK Procedure(HWND box, UINT message, WPARAM wparam, LPARAM lparam) {
  if (message == WM_INITDIALOG) {
    SetWindowLongPtrW(box, DWLP_USER, lparam);
    Begin(box, *reinterpret_cast<const Question*>(lparam));
    return TRUE;  // the text, as the first that can, takes the keyboard
  }
  const WORD button = LOWORD(wparam);
  if (message != WM_COMMAND || (button != IDOK && button != IDCANCEL)) return FALSE;
  End(box, button, *reinterpret_cast<Question*>(GetWindowLongPtrW(box, DWLP_USER)));
  return TRUE;
}

}  // namespace

std::optional<std::string> AskForText(HWND owner, const std::string& prompt,
                                      const std::string& title, const std::string& initial) {
  Question question{.prompt = ToWide(prompt), .title = ToWide(title), .text = ToWide(initial)};
  const INT_PTR button = DialogBoxParamW(GetModuleHandleW(nullptr), MAKEINTRESOURCEW(IDD_INPUT),
                                         owner, Procedure, reinterpret_cast<LPARAM>(&question));
  if (button != IDOK) return std::nullopt;
  return FromWide(question.text);
}

}  // namespace vornalux
