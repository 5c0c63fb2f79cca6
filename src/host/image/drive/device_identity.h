// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>

namespace vornalux {

// Where a place on a block device lies on the whole disk.
struct DiskPlace {
  std::string disk;          // "8:0" (major:minor), as sysfs has it
  std::uint64_t offset = 0;  // bytes
};

// The same for a partition by its own node and for one that was found on the disk. sysfs is the
// root of the kernel's file system of that name.
DiskPlace OnWholeDisk(const std::string& sysfs, const std::string& device, std::uint64_t offset);

// What tells a volume's device from others of the same content: the serial number or world-wide
// name of the disk, the backing file of a loop device, and the UUID of the partition that starts
// there. One line; empty when the device says nothing of itself.
std::string DeviceIdentity(const std::string& sysfs, const DiskPlace& place);

// The device as it is attached now: another one after it was taken out or the machine restarted.
// Empty where the kernel does not count such things.
std::string AttachedAs(const std::string& sysfs, const DiskPlace& place);

}  // namespace vornalux
