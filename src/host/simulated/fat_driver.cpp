// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/simulated/fat_driver.h"

#include <algorithm>
#include <limits>

namespace vornalux {
namespace {

// The root folder of FAT12 and FAT16 lies in front of the clusters, eight before the first: a
// number without a sign makes it one far behind them.
constexpr Extent kRootInFront = {.NextVcn = 8, .Lcn = 0xFFFFFFF8};

}  // namespace

std::string FatDriver::FileSystem(const std::string& path) {
  VolumeName names;
  machine_.MountedPlatform::VolumeNames(path.substr(0, 2) + "\\", names);
  return names.file_system;
}

bool FatDriver::RootInFront(const std::string& path) {
  return path.size() == 3 && FileSystem(path) == "FAT";
}

bool FatDriver::Free(Handle volume, std::int64_t lcn, std::int64_t count) {
  BitmapChunk chunk;
  const std::int64_t first = lcn / 8 * 8;
  machine_.MountedPlatform::VolumeBitmap(
      volume, first, static_cast<std::size_t>((lcn - first + count + 7) / 8), chunk);
  for (std::int64_t bit = lcn - first; bit < lcn - first + count; ++bit) {
    const auto byte = static_cast<std::size_t>(bit / 8);
    if (byte >= chunk.bits.size() || (chunk.bits[byte] >> (bit % 8) & 1) != 0) return false;
  }
  return true;
}

std::optional<ErrorCode> FatDriver::Move(const std::string& path, Handle volume, Handle file,
                                         std::int64_t vcn, std::int64_t lcn, std::uint32_t count) {
  if (!FileSystem(path).starts_with("FAT")) return std::nullopt;
  FreeSpace space;
  machine_.MountedPlatform::FreeSpaceFigures(path.substr(0, 2) + "\\", space);
  ExtentChunk chunk;
  machine_.MountedPlatform::RetrievalPointers(file, 0, std::numeric_limits<std::int32_t>::max(),
                                              chunk);
  const std::int64_t size = chunk.extents.empty() ? 0 : chunk.extents.back().NextVcn;
  const bool folder = machine_.MountedPlatform::FindFirst(path + "\\*") != nullptr;
  if (RootInFront(path) || (folder && vcn == 0) || count == 0 || lcn >= space.total_clusters) {
    return error::kInvalidParameter;
  }
  if (vcn >= size) return error::kSuccess;
  const std::int64_t moved = std::min<std::int64_t>(count, size - vcn);
  if (!Free(volume, lcn, moved)) return error::kInvalidParameter;
  return std::nullopt;
}

std::optional<ErrorCode> FatDriver::Pointers(const std::string& path, std::int64_t vcn,
                                             ExtentChunk& out) {
  if (!RootInFront(path)) return std::nullopt;
  out = {.starting_vcn = 0, .extents = {}};
  if (vcn >= kRootInFront.NextVcn) return error::kHandleEof;
  out.extents = {kRootInFront};
  return error::kSuccess;
}

}  // namespace vornalux
