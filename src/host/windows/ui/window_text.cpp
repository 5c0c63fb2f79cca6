// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/ui/window_text.h"

#include <cstddef>

#include "host/windows/windows_text.h"

namespace vornalux {
namespace {

std::wstring WideTextOf(HWND window) {
  std::wstring text(static_cast<std::size_t>(GetWindowTextLengthW(window)) + 1, L'\0');
  text.resize(
      static_cast<std::size_t>(GetWindowTextW(window, text.data(), static_cast<int>(text.size()))));
  return text;
}

}  // namespace

void SetText(HWND window, const std::string& text) {
  const std::wstring wide = ToWide(text);
  if (WideTextOf(window) != wide) SetWindowTextW(window, wide.c_str());
}

std::string TextOf(HWND window) { return FromWide(WideTextOf(window)); }

}  // namespace vornalux
