// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/ntfs/ntfs_free.h"

#include <algorithm>
#include <array>
#include <bit>
#include <vector>

#include "host/image/device/little_endian.h"
#include "host/image/ntfs/ntfs_raw_table.h"

namespace vornalux {
namespace {

constexpr std::uint64_t kBitmapRecord = 6;
constexpr std::uint64_t kLargest = std::uint64_t{256} << 20;  // bytes of a bitmap worth reading
constexpr std::size_t kPiece = std::size_t{1} << 20;

// A size in units, or, when negative, as a power of two of bytes.
std::uint64_t SizeOf(std::uint8_t given, std::uint64_t unit) {
  const int power = 256 - given;
  if (given < 0x80) return given * unit;
  return power < 32 ? std::uint64_t{1} << power : 0;
}

std::optional<NtfsGeometry> ReadGeometry(BlockDevice& device) {
  std::array<std::uint8_t, 512> boot;
  if (device.Size() < boot.size() || device.Read(0, boot)) return std::nullopt;
  const std::uint64_t sector = LoadLittle<std::uint16_t>(boot, 0x0B);
  const std::uint64_t sectors = LoadLittle<std::uint64_t>(boot, 0x28);
  const std::uint64_t per_cluster = SizeOf(boot[0x0D], 1);
  NtfsGeometry geometry;
  geometry.cluster_size = sector * per_cluster;
  const std::uint64_t record = SizeOf(boot[0x40], geometry.cluster_size);
  const bool sane = std::has_single_bit(sector) && std::has_single_bit(per_cluster) &&
                    geometry.cluster_size <= kPiece && sectors <= device.Size() / sector &&
                    record >= 1024 && record <= kPiece && std::has_single_bit(record);
  if (!sane) return std::nullopt;
  geometry.clusters = static_cast<std::int64_t>(sectors / per_cluster);
  geometry.record_size = static_cast<std::uint32_t>(record);
  geometry.mft_lcn = static_cast<std::int64_t>(LoadLittle<std::uint64_t>(boot, 0x30));
  if (geometry.mft_lcn < 0 || geometry.mft_lcn >= geometry.clusters) return std::nullopt;
  return geometry;
}

}  // namespace

std::optional<std::uint64_t> FreeBytesOfNtfs(BlockDevice& device) {
  const std::optional<NtfsGeometry> geometry = ReadGeometry(device);
  if (!geometry) return std::nullopt;
  // The first records of $MFT follow each other as a rule.
  std::vector<std::uint8_t> bytes(geometry->record_size);
  const std::uint64_t at = static_cast<std::uint64_t>(geometry->mft_lcn) * geometry->cluster_size +
                           kBitmapRecord * geometry->record_size;
  RawRecord record;
  if (device.Read(at, bytes) || !IsFileRecord(bytes) || !InUse(bytes) ||
      !UndoFixups(bytes).empty() || !ParseRecord(*geometry, kBitmapRecord, bytes, record).empty()) {
    return std::nullopt;
  }
  const auto data = std::find_if(
      record.attributes.begin(), record.attributes.end(),
      [](const RawAttribute& each) { return each.type == raw::kData && each.name.empty(); });
  const std::uint64_t size = (static_cast<std::uint64_t>(geometry->clusters) + 7) / 8;
  if (data == record.attributes.end() || data->lowest_vcn != 0 || data->size < size ||
      size > kLargest) {
    return std::nullopt;
  }
  const RawValue bitmap = RawValue::Of(record, *data);
  std::uint64_t used = 0;
  std::vector<std::uint8_t> piece;
  for (std::uint64_t offset = 0; offset < size; offset += piece.size()) {
    piece.resize(static_cast<std::size_t>(std::min<std::uint64_t>(size - offset, kPiece)));
    if (bitmap.Read(device, *geometry, offset, piece)) return std::nullopt;
    // What stands behind the last cluster counts for nothing.
    const std::uint64_t rest = static_cast<std::uint64_t>(geometry->clusters) - offset * 8;
    if (rest < piece.size() * 8) piece.back() &= static_cast<std::uint8_t>((1U << rest % 8) - 1);
    for (const std::uint8_t byte : piece) used += static_cast<std::uint64_t>(std::popcount(byte));
  }
  return (static_cast<std::uint64_t>(geometry->clusters) - used) * geometry->cluster_size;
}

}  // namespace vornalux
