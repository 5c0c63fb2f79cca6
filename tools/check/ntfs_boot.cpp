// SPDX-License-Identifier: GPL-2.0-or-later
#include <algorithm>
#include <array>

#include "check/ntfs_record.h"

namespace vornalux::checking {
namespace {

// A count of clusters, or the logarithm of a count of bytes when negative.
std::uint64_t SizeFromBoot(std::uint8_t field, std::uint32_t cluster) {
  if (field < 0x80) return std::uint64_t{field} * cluster;
  const unsigned shift = 256U - field;
  return shift < 32 ? std::uint64_t{1} << shift : 0;
}

void CheckBackup(const ByteSource& source, std::uint64_t offset, const NtfsGeometry& geometry,
                 Bytes boot, Problems& problems) {
  std::vector<std::uint8_t> backup(boot.size());
  const std::uint64_t at = offset + geometry.volume_sectors * geometry.sector;
  if (!source.Read(at, backup)) {
    problems.Add("backup boot sector: past the end of the image");
  } else if (!std::equal(boot.begin(), boot.end(), backup.begin())) {
    problems.Add("backup boot sector differs from the boot sector");
  }
}

}  // namespace

std::optional<NtfsGeometry> ReadNtfsBoot(const ByteSource& source, std::uint64_t offset,
                                         Problems& problems) {
  std::array<std::uint8_t, 512> boot{};
  if (!source.Read(offset, boot)) {
    problems.Add("boot sector: cannot be read");
    return std::nullopt;
  }
  if (!std::equal(boot.begin() + 3, boot.begin() + 11, "NTFS    ")) {
    problems.Add("boot sector: not NTFS");
    return std::nullopt;
  }
  NtfsGeometry geometry;
  geometry.sector = Load16(boot, 0x0B);
  const std::uint8_t per_cluster = Load8(boot, 0x0D);
  const std::uint64_t sectors_per_cluster =
      per_cluster <= 0x80 ? per_cluster : std::uint64_t{1} << std::min(256U - per_cluster, 31U);
  const std::uint64_t cluster = geometry.sector * sectors_per_cluster;
  if (!IsPowerOfTwo(geometry.sector) || geometry.sector < 256 || geometry.sector > 4096 ||
      !IsPowerOfTwo(cluster) || cluster > (2U << 20)) {
    problems.Add("boot sector: impossible sector or cluster size: ", geometry.sector, ", ",
                 cluster);
    return std::nullopt;
  }
  geometry.cluster = static_cast<std::uint32_t>(cluster);
  geometry.volume_sectors = Load64(boot, 0x28);
  const std::uint64_t there = offset < source.Size() ? source.Size() - offset : 0;
  if (geometry.volume_sectors == 0 || geometry.volume_sectors > there / geometry.sector) {
    problems.Add("boot sector: ", geometry.volume_sectors, " sectors of ", geometry.sector,
                 " bytes, but the image has ", there, " bytes");
    return std::nullopt;
  }
  geometry.clusters = static_cast<std::int64_t>(geometry.volume_sectors / sectors_per_cluster);
  const std::uint64_t record = SizeFromBoot(Load8(boot, 0x40), geometry.cluster);
  if (!IsPowerOfTwo(record) || record < 512 || record > 65536) {
    problems.Add("boot sector: impossible file record size: ", record);
    return std::nullopt;
  }
  geometry.record = static_cast<std::uint32_t>(record);
  const std::uint64_t mft = Load64(boot, 0x30);
  const std::uint64_t mirror = Load64(boot, 0x38);
  const auto limit = static_cast<std::uint64_t>(geometry.clusters);
  if (mft >= limit || mirror >= limit) {
    problems.Add("boot sector: $MFT or $MFTMirr outside the volume: LCN ", mft, ", ", mirror);
    return std::nullopt;
  }
  geometry.mft_lcn = static_cast<std::int64_t>(mft);
  geometry.mirror_lcn = static_cast<std::int64_t>(mirror);
  if (Load16(boot, 510) != 0xAA55) problems.Add("boot sector: no 55 AA at its end");
  CheckBackup(source, offset, geometry, boot, problems);
  return geometry;
}

bool RawNtfsVolume::ReadClusters(std::int64_t lcn, std::uint64_t byte,
                                 std::span<std::uint8_t> out) const {
  const auto total = static_cast<std::uint64_t>(geometry.clusters) * geometry.cluster;
  if (lcn < 0 || lcn >= geometry.clusters) return false;
  const std::uint64_t start = static_cast<std::uint64_t>(lcn) * geometry.cluster;
  if (!Inside(byte, out.size(), total - start)) return false;
  return source->Read(offset + start + byte, out);
}

}  // namespace vornalux::checking
