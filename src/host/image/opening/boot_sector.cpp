// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/opening/boot_sector.h"

#include <algorithm>
#include <bit>
#include <string_view>

#include "host/image/device/little_endian.h"

namespace vornalux {
namespace {

using Sector = std::span<const std::uint8_t, 512>;

bool HasName(Sector sector, std::string_view name) {
  return std::equal(name.begin(), name.end(), sector.begin() + 3,
                    [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; });
}

bool SaneSectorSize(std::uint32_t bytes) {
  return bytes >= 512 && bytes <= 4096 && std::has_single_bit(bytes);
}

BootSector ReadNtfs(Sector sector) {
  const std::uint32_t sector_size = LoadLittle<std::uint16_t>(sector, 0x0B);
  const std::uint64_t sectors = LoadLittle<std::uint64_t>(sector, 0x28);
  if (!SaneSectorSize(sector_size) || sectors == 0 || sectors > (std::uint64_t{1} << 50)) {
    return {BootKind::DamagedNtfs, "NTFS, damaged"};
  }
  return {BootKind::Ntfs, "NTFS", LoadLittle<std::uint64_t>(sector, 0x48), sectors * sector_size,
          sector_size};
}

BootSector ReadFat(Sector sector) {
  const std::uint32_t sector_size = LoadLittle<std::uint16_t>(sector, 0x0B);
  const std::uint32_t sectors_16 = LoadLittle<std::uint16_t>(sector, 0x13);
  const std::uint32_t sectors =
      sectors_16 != 0 ? sectors_16 : LoadLittle<std::uint32_t>(sector, 0x20);
  const bool is_fat32 = LoadLittle<std::uint16_t>(sector, 0x16) == 0;
  const std::uint32_t fat_sectors =
      is_fat32 ? LoadLittle<std::uint32_t>(sector, 0x24) : LoadLittle<std::uint16_t>(sector, 0x16);
  const bool jumps = sector[0] == 0xEB || sector[0] == 0xE9;
  const bool sane = jumps && SaneSectorSize(sector_size) && std::has_single_bit(sector[0x0D]) &&
                    LoadLittle<std::uint16_t>(sector, 0x0E) != 0 && sector[0x10] != 0 &&
                    sector[0x15] >= 0xF0 && sectors != 0 && fat_sectors != 0;
  if (!sane) return {};
  const std::size_t extended = is_fat32 ? 0x42 : 0x26;
  const bool has_serial = sector[extended] == 0x29 || sector[extended] == 0x28;
  const std::uint64_t serial =
      has_serial ? LoadLittle<std::uint32_t>(sector, extended + 1) : std::uint64_t{0};
  return {BootKind::Fat, "FAT", serial, std::uint64_t{sectors} * sector_size, 0};
}

}  // namespace

BootSector IdentifyBootSector(Sector sector) {
  if (HasName(sector, "NTFS    ")) return ReadNtfs(sector);
  // These have fields of their own where FAT's would be.
  for (const char* const other : {"EXFAT   ", "-FVE-FS-", "HPFS    ", "JFS     "}) {
    if (HasName(sector, other)) return {};
  }
  return ReadFat(sector);
}

}  // namespace vornalux
