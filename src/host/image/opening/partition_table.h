// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/image/opening/file_device.h"

namespace vornalux {

struct Partition {
  int number = 0;            // 1-based, as the kernel counts them: logical ones from 5 on
  std::uint64_t offset = 0;  // bytes
  std::uint64_t length = 0;  // bytes; may reach past the end of the device
};

// The partitions of a disk, as libblkid finds them: GPT, also in 4096-byte units in a file, or MBR
// with logical partitions. Empty when there is no such table. Throws VolumeRefused when the table
// is damaged or cannot be read.
std::vector<Partition> ReadPartitions(FileDevice& disk);

}  // namespace vornalux
