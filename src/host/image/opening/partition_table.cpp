// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/opening/partition_table.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <string_view>

#include "host/image/device/little_endian.h"
#include "host/image/drive/blkid_probe.h"
#include "host/image/volume/refused.h"

namespace vornalux {
namespace {

constexpr std::uint8_t kProtective = 0xEE;
constexpr int kMaxLogical = 128;
constexpr std::uint32_t kLargeSector = 4096;
constexpr std::uint64_t kAnyTable = std::uint64_t{1} << 20;  // bytes that hold one in front
constexpr std::uint64_t kNoEnd = std::uint64_t{1} << 62;     // larger than any disk

using Sector = std::array<std::uint8_t, 512>;

Sector ReadSector(BlockDevice& disk, std::uint64_t offset) {
  Sector sector;
  if (const std::error_code error = disk.Read(offset, sector)) {
    throw VolumeRefused("The partition table cannot be read at byte " + std::to_string(offset) +
                        ": " + error.message());
  }
  return sector;
}

bool HasSignature(const Sector& sector) { return sector[510] == 0x55 && sector[511] == 0xAA; }

std::size_t EntryAt(std::size_t index) { return 446 + index * 16; }

// The MBR says that the disk has a GPT.
bool PromisesGpt(const Sector& mbr) {
  for (std::size_t i = 0; i < 4; ++i) {
    if (HasSignature(mbr) && mbr[EntryAt(i) + 4] == kProtective) return true;
  }
  return false;
}

// libblkid takes a chain of logical partitions as far as it can be read. What lies behind a broken
// link is then not known, and could be on the sectors of the volume.
void RequireWholeChain(BlockDevice& disk, std::uint32_t sector_size, std::uint64_t extended_start) {
  std::uint64_t table = extended_start;
  for (int i = 0; i < kMaxLogical; ++i) {
    const std::uint64_t offset = table * sector_size;
    if (offset > disk.Size() || disk.Size() - offset < sizeof(Sector)) {
      throw VolumeRefused("The partition table names a logical partition past the end of the disk");
    }
    const Sector sector = ReadSector(disk, offset);
    if (!HasSignature(sector)) {
      throw VolumeRefused("The table of logical partitions at byte " + std::to_string(offset) +
                          " is damaged");
    }
    const std::size_t next = EntryAt(1);
    if (sector[next + 4] == 0 || LoadLittle<std::uint32_t>(sector, next + 12) == 0) return;
    table = extended_start + LoadLittle<std::uint32_t>(sector, next + 8);
  }
  throw VolumeRefused("The chain of logical partitions does not end");
}

std::vector<Partition> Partitions(FileDevice& disk, blkid_partlist list, bool gpt) {
  std::vector<Partition> out;
  for (int i = 0; i < blkid_partlist_numof_partitions(list); ++i) {
    blkid_partition partition = blkid_partlist_get_partition(list, i);
    // A table inside a partition is the business of the system that made it.
    if (blkid_parttable_get_parent(blkid_partition_get_table(partition)) != nullptr) continue;
    // An entry of the MBR that is marked as empty; of a GPT the type is a UUID, and this is 0.
    if (!gpt && blkid_partition_get_type(partition) == 0) continue;
    const auto start = static_cast<std::uint64_t>(blkid_partition_get_start(partition));
    const auto sectors = static_cast<std::uint64_t>(blkid_partition_get_size(partition));
    if (blkid_partition_is_extended(partition)) {
      RequireWholeChain(disk, disk.LogicalSectorSize(),
                        start * kBlkidSector / disk.LogicalSectorSize());
      continue;
    }
    // Boot code where the entries would be, or an ISO image that can be started from a disk.
    if (start == 0) return {};
    out.push_back({blkid_partition_get_partno(partition), start * kBlkidSector,
                   std::min(sectors, kNoEnd / kBlkidSector - start) * kBlkidSector});
  }
  return out;
}

blkid_partlist FindTable(const BlkidProbe& probe, std::uint32_t sector_size) {
  if (!probe || blkid_probe_set_sectorsize(probe.get(), sector_size) != 0) {
    throw VolumeRefused("The partition table cannot be looked at");
  }
  blkid_partlist list = blkid_probe_get_partitions(probe.get());
  blkid_parttable table = list != nullptr ? blkid_partlist_get_table(list) : nullptr;
  const char* const type = table != nullptr ? blkid_parttable_get_type(table) : nullptr;
  const std::string_view kind = type != nullptr ? type : "";
  return kind == "dos" || kind == "gpt" ? list : nullptr;
}

// The beginning of the disk as that of an endless one. libblkid takes no table of a disk that was
// larger; where an image is cut short, the table still tells what was there.
std::unique_ptr<FileDevice> Endless(BlockDevice& disk) {
  std::unique_ptr<FileDevice> endless;
  std::vector<std::uint8_t> front(std::min(disk.Size(), kAnyTable));
  const int descriptor = ::memfd_create("partitions", MFD_CLOEXEC);
  if (descriptor < 0 || ::ftruncate(descriptor, static_cast<off_t>(kNoEnd)) != 0 ||
      FileDevice::Adopt(descriptor, false, endless) || disk.Read(0, front) ||
      endless->Write(0, front)) {
    throw VolumeRefused("The partition table cannot be looked at");
  }
  return endless;
}

}  // namespace

std::vector<Partition> ReadPartitions(FileDevice& disk) {
  if (disk.Size() < sizeof(Sector)) return {};
  const bool gpt = PromisesGpt(ReadSector(disk, 0));
  const std::uint32_t own = disk.LogicalSectorSize();
  const auto look = [&](FileDevice& at, std::uint32_t sector_size) {
    const BlkidProbe probe = ProbeOver(at.Descriptor(), 0, at.Size());
    blkid_partlist list = FindTable(probe, sector_size);
    return list != nullptr ? std::optional(Partitions(disk, list, gpt)) : std::nullopt;
  };
  if (auto found = look(disk, own)) return *std::move(found);
  if (!gpt) return {};
  if (auto found = look(disk, kLargeSector)) return *std::move(found);
  const std::unique_ptr<FileDevice> endless = Endless(disk);
  for (const std::uint32_t sector_size : {own, kLargeSector}) {
    if (auto found = look(*endless, sector_size)) return *std::move(found);
  }
  throw VolumeRefused("The GPT partition table is damaged, and so is its copy at the end");
}

}  // namespace vornalux
