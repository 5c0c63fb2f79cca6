// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>
#include <vector>

namespace vornalux {

struct Mount {
  std::string device;  // "8:1" (major:minor); not of swap
  std::string source;  // what is mounted: a device, a file, or a name
  std::string point;
  std::string type;  // of the file system, as the kernel calls it
};

// What the kernel's list of mounts, or of swap areas, tells, as libmount reads it. Nothing where it
// cannot be read.
std::vector<Mount> ReadMounts(const std::string& path);
std::vector<Mount> ReadSwaps(const std::string& path);

}  // namespace vornalux
