// SPDX-License-Identifier: GPL-2.0-or-later
#include "ui/cluster_map.h"

#include <algorithm>
#include <cmath>

#include "volume/bit_count.h"

namespace vornalux {
namespace {

constexpr std::int32_t kColumnsPerRefresh = 10;
constexpr std::size_t kEntriesPerRefresh = 100;

}  // namespace

Colour DensityColour(float share) {
  Colour colour = 0;
  for (unsigned shift = 0; shift < 24; shift += 8) {
    const auto free = static_cast<float>((map_colour::kFree >> shift) & 0xFF);
    const auto used = static_cast<float>((map_colour::kUsed >> shift) & 0xFF);
    colour |= static_cast<Colour>(std::nearbyint((1 - share) * free + share * used)) << shift;
  }
  return colour;
}

void ClusterMap::teken_plaatje(std::int64_t cluster, Colour colour) {
  if (ClustersPerColumn == 0) return;
  // Rounded, not truncated: the upper half of a column's clusters shows one column to the right.
  const double column =
      std::nearbyint(static_cast<double>(cluster) / static_cast<double>(ClustersPerColumn));
  picture_.DrawColumn(static_cast<std::int64_t>(column), colour);
}

// Paints the columns of every step-th cluster from first to last. Whatever a volume says about its
// zones, only the part that can show on the strip takes time.
void ClusterMap::PaintRange(std::int64_t first, std::int64_t last, std::int64_t step,
                            Colour colour) {
  if (first < 0) first %= step;
  last = std::min(last, ClustersPerColumn * (picture_.width() + 1));
  for (std::int64_t c = first; c <= last; c += step) {
    desktop_.DoEvents();
    teken_plaatje(c, colour);
    desktop_.DoEvents();
  }
}

void ClusterMap::DrawVolumeBitmap(const VolumeBitmapImage& image) {
  picture_.Clear();
  // A bitmap with fewer bytes than there are columns leaves the columns past it free.
  const std::int64_t bytes_per_column =
      std::max<std::int64_t>(1, static_cast<std::int64_t>(image.UpperBound()) / picture_.width());
  ClustersPerColumn = bytes_per_column * 8;
  redraw_glyph_.fore_colour = activity_colour::kMoving;
  desktop_.DoEvents();
  PaintDensity(image, bytes_per_column);
  picture_.Refresh();
  // An eighth of a column a step: each zone column is painted several times.
  const VolumeConstants& constants = engine_.geometry.constants;
  PaintRange(constants.MftZoneStart, constants.MftZoneEnd, bytes_per_column, map_colour::kMftZone);
  if (target_.Ntfs()) PaintMasterFileTable();
  picture_.Refresh();
  desktop_.DoEvents();
  redraw_glyph_.fore_colour = activity_colour::kResting;
  desktop_.DoEvents();
}

void ClusterMap::PaintDensity(const VolumeBitmapImage& image, std::int64_t bytes_per_column) {
  const std::span<const std::uint8_t> bytes = image.bytes;
  const auto width = static_cast<std::size_t>(bytes_per_column);
  for (std::int32_t x = 0; x < picture_.width(); ++x) {
    const std::size_t first = std::min(bytes.size(), static_cast<std::size_t>(x) * width);
    const std::size_t count = std::min(width, bytes.size() - first);
    const auto used = static_cast<float>(CountSetBits(bytes.subspan(first, count)));
    picture_.DrawColumn(x, DensityColour(used / static_cast<float>(bytes_per_column * 8)));
    if (x % kColumnsPerRefresh == 0) picture_.Refresh();
  }
}

void ClusterMap::PaintMasterFileTable() {
  const ExtentRecord table = engine_.extents.ReadExtents(target_.MasterFileTable(), false, false);
  const std::int64_t step = ClustersPerColumn;
  std::int64_t vcn = 0;
  for (const Extent& extent : table.extents) {
    // The cluster past the extent's end is painted too.
    PaintRange(extent.Lcn, extent.Lcn + extent.NextVcn - vcn, step, map_colour::kMft);
    vcn = extent.NextVcn;
  }
}

void ClusterMap::RedrawClusterMap(RunView& view) {
  redraw_glyph_.fore_colour = activity_colour::kMoving;
  desktop_.DoEvents();
  engine_.geometry.ShowVolumeBitmap(target_.Drive(), view);
  if (flags_.ClassListsValid) {
    const FileTable& table = engine_.table;
    PaintCandidates(table.PrefetchFiles.paths, map_colour::kSystemArea, true);
    PaintCandidates(table.DirsToMove.paths, map_colour::kSystemArea, true);
    PaintCandidates(table.OptimizeFiles.paths, map_colour::kOptimize, true);
  }
  PaintCandidates(engine_.analysis.lists.FragNames, map_colour::kDefrag, false);
  picture_.Refresh();
  picture_.Refresh();
  redraw_glyph_.fore_colour = activity_colour::kResting;
  desktop_.DoEvents();
}

void ClusterMap::PaintCandidates(const std::vector<std::string>& paths, Colour colour,
                                 bool refresh) {
  std::int64_t cluster = 0;
  // The last slot is not painted. Sizes are read anew each time: events may run in between.
  for (std::size_t i = 0; i + 1 < paths.size(); ++i) {
    if (refresh && i % kEntriesPerRefresh == 0) picture_.Refresh();
    desktop_.DoEvents();
    if (i + 1 >= paths.size()) return;
    if (!paths[i].empty()) cluster = engine_.extents.FirstAllocatedLcn(paths[i]);
    teken_plaatje(cluster, colour);
  }
}

}  // namespace vornalux
