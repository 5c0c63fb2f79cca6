// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "volume/debug_trace.h"
#include "volume/free_runs.h"
#include "volume/known_bitmap.h"

namespace vornalux {

// Everything in clusters or LCNs.
struct VolumeConstants {
  std::int32_t TotalClusters = 0;
  std::int32_t FreeClusters = 0;
  std::int32_t SectorsPerCluster = 0;
  std::int32_t ReservedFront = 0;  // end of the front area kept for system files
  std::int32_t OptimizeArea = 0;   // bound of the area into which files are packed
  std::int32_t MftZoneStart = 0;
  std::int32_t MftZoneEnd = 0;

  // Both ends excluded.
  bool InMftZone(std::int64_t lcn) const { return MftZoneStart < lcn && lcn < MftZoneEnd; }
};

// To nearest, of 0 < total clusters.
std::int64_t PercentFree(std::int32_t free, std::int32_t total);

// The whole bitmap for the map. Byte k (counted from 1) holds clusters 8(k-1) .. 8(k-1)+7 from
// StartingLcn on, least significant bit first, 1 = in use.
struct VolumeBitmapImage {
  std::int64_t StartingLcn = 0;
  std::int64_t BitmapSize = 0;  // clusters
  std::vector<std::uint8_t> bytes;

  std::size_t UpperBound() const { return bytes.size(); }
};

enum class BitmapResult { Read, CannotOpen, CannotRead };

// The selected volume as a whole: its handle, its constants and its free space. Drives are two
// characters ("C:").
class VolumeGeometry {
 public:
  VolumeGeometry(Platform& platform, const DebugTrace& trace);
  ~VolumeGeometry();
  VolumeGeometry(const VolumeGeometry&) = delete;
  VolumeGeometry& operator=(const VolumeGeometry&) = delete;

  VolumeConstants constants;
  Handle VolumeHandle = kInvalidHandle;

  // kInvalidHandle on failure; says nothing to the user.
  Handle OpenVolume(const std::string& drive);
  void CloseVolume(Handle& handle);

  // Closes the volume that was selected and selects this one, its MFT zone included.
  void SelectVolume(const std::string& drive);

  // Recomputes the constants and returns the total, or 0 with the constants unchanged when the
  // drive does not answer or its figures make no sense.
  std::int32_t ReadVolumeConstants(const std::string& drive);

  // Leaves the zone as it is on a volume that is not NTFS.
  void ReadMftZone();

  // What is known of its clusters. Movers look at it by the following.
  KnownBitmap bitmap;

  // The lowest gap that begins in [from, below) and holds `least` clusters, as the volume is now.
  // Length 0: there is none.
  FreeRun FindGap(std::int64_t from, std::int64_t below, std::int64_t least);
  // The lowest of equals, of which `most` clusters are about to be used at most.
  FreeRun FindLargestGap(std::int64_t most);

  // Brings what is known of the gaps up to date.
  const GapIndex& LookAtGaps();
  // With all that can be read of them.
  const GapIndex& LookAtAllGaps();
  // What was known of the gaps counts for nothing any more.
  void BeginRun() {
    bitmap.Forget();
    gap_queries = {};
  }

  // How often the gaps were looked at since this was set to {}.
  struct GapQueries {
    std::int64_t answered = 0;
    std::int64_t unanswered = 0;
  } gap_queries;

  // The gaps in short, without a word for the user in between. Nothing when the bitmap could not be
  // read to its end.
  std::optional<FreeRegions> ReadFreeRegions();

  // Reads the whole bitmap anew, into the image's memory where that will do; refreshes the
  // constants on the way.
  BitmapResult ReadVolumeBitmap(const std::string& drive, VolumeBitmapImage& image);

 private:
  const GapIndex& CountedLook();

  Platform& platform_;
  const DebugTrace& trace_;
};

}  // namespace vornalux
