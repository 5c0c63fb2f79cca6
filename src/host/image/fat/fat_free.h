// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <optional>

#include "host/image/device/block_device.h"

namespace vornalux {

// Free bytes of a FAT volume without opening it: by the count that FAT32 keeps, else by the table
// where that is small. Nothing where that does not tell it.
std::optional<std::uint64_t> FreeBytesOfFat(BlockDevice& device);

}  // namespace vornalux
