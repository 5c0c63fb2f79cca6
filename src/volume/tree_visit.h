// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <functional>
#include <string>

#include "platform/platform.h"
#include "volume/run_flags.h"

namespace vornalux {

// Folders whose name begins with a dot: an analysis leaves them out, with all that is in them.
enum class DotFolders { LeftOut, Visited };

// Names everything below a folder (ending in "\"), a folder before what it holds. Reparse points
// are neither named nor entered. Ends early when a stop is requested.
void VisitTree(Platform& platform, const RunFlags& flags, const std::string& folder,
               DotFolders dot_folders,
               const std::function<void(const std::string& path, bool is_folder)>& visit);

}  // namespace vornalux
