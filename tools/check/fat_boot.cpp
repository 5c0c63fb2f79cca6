// SPDX-License-Identifier: GPL-2.0-or-later
#include <algorithm>
#include <array>

#include "check/fat_volume.h"

namespace vornalux::checking {
namespace {

// The backup is written once; only the dirty flag changes later, and in the first one alone.
void CheckBackup(const ByteSource& source, std::uint64_t offset, const RawFatGeometry& geometry,
                 Bytes boot, Problems& problems) {
  const std::uint32_t sector = Load16(boot, 50);
  if (sector == 0) return;
  std::array<std::uint8_t, 512> backup{};
  if (std::uint64_t{sector} * geometry.sector >= geometry.table_start ||
      !source.Read(offset + std::uint64_t{sector} * geometry.sector, backup)) {
    problems.Add("backup boot sector: outside the reserved sectors: ", sector);
    return;
  }
  backup[65] = boot[65];
  if (!std::equal(boot.begin(), boot.end(), backup.begin())) {
    problems.Add("backup boot sector differs from the boot sector");
  }
}

bool Impossible(Problems& problems, const char* what, std::uint64_t value) {
  problems.Add("boot sector: impossible ", what, ": ", value);
  return false;
}

bool ReadSizes(Bytes boot, std::uint64_t there, RawFatGeometry& geometry, Problems& problems) {
  geometry.sector = Load16(boot, 11);
  const std::uint32_t per_cluster = Load8(boot, 13);
  const std::uint32_t reserved = Load16(boot, 14);
  geometry.tables = Load8(boot, 16);
  if (!IsPowerOfTwo(geometry.sector) || geometry.sector < 512 || geometry.sector > 4096) {
    return Impossible(problems, "sector size", geometry.sector);
  }
  if (!IsPowerOfTwo(per_cluster)) return Impossible(problems, "cluster size", per_cluster);
  if (reserved == 0) return Impossible(problems, "number of reserved sectors", reserved);
  if (geometry.tables < 1 || geometry.tables > 4) {
    return Impossible(problems, "number of tables", static_cast<std::uint64_t>(geometry.tables));
  }
  geometry.cluster = geometry.sector * per_cluster;
  const std::uint64_t small_total = Load16(boot, 19);
  const std::uint64_t total = small_total != 0 ? small_total : Load32(boot, 32);
  const std::uint64_t small_table = Load16(boot, 22);
  const std::uint64_t table = small_table != 0 ? small_table : Load32(boot, 36);
  const std::uint64_t root_bytes = std::uint64_t{32} * Load16(boot, 17);
  geometry.table_start = std::uint64_t{reserved} * geometry.sector;
  geometry.table_size = table * geometry.sector;
  geometry.root_start =
      geometry.table_start + static_cast<std::uint64_t>(geometry.tables) * geometry.table_size;
  geometry.root_size = root_bytes;
  geometry.data_start =
      geometry.root_start + (root_bytes + geometry.sector - 1) / geometry.sector * geometry.sector;
  const std::uint64_t bytes = total * geometry.sector;
  if (bytes > there || geometry.data_start >= bytes) {
    return Impossible(problems, "number of sectors", total);
  }
  const std::uint64_t clusters = (bytes - geometry.data_start) / geometry.cluster;
  geometry.bits = small_table == 0 ? 32 : clusters < 4085 ? 12 : 16;
  const std::uint64_t most = geometry.bits == 32 ? 0x0FFFFFF5 : 65524;
  if (clusters == 0 || clusters > most) return Impossible(problems, "cluster count", clusters);
  geometry.clusters = static_cast<std::uint32_t>(clusters);
  if ((clusters + 2) * static_cast<unsigned>(geometry.bits) > geometry.table_size * 8) {
    return Impossible(problems, "table size", geometry.table_size);
  }
  return true;
}

}  // namespace

std::optional<RawFatGeometry> ReadFatBoot(const ByteSource& source, std::uint64_t offset,
                                          Problems& problems) {
  std::array<std::uint8_t, 512> boot{};
  if (!source.Read(offset, boot)) {
    problems.Add("boot sector: cannot be read");
    return std::nullopt;
  }
  RawFatGeometry geometry;
  if (!ReadSizes(boot, source.Size() - offset, geometry, problems)) return std::nullopt;
  geometry.media = Load8(boot, 21);
  if (geometry.media < 0xF8 && geometry.media != 0xF0) {
    problems.Add("boot sector: impossible media byte ", int{geometry.media});
  }
  if (Load16(boot, 510) != 0xAA55) problems.Add("boot sector: no 55 AA at its end");
  geometry.dirty = (Load8(boot, geometry.bits == 32 ? 65 : 37) & 1) != 0;
  if (geometry.bits != 32) {
    if (geometry.root_size == 0) problems.Add("boot sector: no root entries");
    return geometry;
  }
  if (geometry.root_size != 0) problems.Add("boot sector: FAT32 with a fixed root");
  const std::uint16_t flags = Load16(boot, 40);
  geometry.mirrored = (flags & 0x80) == 0;
  geometry.active_table = geometry.mirrored ? 0 : flags & 15;
  geometry.root_cluster = Load32(boot, 44);
  geometry.info_sector = Load16(boot, 48) == 0xFFFF ? 0 : Load16(boot, 48);
  if (geometry.active_table >= geometry.tables) {
    problems.Add("boot sector: table ", geometry.active_table, " is said to be the active one");
    return std::nullopt;
  }
  CheckBackup(source, offset, geometry, boot, problems);
  return geometry;
}

}  // namespace vornalux::checking
