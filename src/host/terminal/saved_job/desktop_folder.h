// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

namespace vornalux {

// The folder that the user's desktop shows, which need not exist: as user-dirs.dirs says, or
// "Desktop" in the home folder. Empty when there is no home folder.
std::string DesktopFolder();

// What the text of a user-dirs.dirs says of the desktop; empty when it says nothing.
std::string DesktopOf(const std::string& user_dirs, const std::string& home);

}  // namespace vornalux
