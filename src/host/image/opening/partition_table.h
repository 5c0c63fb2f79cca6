// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <vector>

#include "host/image/device/block_device.h"

namespace vornalux {

struct Partition {
  int number = 0;            // 1-based, as other tools count them: logical ones from 5 on
  std::uint64_t offset = 0;  // bytes
  std::uint64_t length = 0;  // bytes; may reach past the end of the device
};

// The partitions of a disk: GPT, or MBR with logical partitions. Empty when there is no table.
// sector_size is the unit of the table, bytes; a GPT in 4096-byte units is found as well. Throws
// VolumeRefused when the table is damaged or cannot be read.
std::vector<Partition> ReadPartitions(BlockDevice& disk, std::uint32_t sector_size);

}  // namespace vornalux
