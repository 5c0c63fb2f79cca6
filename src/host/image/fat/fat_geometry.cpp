// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/fat/fat_geometry.h"

#include <array>
#include <bit>
#include <string>

#include "host/image/device/little_endian.h"
#include "host/image/volume/refused.h"

namespace vornalux {
namespace {

constexpr std::uint32_t kEntrySize = 32;
constexpr std::uint64_t kFat16Least = 4085;
constexpr std::uint64_t kFat16End = 65525;
constexpr std::uint64_t kFat32End = 0x0FFFFFF6;

using BootSector = std::array<std::uint8_t, 512>;

[[noreturn]] void Refuse(const std::string& what) {
  throw VolumeRefused("The boot sector does not describe a sound FAT volume: " + what +
                      ". Nothing was changed; fsck.fat -n IMAGE shows more.");
}

std::string Number(std::uint64_t value) { return std::to_string(value); }

// The parts before the data area, in sectors, as the boot sector tells them.
struct Layout {
  std::uint64_t reserved = 0;
  std::uint64_t fats = 0;
  std::uint64_t fat_sectors = 0;
  std::uint64_t root_sectors = 0;
  std::uint64_t total = 0;
  bool fat32 = false;

  std::uint64_t DataStart() const { return reserved + fats * fat_sectors + root_sectors; }
};

BootSector ReadBootSector(BlockDevice& device) {
  BootSector boot{};
  if (device.Size() < boot.size())
    Refuse("the volume has only " + Number(device.Size()) + " bytes");
  if (const std::error_code error = device.Read(0, boot)) {
    throw VolumeRefused("The boot sector cannot be read: " + error.message());
  }
  if (boot[510] != 0x55 || boot[511] != 0xAA) Refuse("bytes 510 and 511 are not 55 AA");
  if (boot[0x15] != 0xF0 && boot[0x15] < 0xF8) {
    Refuse("the media byte at 21 is " + Number(boot[0x15]));
  }
  return boot;
}

void ReadSizes(const BootSector& boot, FatGeometry& geometry) {
  geometry.bytes_per_sector = LoadLittle<std::uint16_t>(boot, 0x0B);
  if (!std::has_single_bit(geometry.bytes_per_sector) || geometry.bytes_per_sector < 512 ||
      geometry.bytes_per_sector > 4096) {
    Refuse(Number(geometry.bytes_per_sector) + " bytes per sector");
  }
  geometry.sectors_per_cluster = boot[0x0D];
  if (!std::has_single_bit(geometry.sectors_per_cluster)) {
    Refuse(Number(geometry.sectors_per_cluster) + " sectors per cluster");
  }
  geometry.cluster_size = geometry.bytes_per_sector * geometry.sectors_per_cluster;
}

std::uint64_t TotalSectors(const BootSector& boot) {
  const std::uint32_t small = LoadLittle<std::uint16_t>(boot, 0x13);
  const std::uint32_t large = LoadLittle<std::uint32_t>(boot, 0x20);
  if (small == 0 && large == 0) Refuse("it has 0 sectors");
  if (small != 0 && large != 0 && small != large) {
    Refuse("its two counts of sectors, " + Number(small) + " and " + Number(large) + ", differ");
  }
  return small != 0 ? small : large;
}

Layout ReadLayout(const BootSector& boot, const FatGeometry& geometry) {
  Layout layout;
  layout.reserved = LoadLittle<std::uint16_t>(boot, 0x0E);
  if (layout.reserved == 0) Refuse("no sector is reserved for the boot sector itself");
  layout.fats = boot[0x10];
  if (layout.fats == 0) Refuse("it has no file allocation table");
  const std::uint32_t small_fat = LoadLittle<std::uint16_t>(boot, 0x16);
  // Who mounts FAT volumes takes an empty 16-bit size for FAT32, however few clusters there are.
  layout.fat32 = small_fat == 0;
  layout.fat_sectors = layout.fat32 ? LoadLittle<std::uint32_t>(boot, 0x24) : small_fat;
  if (layout.fat_sectors == 0) Refuse("0 sectors per file allocation table");

  const std::uint32_t root_bytes = LoadLittle<std::uint16_t>(boot, 0x11) * kEntrySize;
  if (layout.fat32 && root_bytes != 0) Refuse("a FAT32 volume has no fixed root directory");
  if (!layout.fat32 && root_bytes == 0) Refuse("its root directory has 0 entries");
  if (root_bytes % geometry.bytes_per_sector != 0) {
    Refuse("its root directory of " + Number(root_bytes) + " bytes does not end with a sector");
  }
  layout.root_sectors = root_bytes / geometry.bytes_per_sector;
  layout.total = TotalSectors(boot);
  return layout;
}

void PlaceParts(const Layout& layout, std::uint64_t device_size, FatGeometry& geometry) {
  const std::uint64_t sector = geometry.bytes_per_sector;
  if (layout.total * sector > device_size) {
    Refuse("its " + Number(layout.total) + " sectors do not fit into " + Number(device_size) +
           " bytes; the image is cut off");
  }
  if (layout.DataStart() >= layout.total) {
    Refuse("its data area would start at sector " + Number(layout.DataStart()) + " of " +
           Number(layout.total));
  }
  const std::uint64_t clusters = (layout.total - layout.DataStart()) / geometry.sectors_per_cluster;
  if (clusters == 0) Refuse("its data area is smaller than a cluster");
  if (clusters >= (layout.fat32 ? kFat32End : kFat16End)) {
    Refuse(Number(clusters) + " clusters are too many for its kind of FAT");
  }
  geometry.clusters = static_cast<std::uint32_t>(clusters);
  geometry.type = layout.fat32             ? FatType::Fat32
                  : clusters < kFat16Least ? FatType::Fat12
                                           : FatType::Fat16;
  geometry.fat_offset = layout.reserved * sector;
  geometry.fat_size = layout.fat_sectors * sector;
  geometry.copies = static_cast<std::uint32_t>(layout.fats);
  if (geometry.fat_size < geometry.EntryBytes(geometry.EndCluster())) {
    Refuse("a file allocation table of " + Number(geometry.fat_size) +
           " bytes is too small for its " + Number(clusters) + " clusters");
  }
  geometry.data_offset = layout.DataStart() * sector;
  geometry.root_offset = geometry.data_offset - layout.root_sectors * sector;
  geometry.root_entries = static_cast<std::uint32_t>(layout.root_sectors * sector / kEntrySize);
}

void ReadFat32Part(const BootSector& boot, FatGeometry& geometry) {
  if (const std::uint32_t version = LoadLittle<std::uint16_t>(boot, 0x2A); version != 0) {
    Refuse("FAT32 version " + Number(version) + " is not known");
  }
  geometry.root_cluster = LoadLittle<std::uint32_t>(boot, 0x2C);
  if (!geometry.IsCluster(geometry.root_cluster)) {
    Refuse("its root directory starts at cluster " + Number(geometry.root_cluster) +
           ", outside the volume");
  }
  const std::uint32_t flags = LoadLittle<std::uint16_t>(boot, 0x28);
  if ((flags & 0x80) != 0) {
    geometry.first_copy = flags & 0x0F;
    if (geometry.first_copy >= geometry.copies) {
      Refuse("its active file allocation table is number " + Number(geometry.first_copy) + " of " +
             Number(geometry.copies));
    }
    geometry.copies = 1;
  }
  geometry.state_offset = 0x41;
  geometry.serial = LoadLittle<std::uint32_t>(boot, 0x43);
}

void ReadFat16Part(const BootSector& boot, FatGeometry& geometry) {
  // Older volumes have boot code where the state byte and the serial number would be.
  if (boot[0x26] != 0x28 && boot[0x26] != 0x29) return;
  geometry.state_offset = 0x25;
  geometry.serial = LoadLittle<std::uint32_t>(boot, 0x27);
}

}  // namespace

FatGeometry ReadFatGeometry(BlockDevice& device) {
  const BootSector boot = ReadBootSector(device);
  FatGeometry geometry;
  ReadSizes(boot, geometry);
  PlaceParts(ReadLayout(boot, geometry), device.Size(), geometry);
  if (geometry.type == FatType::Fat32) {
    ReadFat32Part(boot, geometry);
  } else {
    ReadFat16Part(boot, geometry);
  }
  return geometry;
}

}  // namespace vornalux
