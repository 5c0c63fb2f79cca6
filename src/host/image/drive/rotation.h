// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <optional>
#include <string>

namespace vornalux {

// Whether a block device's bytes lie on a disk that turns, so that a seek costs time: asked of the
// disk of a partition, and of all that lies below an encrypted, logical or RAID volume, of which
// one that turns is enough. Device is "8:1" (major:minor), as sysfs, whose root is given, has it.
// Nothing where the kernel does not say.
std::optional<bool> IsRotational(const std::string& sysfs, const std::string& device);

}  // namespace vornalux
