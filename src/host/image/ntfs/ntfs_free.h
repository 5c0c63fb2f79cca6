// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <optional>

#include "host/image/device/block_device.h"

namespace vornalux {

// Free bytes of an NTFS volume without opening it, by its allocation bitmap. Nothing where that is
// damaged or in an unusual place.
std::optional<std::uint64_t> FreeBytesOfNtfs(BlockDevice& device);

}  // namespace vornalux
