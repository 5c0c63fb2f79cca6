// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/fat/fat_table.h"

#include <algorithm>
#include <string>

#include "host/image/device/in_memory.h"
#include "host/image/device/little_endian.h"
#include "host/image/volume/refused.h"

namespace vornalux {
namespace {

constexpr std::uint32_t kFat32Mask = 0x0FFFFFFF;
constexpr std::size_t kPiece = std::size_t{1} << 20;

std::uint32_t BadMark(FatType type) {
  switch (type) {
    case FatType::Fat12:
      return 0xFF7;
    case FatType::Fat16:
      return 0xFFF7;
    case FatType::Fat32:
      break;
  }
  return 0x0FFFFFF7;
}

[[noreturn]] void CannotRead(std::uint32_t copy, std::uint64_t byte, std::error_code error) {
  throw VolumeRefused("File allocation table " + std::to_string(copy + 1) +
                      " cannot be read at byte " + std::to_string(byte) + ": " + error.message());
}

}  // namespace

FatTable::FatTable(BlockDevice& device, const FatGeometry& geometry)
    : geometry_(geometry),
      bad_(BadMark(geometry.type)),
      bytes_(InMemory(geometry.EntryBytes(geometry.EndCluster()))) {
  if (const std::error_code error = device.Read(geometry_.CopyOffset(0), bytes_)) {
    CannotRead(geometry_.first_copy, geometry_.CopyOffset(0), error);
  }
  for (std::uint32_t copy = 1; copy < geometry_.copies; ++copy) RequireEqual(device, copy);
}

void FatTable::RequireEqual(BlockDevice& device, std::uint32_t copy) const {
  std::vector<std::uint8_t> piece;
  for (std::size_t at = 0; at < bytes_.size(); at += piece.size()) {
    piece.resize(std::min(kPiece, bytes_.size() - at));
    if (const std::error_code error = device.Read(geometry_.CopyOffset(copy) + at, piece)) {
      CannotRead(copy, geometry_.CopyOffset(copy) + at, error);
    }
    const auto found =
        std::mismatch(piece.begin(), piece.end(), bytes_.begin() + static_cast<std::ptrdiff_t>(at));
    if (found.first == piece.end()) continue;
    const auto byte = static_cast<std::uint64_t>(found.second - bytes_.begin());
    throw VolumeRefused("File allocation tables 1 and " + std::to_string(copy + 1) +
                        " differ at cluster " +
                        std::to_string(byte * 8 / static_cast<std::uint64_t>(geometry_.type)) +
                        ". The volume was left untouched. Look with fsck.fat -n IMAGE, mend with "
                        "fsck.fat -a IMAGE.");
  }
}

std::uint32_t FatTable::Get(std::uint32_t cluster) const {
  switch (geometry_.type) {
    case FatType::Fat12: {
      const std::uint32_t pair = LoadLittle<std::uint16_t>(bytes_, cluster + cluster / 2);
      return (cluster & 1) != 0 ? pair >> 4 : pair & 0xFFF;
    }
    case FatType::Fat16:
      return LoadLittle<std::uint16_t>(bytes_, std::size_t{cluster} * 2);
    case FatType::Fat32:
      break;
  }
  return LoadLittle<std::uint32_t>(bytes_, std::size_t{cluster} * 4) & kFat32Mask;
}

void FatTable::Set(std::uint32_t cluster, std::uint32_t value) {
  switch (geometry_.type) {
    case FatType::Fat12: {
      const std::size_t at = cluster + cluster / 2;
      const std::uint32_t pair = LoadLittle<std::uint16_t>(bytes_, at);
      const std::uint32_t changed =
          (cluster & 1) != 0 ? (pair & 0xF) | value << 4 : (pair & 0xF000) | value;
      StoreLittle(bytes_, at, static_cast<std::uint16_t>(changed));
      return;
    }
    case FatType::Fat16:
      StoreLittle(bytes_, std::size_t{cluster} * 2, static_cast<std::uint16_t>(value));
      return;
    case FatType::Fat32: {
      const std::size_t at = std::size_t{cluster} * 4;
      const std::uint32_t kept = LoadLittle<std::uint32_t>(bytes_, at) & ~kFat32Mask;
      StoreLittle(bytes_, at, kept | value);
      return;
    }
  }
}

std::error_code FatTable::Write(BlockDevice& device, std::uint32_t cluster,
                                std::uint32_t count) const {
  const std::uint64_t bits = static_cast<std::uint64_t>(geometry_.type);
  const std::size_t first = InMemory(cluster * bits / 8);
  const std::size_t end = InMemory(geometry_.EntryBytes(std::uint64_t{cluster} + count));
  const std::span<const std::uint8_t> changed(&bytes_[first], end - first);
  for (std::uint32_t copy = 0; copy < geometry_.copies; ++copy) {
    if (const std::error_code error = device.Write(geometry_.CopyOffset(copy) + first, changed)) {
      return error;
    }
  }
  return {};
}

std::uint8_t FatTable::BitmapByte(std::int64_t lcn) const {
  const auto first = static_cast<std::uint32_t>(lcn) + 2;
  const std::uint32_t end = std::min(first + 8, geometry_.EndCluster());
  unsigned bits = 0;
  for (std::uint32_t cluster = first; cluster < end; ++cluster) {
    if (Get(cluster) != 0) bits |= 1u << (cluster - first);
  }
  return static_cast<std::uint8_t>(bits);
}

}  // namespace vornalux
