// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace vornalux::guest {

// Another program's windows, as a user of the guest sees them: those that are shown, by process.

std::vector<HWND> ShownWindows(DWORD process);
std::vector<HWND> ChildrenOf(HWND window);
std::wstring TextOf(HWND window);
std::string Utf8(const std::wstring& text);

// The shown window that has this control; null when there is none.
HWND WindowWith(DWORD process, int control);

// A message box: an icon, a text and buttons. Null when none is up.
HWND BoxOf(DWORD process);
std::string BoxText(HWND box);

// Of the main window's menu.
bool MenuEnabled(HWND window, UINT id);

// Presses the button or the menu item with this text, "&" left out. False when there is none that
// is enabled.
bool Press(DWORD process, const std::wstring& text);

// A shown window, a control of it or a title says this somewhere.
bool Says(DWORD process, const std::wstring& text);

}  // namespace vornalux::guest
