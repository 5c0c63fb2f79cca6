// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vornalux {

// Units in which a block device can forget what it holds, bytes. The first whole one of those on
// the device begins `first` bytes from its start.
struct DiscardLimits {
  std::uint64_t unit = 0;
  std::uint64_t first = 0;
};

// Device is "8:1" (major:minor), as sysfs, whose root is given, has it. Nothing for one that
// forgets nothing, or that sysfs does not know.
std::optional<DiscardLimits> ReadDiscardLimits(const std::string& sysfs, const std::string& device);

}  // namespace vornalux
