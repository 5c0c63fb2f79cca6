// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/opening/partition_table.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>
#include <string>

#include "host/image/device/little_endian.h"
#include "host/image/volume/refused.h"

namespace vornalux {
namespace {

constexpr std::size_t kEntriesAt = 446;
constexpr std::size_t kEntryBytes = 16;
constexpr std::uint8_t kProtective = 0xEE;
constexpr int kMaxLogical = 128;
constexpr std::uint32_t kMaxGptEntries = 1024;

using Sector = std::array<std::uint8_t, 512>;

struct MbrEntry {
  std::uint8_t type = 0;
  std::uint64_t start = 0;   // sectors
  std::uint64_t length = 0;  // sectors
};

void ReadOrRefuse(BlockDevice& disk, std::uint64_t offset, std::span<std::uint8_t> out) {
  if (const std::error_code error = disk.Read(offset, out)) {
    throw VolumeRefused("The partition table cannot be read at byte " + std::to_string(offset) +
                        ": " + error.message());
  }
}

bool HasSignature(const Sector& sector) { return sector[510] == 0x55 && sector[511] == 0xAA; }

MbrEntry ReadEntry(const Sector& sector, std::size_t index) {
  const std::size_t at = kEntriesAt + index * kEntryBytes;
  return {sector[at + 4], LoadLittle<std::uint32_t>(sector, at + 8),
          LoadLittle<std::uint32_t>(sector, at + 12)};
}

bool IsExtended(const MbrEntry& entry) {
  return entry.type == 0x05 || entry.type == 0x0F || entry.type == 0x85;
}

bool IsUsed(const MbrEntry& entry) { return entry.type != 0 && entry.length != 0; }

// Boot code of something else often stands where the entries would be.
bool LooksLikeMbr(const Sector& sector) {
  if (!HasSignature(sector)) return false;
  bool any = false;
  for (std::size_t i = 0; i < 4; ++i) {
    const std::uint8_t status = sector[kEntriesAt + i * kEntryBytes];
    if (status != 0 && status != 0x80) return false;
    const MbrEntry entry = ReadEntry(sector, i);
    if (IsUsed(entry) && entry.start == 0) return false;
    any = any || IsUsed(entry);
  }
  return any;
}

// Each logical partition has a table of its own that names the next, relative to the first.
void ReadLogical(BlockDevice& disk, std::uint32_t sector_size, std::uint64_t extended_start,
                 std::vector<Partition>& out) {
  std::uint64_t table = extended_start;
  for (int number = 5; number < 5 + kMaxLogical; ++number) {
    Sector sector;
    if (table * sector_size > disk.Size() || disk.Size() - table * sector_size < sector.size()) {
      throw VolumeRefused("The partition table names a logical partition past the end of the disk");
    }
    ReadOrRefuse(disk, table * sector_size, sector);
    if (!HasSignature(sector)) {
      throw VolumeRefused("The table of logical partition " + std::to_string(number) +
                          " is damaged");
    }
    const MbrEntry entry = ReadEntry(sector, 0);
    if (IsUsed(entry)) {
      out.push_back({number, (table + entry.start) * sector_size, entry.length * sector_size});
    }
    const MbrEntry next = ReadEntry(sector, 1);
    if (!IsUsed(next)) return;
    table = extended_start + next.start;
  }
  throw VolumeRefused("The chain of logical partitions does not end");
}

std::vector<Partition> ReadMbr(BlockDevice& disk, std::uint32_t sector_size, const Sector& sector) {
  std::vector<Partition> out;
  std::optional<std::uint64_t> extended;
  for (std::size_t i = 0; i < 4; ++i) {
    const MbrEntry entry = ReadEntry(sector, i);
    if (!IsUsed(entry)) continue;
    if (IsExtended(entry)) {
      extended = entry.start;
    } else {
      out.push_back(
          {static_cast<int>(i) + 1, entry.start * sector_size, entry.length * sector_size});
    }
  }
  if (extended) ReadLogical(disk, sector_size, *extended, out);
  return out;
}

std::uint32_t Crc(std::span<const std::uint8_t> bytes) {
  return static_cast<std::uint32_t>(::crc32_z(0, bytes.data(), bytes.size()));
}

struct GptHeader {
  std::uint64_t entries_at = 0;  // sectors
  std::uint32_t entries = 0;
  std::uint32_t entry_bytes = 0;
  std::uint32_t entries_checksum = 0;
};

// A header at sector number at, if there is a whole one.
std::optional<GptHeader> ReadGptHeader(BlockDevice& disk, std::uint32_t sector_size,
                                       std::uint64_t at) {
  Sector sector;
  const std::uint64_t offset = at * sector_size;
  if (offset > disk.Size() || disk.Size() - offset < sector.size()) return std::nullopt;
  ReadOrRefuse(disk, offset, sector);
  if (std::memcmp(sector.data(), "EFI PART", 8) != 0) return std::nullopt;
  const std::uint32_t header_bytes = LoadLittle<std::uint32_t>(sector, 12);
  if (header_bytes < 92 || header_bytes > sector.size()) return std::nullopt;
  const std::uint32_t checksum = LoadLittle<std::uint32_t>(sector, 16);
  StoreLittle<std::uint32_t>(sector, 16, 0);
  if (Crc(std::span(sector).first(header_bytes)) != checksum) return std::nullopt;
  return GptHeader{LoadLittle<std::uint64_t>(sector, 72), LoadLittle<std::uint32_t>(sector, 80),
                   LoadLittle<std::uint32_t>(sector, 84), LoadLittle<std::uint32_t>(sector, 88)};
}

std::optional<std::vector<Partition>> ReadGptEntries(BlockDevice& disk, std::uint32_t sector_size,
                                                     const GptHeader& header) {
  const bool sane = header.entries <= kMaxGptEntries && header.entry_bytes >= 128 &&
                    header.entry_bytes <= 4096 && header.entries_at <= disk.Size() / sector_size;
  if (!sane) return std::nullopt;
  std::vector<std::uint8_t> table(std::size_t{header.entries} * header.entry_bytes);
  const std::uint64_t offset = header.entries_at * sector_size;
  if (table.size() > disk.Size() - offset) return std::nullopt;
  ReadOrRefuse(disk, offset, table);
  if (Crc(table) != header.entries_checksum) return std::nullopt;

  const std::uint64_t max_sector = ~std::uint64_t{0} / sector_size - 1;
  std::vector<Partition> out;
  for (std::uint32_t i = 0; i < header.entries; ++i) {
    const auto entry = std::span(table).subspan(std::size_t{i} * header.entry_bytes, 128);
    const auto type = entry.first(16);
    if (std::all_of(type.begin(), type.end(), [](std::uint8_t byte) { return byte == 0; })) {
      continue;
    }
    const std::uint64_t first = LoadLittle<std::uint64_t>(entry, 32);
    const std::uint64_t last = LoadLittle<std::uint64_t>(entry, 40);
    if (first > last || last > max_sector) return std::nullopt;
    out.push_back({static_cast<int>(i) + 1, first * sector_size, (last - first + 1) * sector_size});
  }
  return out;
}

std::vector<Partition> ReadGpt(BlockDevice& disk, std::uint32_t sector_size) {
  for (const std::uint32_t unit : {sector_size, std::uint32_t{4096}}) {
    const std::uint64_t sectors = disk.Size() / unit;
    for (const std::uint64_t at : {std::uint64_t{1}, sectors - 1}) {
      if (sectors < 2) continue;
      const std::optional<GptHeader> header = ReadGptHeader(disk, unit, at);
      if (!header) continue;
      auto partitions = ReadGptEntries(disk, unit, *header);
      if (partitions) return *std::move(partitions);
    }
  }
  throw VolumeRefused("The GPT partition table is damaged, and so is its copy at the end");
}

}  // namespace

std::vector<Partition> ReadPartitions(BlockDevice& disk, std::uint32_t sector_size) {
  Sector sector;
  if (disk.Size() < sector.size()) return {};
  ReadOrRefuse(disk, 0, sector);
  if (!LooksLikeMbr(sector)) return {};
  for (std::size_t i = 0; i < 4; ++i) {
    if (ReadEntry(sector, i).type == kProtective) return ReadGpt(disk, sector_size);
  }
  return ReadMbr(disk, sector_size, sector);
}

}  // namespace vornalux
