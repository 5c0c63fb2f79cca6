// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/fat/fat_free.h"

#include <array>

#include "host/image/device/little_endian.h"
#include "host/image/fat/fat_geometry.h"
#include "host/image/fat/fat_table.h"
#include "host/image/volume/refused.h"

namespace vornalux {
namespace {

constexpr std::uint64_t kSmallTable = std::uint64_t{16} << 20;  // bytes

using Sector = std::array<std::uint8_t, 512>;

// The count in the sector that the boot sector names.
std::optional<std::uint32_t> CountedFree(BlockDevice& device, const FatGeometry& geometry) {
  Sector boot;
  Sector info;
  if (device.Read(0, boot)) return std::nullopt;
  const std::uint32_t at = LoadLittle<std::uint16_t>(boot, 0x30) * geometry.bytes_per_sector;
  if (at == 0 || at >= geometry.fat_offset || device.Read(at, info)) return std::nullopt;
  const std::uint32_t free = LoadLittle<std::uint32_t>(info, 488);
  const bool sound = LoadLittle<std::uint32_t>(info, 0) == 0x41615252 &&
                     LoadLittle<std::uint32_t>(info, 484) == 0x61417272 &&
                     free <= geometry.clusters;
  return sound ? std::optional(free) : std::nullopt;
}

}  // namespace

std::optional<std::uint64_t> FreeBytesOfFat(BlockDevice& device) try {
  const FatGeometry geometry = ReadFatGeometry(device);
  std::optional<std::uint32_t> free;
  if (geometry.type == FatType::Fat32) free = CountedFree(device, geometry);
  if (!free && geometry.fat_size <= kSmallTable) {
    const FatTable table(device, geometry);
    free = 0;
    for (std::uint32_t cluster = 2; cluster < geometry.EndCluster(); ++cluster) {
      if (table.Get(cluster) == 0) ++*free;
    }
  }
  return free ? std::optional(std::uint64_t{*free} * geometry.cluster_size) : std::nullopt;
} catch (const VolumeRefused&) {
  return std::nullopt;
}

}  // namespace vornalux
