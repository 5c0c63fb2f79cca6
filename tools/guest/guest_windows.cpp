// SPDX-License-Identifier: GPL-2.0-or-later
#include "guest/guest_windows.h"

#include <algorithm>

namespace vornalux::guest {
namespace {

constexpr int kBoxText = 0xFFFF;
constexpr UINT kPatience = 5000;  // milliseconds; a window that is stuck must not hold us up

BOOL CALLBACK Collect(HWND window, LPARAM list) {
  reinterpret_cast<std::vector<HWND>*>(list)->push_back(window);
  return TRUE;
}

std::wstring WithoutAmpersands(std::wstring text) {
  std::erase(text, L'&');
  return text;
}

std::wstring ClassOf(HWND window) {
  wchar_t name[64] = {};
  GetClassNameW(window, name, 63);
  return name;
}

bool PressMenuItem(HWND window, const std::wstring& text) {
  const HMENU menu = GetMenu(window);
  for (int i = 0; menu != nullptr && i < GetMenuItemCount(menu); ++i) {
    wchar_t item[100] = {};
    GetMenuStringW(menu, static_cast<UINT>(i), item, 99, MF_BYPOSITION);
    if (WithoutAmpersands(item) != text) continue;
    const UINT id = GetMenuItemID(menu, i);
    if (!MenuEnabled(window, id)) return false;
    PostMessageW(window, WM_COMMAND, id, 0);
    return true;
  }
  return false;
}

}  // namespace

std::vector<HWND> ShownWindows(DWORD process) {
  std::vector<HWND> windows;
  EnumWindows(Collect, reinterpret_cast<LPARAM>(&windows));
  std::erase_if(windows, [process](HWND window) {
    DWORD owner = 0;
    GetWindowThreadProcessId(window, &owner);
    return owner != process || !IsWindowVisible(window);
  });
  return windows;
}

std::vector<HWND> ChildrenOf(HWND window) {
  std::vector<HWND> children;
  EnumChildWindows(window, Collect, reinterpret_cast<LPARAM>(&children));
  return children;
}

std::wstring TextOf(HWND window) {
  DWORD_PTR length = 0;
  if (!SendMessageTimeoutW(window, WM_GETTEXTLENGTH, 0, 0, SMTO_ABORTIFHUNG, kPatience, &length)) {
    return {};
  }
  std::wstring text(length + 1, L'\0');
  DWORD_PTR copied = 0;
  if (!SendMessageTimeoutW(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()),
                           SMTO_ABORTIFHUNG, kPatience, &copied)) {
    return {};
  }
  text.resize(std::min<std::size_t>(copied, length));
  return text;
}

std::string Utf8(const std::wstring& text) {
  const int size = static_cast<int>(text.size());
  const int bytes =
      WideCharToMultiByte(CP_UTF8, 0, text.c_str(), size, nullptr, 0, nullptr, nullptr);
  std::string out(static_cast<std::size_t>(std::max(bytes, 0)), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.c_str(), size, out.data(), bytes, nullptr, nullptr);
  return out;
}

HWND WindowWith(DWORD process, int control) {
  for (const HWND window : ShownWindows(process)) {
    if (GetDlgItem(window, control) != nullptr) return window;
  }
  return nullptr;
}

HWND BoxOf(DWORD process) {
  for (const HWND window : ShownWindows(process)) {
    if (ClassOf(window) != L"#32770" || GetDlgItem(window, kBoxText) == nullptr) continue;
    // The program's own dialogs have controls with large numbers besides.
    if (std::ranges::none_of(ChildrenOf(window), [](HWND child) {
          const int id = GetDlgCtrlID(child);
          return id >= 100 && id < 1000;
        })) {
      return window;
    }
  }
  return nullptr;
}

std::string BoxText(HWND box) {
  std::string text = Utf8(TextOf(GetDlgItem(box, kBoxText)));
  std::ranges::replace_if(
      text, [](char c) { return c == '\r' || c == '\n'; }, ' ');
  return text;
}

bool MenuEnabled(HWND window, UINT id) {
  const HMENU menu = GetMenu(window);
  const UINT state = menu == nullptr ? 0xFFFFFFFF : GetMenuState(menu, id, MF_BYCOMMAND);
  return state != 0xFFFFFFFF && (state & (MF_GRAYED | MF_DISABLED)) == 0;
}

bool Press(DWORD process, const std::wstring& text) {
  for (const HWND window : ShownWindows(process)) {
    if (!IsWindowEnabled(window)) continue;
    if (PressMenuItem(window, text)) return true;
    for (const HWND child : ChildrenOf(window)) {
      if (ClassOf(child) == L"Button" && IsWindowVisible(child) && IsWindowEnabled(child) &&
          WithoutAmpersands(TextOf(child)) == text) {
        PostMessageW(child, BM_CLICK, 0, 0);
        return true;
      }
    }
  }
  return false;
}

bool Says(DWORD process, const std::wstring& text) {
  for (const HWND window : ShownWindows(process)) {
    if (TextOf(window).find(text) != std::wstring::npos) return true;
    for (const HWND child : ChildrenOf(window)) {
      if (IsWindowVisible(child) && TextOf(child).find(text) != std::wstring::npos) return true;
    }
  }
  return false;
}

}  // namespace vornalux::guest
