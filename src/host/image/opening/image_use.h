// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace vornalux {

// Where the kernel tells what is in use.
struct UseSources {
  std::string mounts = "/proc/self/mountinfo";
  std::string swaps = "/proc/swaps";
  std::string sys = "/sys";
};

struct Use {
  std::string what;                // "is mounted on /mnt/a b"
  std::vector<std::string> lines;  // commands that end it
  std::string mount_point = {};    // where all of it is mounted; else empty
};

// How the file or block device under the descriptor is in use already: mounted, itself or through
// a loop device or FUSE, as a whole or in a partition; as swap; or attached to a loop device.
// Nothing when it is not.
std::optional<Use> FindUse(int descriptor, const UseSources& sources = {});

// The nodes of the devices that are built on a block device, which then is theirs alone.
std::vector<std::string> FindHolders(int descriptor, const std::string& sys = "/sys");

}  // namespace vornalux
