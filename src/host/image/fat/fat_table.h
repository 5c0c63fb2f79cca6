// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <span>
#include <system_error>
#include <vector>

#include "host/image/device/block_device.h"
#include "host/image/fat/fat_geometry.h"

namespace vornalux {

// The file allocation table in memory, in its form on the disk. Clusters are numbered from 2 here,
// as in the table.
class FatTable {
 public:
  // Reads the table and checks that the copies in use agree. Throws VolumeRefused.
  FatTable(BlockDevice& device, const FatGeometry& geometry);

  // What cluster's entry says: 0 free, Bad(), IsEnd(), or the next cluster of the chain.
  std::uint32_t Get(std::uint32_t cluster) const;
  // Keeps the bits that do not belong to the entry.
  void Set(std::uint32_t cluster, std::uint32_t value);

  std::uint32_t Bad() const { return bad_; }
  bool IsEnd(std::uint32_t value) const { return value > bad_; }

  // Brings the entries of [cluster, cluster + count) to every copy in use.
  std::error_code Write(BlockDevice& device, std::uint32_t cluster, std::uint32_t count) const;

  // Allocation bits of the clusters from lcn (a multiple of 8) on: bit i is cluster lcn + i + 2.
  std::uint8_t BitmapByte(std::int64_t lcn) const;

 private:
  void RequireEqual(BlockDevice& device, std::uint32_t copy) const;

  FatGeometry geometry_;
  std::uint32_t bad_;
  std::vector<std::uint8_t> bytes_;
};

}  // namespace vornalux
