// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <optional>
#include <string>

namespace vornalux {

// Where the kernel tells what is in use.
struct UseSources {
  std::string mounts = "/proc/self/mountinfo";
  std::string sys = "/sys";
};

// How the file or block device under the descriptor is in use already: mounted, itself or through
// a loop device or FUSE, as a whole or in a partition; or attached to a loop device. Nothing when
// it is not.
std::optional<std::string> FindUse(int descriptor, const UseSources& sources = {});

}  // namespace vornalux
