// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "volume/run_flags.h"

namespace vornalux {

// Names everything below a folder (ending in "\"), a folder before what it holds. Reparse points
// are neither named nor entered. Folders whose name begins with a dot go into left_out instead,
// with nothing that is in them; where it is null they are as others. Ends early when a stop is
// requested.
void VisitTree(Platform& platform, const RunFlags& flags, const std::string& folder,
               std::vector<std::string>* left_out,
               const std::function<void(const std::string& path, bool is_folder)>& visit);

}  // namespace vornalux
