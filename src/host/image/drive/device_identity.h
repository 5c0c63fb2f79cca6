// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

namespace vornalux {

// What tells a block device from others of the same content: the serial number or world-wide name
// of the disk below, the backing file of a loop device, and the UUID of the partition. One line;
// empty when the device says nothing of itself. device is "8:1" (major:minor), sysfs the root of
// the kernel's file system of that name.
std::string DeviceIdentity(const std::string& sysfs, const std::string& device);

// The device as it is attached now: another one after it was taken out or the machine restarted.
// Empty where the kernel does not count such things.
std::string DevicePlace(const std::string& sysfs, const std::string& device);

}  // namespace vornalux
