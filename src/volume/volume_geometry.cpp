// SPDX-License-Identifier: GPL-2.0-or-later
#include "volume/volume_geometry.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace vornalux {
namespace {

// Sectors kept in front for system files; twice that where Windows lives.
constexpr double kReservedSectors = 10'000'000;
constexpr double kReservedSectorsSystem = 20'000'000;
constexpr std::int64_t kLowSpacePercent = 15;

// To nearest, ties to even.
std::int32_t Round(double value) { return static_cast<std::int32_t>(std::nearbyint(value)); }

bool MakesSense(const FreeSpace& space) {
  constexpr auto kMost = std::numeric_limits<std::int32_t>::max();
  return space.total_clusters > 0 && space.total_clusters <= kMost && space.free_clusters >= 0 &&
         space.free_clusters <= space.total_clusters && space.sectors_per_cluster > 0 &&
         space.sectors_per_cluster <= kMost;
}

}  // namespace

std::int64_t PercentFree(std::int32_t free, std::int32_t total) {
  return static_cast<std::int64_t>(std::nearbyint(free / (static_cast<double>(total) / 100)));
}

VolumeGeometry::VolumeGeometry(Platform& platform, const DebugTrace& trace)
    : bitmap(platform, VolumeHandle), platform_(platform), trace_(trace) {}

VolumeGeometry::~VolumeGeometry() { CloseVolume(VolumeHandle); }

Handle VolumeGeometry::OpenVolume(const std::string& drive) {
  return platform_.volumes.OpenVolume("\\\\.\\" + drive);
}

void VolumeGeometry::CloseVolume(Handle& handle) {
  if (handle != kInvalidHandle) platform_.volumes.CloseVolume(handle);
  // Its number may come back as that of another volume.
  if (handle == VolumeHandle) bitmap.Forget();
  handle = kInvalidHandle;
}

void VolumeGeometry::SelectVolume(const std::string& drive) {
  CloseVolume(VolumeHandle);
  VolumeHandle = OpenVolume(drive);
  ReadMftZone();
}

std::int32_t VolumeGeometry::ReadVolumeConstants(const std::string& drive) {
  FreeSpace space;
  if (platform_.volumes.FreeSpaceFigures(drive + "\\", space) != error::kSuccess ||
      !MakesSense(space)) {
    return 0;
  }
  const auto free = static_cast<double>(space.free_clusters);
  const auto total = static_cast<double>(space.total_clusters);
  const bool system = platform_.machine.WindowsFolder().substr(0, 2) == drive;
  const std::int32_t uncapped = Round((system ? kReservedSectorsSystem : kReservedSectors) /
                                      static_cast<double>(space.sectors_per_cluster));

  constants.ReservedFront = uncapped > space.free_clusters ? Round(free / 3 * 2) : uncapped;
  constants.TotalClusters = static_cast<std::int32_t>(space.total_clusters);
  constants.FreeClusters = static_cast<std::int32_t>(space.free_clusters);
  constants.SectorsPerCluster = static_cast<std::int32_t>(space.sectors_per_cluster);
  constants.OptimizeArea = Round((total - free) / 4 * 2);

  const std::int64_t percent_free = PercentFree(constants.FreeClusters, constants.TotalClusters);
  if (percent_free < kLowSpacePercent) {
    trace_.Line("Warning, free space low!: " + std::to_string(percent_free));
  }
  if (constants.ReservedFront < uncapped) {
    trace_.Line("Warning, sys space low!: " + std::to_string(constants.ReservedFront));
  }
  return constants.TotalClusters;
}

void VolumeGeometry::ReadMftZone() {
  NtfsVolumeData data;
  if (VolumeHandle == kInvalidHandle ||
      platform_.volumes.NtfsData(VolumeHandle, data) != error::kSuccess) {
    return;
  }
  constants.MftZoneStart = static_cast<std::int32_t>(data.mft_zone_start);
  constants.MftZoneEnd = static_cast<std::int32_t>(data.mft_zone_end);
}

const GapIndex& VolumeGeometry::LookAtGaps() {
  bitmap.Look();
  return CountedLook();
}

const GapIndex& VolumeGeometry::LookAtAllGaps() {
  bitmap.LookAtAll(true);
  return CountedLook();
}

const GapIndex& VolumeGeometry::CountedLook() {
  ++(bitmap.TotalClusters() > 0 ? gap_queries.answered : gap_queries.unanswered);
  return bitmap.Gaps();
}

FreeRun VolumeGeometry::FindGap(std::int64_t from, std::int64_t below, std::int64_t least) {
  while (true) {
    const FreeRun gap = bitmap.Gaps().LowestGap(from, least);
    if (gap.length == 0 || gap.start >= below) return {};
    if (bitmap.StillSo(gap.start, least)) return gap;
  }
}

FreeRun VolumeGeometry::FindLargestGap(std::int64_t most) {
  while (true) {
    const FreeRun gap = bitmap.Gaps().LargestGap();
    if (bitmap.StillSo(gap.start, std::min<std::int64_t>(gap.length, most))) return gap;
  }
}

std::optional<FreeRegions> VolumeGeometry::ReadFreeRegions() {
  bitmap.LookAtAll(false);
  return bitmap.Whole() ? std::optional(RegionsOf(bitmap.Gaps().List())) : std::nullopt;
}

BitmapResult VolumeGeometry::ReadVolumeBitmap(const std::string& drive, VolumeBitmapImage& image) {
  Handle volume = OpenVolume(drive);
  if (volume == kInvalidHandle) return BitmapResult::CannotOpen;
  const std::int32_t total = ReadVolumeConstants(drive);
  // The spare byte past a whole number of bytes is part of the answer's buffer, not of the volume.
  const std::size_t bytes = static_cast<std::size_t>(total) / 8 + 1;
  BitmapChunk chunk{.starting_lcn = 0, .bitmap_size = 0, .bits = std::move(image.bytes)};
  chunk.bits.resize(bytes);
  const bool read =
      total != 0 && platform_.volumes.VolumeBitmap(volume, 0, bytes, chunk) == error::kSuccess;
  CloseVolume(volume);
  chunk.bits.resize(bytes);
  image = {chunk.starting_lcn, chunk.bitmap_size, std::move(chunk.bits)};
  return read ? BitmapResult::Read : BitmapResult::CannotRead;
}

}  // namespace vornalux
