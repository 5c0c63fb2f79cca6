// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vornalux {

// The first two of these images and devices that are one volume, or of which one lies on the
// other: links, devices of the same number, loop devices and what they are attached to, partitions
// and their whole disk. sysfs: its root.
std::optional<std::pair<std::string, std::string>> FindSameVolume(
    const std::vector<std::string>& images, const std::string& sysfs = "/sys");

}  // namespace vornalux
