// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "platform/shell_objects.h"

namespace vornalux {

// The path of a special folder by its name, in any case: "AllUsersDesktop", "QuickLaunch" and so
// on. Where the system has no such folder for all users, it is the user's own. Empty for a name
// that is not known, and for a folder that the system does not have.
ShellResult GetSpecialFolder(ScriptShell& shell, const std::string& name, std::string& folder);

}  // namespace vornalux
