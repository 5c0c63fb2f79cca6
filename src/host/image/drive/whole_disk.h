// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>

namespace vornalux {

// The block device that another one is a part of: the disk of a partition, what lies below an
// encrypted or logical volume when that is one device only. Devices are "8:1" (major:minor), as
// sysfs, whose root is given, has them. Empty for a whole disk, and for what sysfs does not know.
std::string WholeDiskOf(const std::string& sysfs, const std::string& device);

// The node in /dev of a block device; empty when sysfs names none.
std::string DeviceNodeOf(const std::string& sysfs, const std::string& device);
// The same, by the name that was given to an encrypted or logical volume.
std::string FriendlyNodeOf(const std::string& sysfs, const std::string& device);

// The node of the partition that starts at this byte of a disk; empty where there is none.
std::string NodeOfPartition(const std::string& sysfs, const std::string& disk,
                            std::uint64_t offset);

}  // namespace vornalux
