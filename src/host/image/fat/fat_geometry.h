// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>

#include "host/image/device/block_device.h"

namespace vornalux {

enum class FatType { Fat12 = 12, Fat16 = 16, Fat32 = 32 };

// Where the parts of a FAT volume lie. Offsets and sizes are bytes from the start of the volume;
// every part is inside the volume and overlaps no other.
struct FatGeometry {
  FatType type = FatType::Fat12;
  std::uint32_t bytes_per_sector = 0;
  std::uint32_t sectors_per_cluster = 0;
  std::uint32_t cluster_size = 0;
  std::uint32_t clusters = 0;  // of the data area, numbered from 2

  std::uint64_t fat_offset = 0;  // of copy 0
  std::uint64_t fat_size = 0;    // of one copy
  std::uint32_t first_copy = 0;  // copies in use: all of them when mirrored, else the active one
  std::uint32_t copies = 0;

  std::uint64_t root_offset = 0;   // FAT12 and FAT16
  std::uint32_t root_entries = 0;  // FAT12 and FAT16
  std::uint32_t root_cluster = 0;  // FAT32, else 0
  std::uint64_t data_offset = 0;

  std::uint32_t state_offset = 0;  // the boot sector's state byte; 0: it has none
  std::uint32_t serial = 0;

  std::uint64_t CopyOffset(std::uint32_t copy) const {
    return fat_offset + (first_copy + copy) * fat_size;
  }
  std::uint32_t EndCluster() const { return clusters + 2; }
  bool IsCluster(std::uint32_t number) const { return number >= 2 && number < EndCluster(); }
  std::uint64_t ClusterOffset(std::uint32_t number) const {
    return data_offset + std::uint64_t{number - 2} * cluster_size;
  }
  // Bytes that the entries of clusters [0, count) take in a copy.
  std::uint64_t EntryBytes(std::uint64_t count) const {
    return (count * static_cast<std::uint64_t>(type) + 7) / 8;
  }
};

// Reads and checks the boot sector. Throws VolumeRefused.
FatGeometry ReadFatGeometry(BlockDevice& device);

}  // namespace vornalux
