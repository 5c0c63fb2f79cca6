// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vornalux {

// Whether a text can stand in a desktop entry: UTF-8 without control characters.
bool FitsDesktopEntry(std::string_view text);

// A file that starts a command in a terminal when it is opened on a desktop. All texts fit, and the
// program's path, first of the command, has no "=" in it.
std::string DesktopEntry(const std::string& name, const std::vector<std::string>& command);

}  // namespace vornalux
