// SPDX-License-Identifier: GPL-2.0-or-later
#include "ui/cluster_map.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <span>

#include "volume/bit_count.h"

namespace vornalux {
namespace {

constexpr std::int32_t kColumnsPerRefresh = 10;
constexpr std::size_t kEntriesPerRefresh = 100;

// A float and no more. Registers of old processors keep more digits, and a colour half-way between
// two would come out as the other one there.
float AsFloat(float value) {
  volatile float stored = value;
  return stored;
}

}  // namespace

Colour DensityColour(float share) {
  share = AsFloat(share);
  const float rest = AsFloat(1 - share);
  Colour colour = 0;
  for (unsigned shift = 0; shift < 24; shift += 8) {
    const auto free = static_cast<float>((map_colour::kFree >> shift) & 0xFF);
    const auto used = static_cast<float>((map_colour::kUsed >> shift) & 0xFF);
    const float mixed = AsFloat(AsFloat(rest * free) + AsFloat(share * used));
    colour |= static_cast<Colour>(std::nearbyint(mixed)) << shift;
  }
  return colour;
}

// Rounded, not truncated: the upper half of a column's clusters shows one column to the right.
std::int64_t ClusterMap::ColumnOf(std::int64_t cluster) const {
  return static_cast<std::int64_t>(
      std::nearbyint(static_cast<double>(cluster) / static_cast<double>(ClustersPerColumn)));
}

void ClusterMap::teken_plaatje(std::int64_t cluster, Colour colour) {
  if (ClustersPerColumn != 0) picture_.DrawColumn(ColumnOf(cluster), colour);
}

// Whatever a volume says about its zones and extents, only the part that can show takes time.
std::int64_t ClusterMap::LastVisible(std::int64_t cluster) const {
  return std::min(cluster, ClustersPerColumn * (picture_.width() + 1));
}

void ClusterMap::PaintExtent(std::int64_t lcn, std::int64_t length, Colour colour) {
  if (ClustersPerColumn == 0) return;
  const std::int64_t last = LastVisible(lcn + length);
  for (std::int64_t c = lcn; c <= last; c += ClustersPerColumn) teken_plaatje(c, colour);
}

// Paints the columns of every step-th cluster from first to last. Events have their turn before
// each column: steps that come to the same one again change nothing.
void ClusterMap::PaintRange(std::int64_t first, std::int64_t last, std::int64_t step,
                            Colour colour) {
  if (first < 0) first %= step;
  last = LastVisible(last);
  // A drawing inside this one that was of another width has painted the rest, and with other steps.
  const std::int64_t scale = ClustersPerColumn;
  const std::uint64_t volume = forgotten_;
  std::int64_t painted = -1;
  for (std::int64_t c = first; c <= last; c += step) {
    const std::int64_t column = ColumnOf(c);
    if (column == painted) continue;
    painted = column;
    desktop_.DoEvents();
    if (ClustersPerColumn != scale || forgotten_ != volume) return;
    picture_.DrawColumn(column, colour);
  }
  if (painted >= 0) desktop_.DoEvents();
}

void ClusterMap::Forget() {
  ++forgotten_;
  ClustersPerColumn = 0;
  picture_.Clear();
  picture_.Refresh();
}

void ClusterMap::DrawVolume(const MapVolume& volume) {
  picture_.Clear();
  redraw_glyph_.fore_colour = activity_colour::kMoving;
  const std::uint64_t before = forgotten_;
  desktop_.DoEvents();
  if (forgotten_ == before) PaintLayers(volume);
  picture_.Refresh();
  desktop_.DoEvents();
  redraw_glyph_.fore_colour = activity_colour::kResting;
  desktop_.DoEvents();
}

void ClusterMap::PaintLayers(const MapVolume& volume) {
  PaintDensity(volume.bitmap);
  picture_.Refresh();
  const std::uint64_t before = forgotten_;
  // An eighth of a column a step: each zone column is painted several times.
  PaintRange(volume.zone_start, volume.zone_end, ClustersPerColumn / 8, map_colour::kMftZone);
  if (forgotten_ != before || volume.master_file_table.empty()) return;
  PaintMasterFileTable(volume.master_file_table);
}

// Sets the scale too, by the width that the picture has now: an event may just have changed it.
void ClusterMap::PaintDensity(const VolumeBitmapImage& image) {
  const std::span<const std::uint8_t> bytes = image.bytes;
  // A bitmap with fewer bytes than there are columns leaves the columns past it free.
  const std::size_t width =
      std::max<std::size_t>(1, bytes.size() / static_cast<std::size_t>(picture_.width()));
  ClustersPerColumn = static_cast<std::int64_t>(width) * 8;
  for (std::int32_t x = 0; x < picture_.width(); ++x) {
    const std::size_t first = std::min(bytes.size(), static_cast<std::size_t>(x) * width);
    const std::size_t count = std::min(width, bytes.size() - first);
    const auto used = static_cast<float>(CountSetBits(bytes.subspan(first, count)));
    picture_.DrawColumn(x, DensityColour(used / static_cast<float>(ClustersPerColumn)));
    if (x % kColumnsPerRefresh == 0) picture_.Refresh();
  }
}

void ClusterMap::PaintMasterFileTable(const std::string& path) {
  const ExtentRecord table = extents_.ReadExtents(path, false, false);
  const std::uint64_t volume = forgotten_;
  std::int64_t vcn = 0;
  for (const Extent& extent : table.extents) {
    if (forgotten_ != volume) return;
    // The cluster past the extent's end is painted too.
    PaintRange(extent.Lcn, extent.Lcn + extent.NextVcn - vcn, ClustersPerColumn, map_colour::kMft);
    vcn = extent.NextVcn;
  }
}

void ClusterMap::DrawCandidates(const std::vector<std::string>& paths, Colour colour,
                                bool refresh) {
  std::optional<std::int64_t> cluster;
  const std::uint64_t volume = forgotten_;
  // The last slot is not painted. Sizes are read anew each time: events may run in between.
  for (std::size_t i = 0; i + 1 < paths.size(); ++i) {
    if (refresh && i % kEntriesPerRefresh == 0) picture_.Refresh();
    desktop_.DoEvents();
    if (forgotten_ != volume || i + 1 >= paths.size()) return;
    if (!paths[i].empty()) cluster = extents_.FirstAllocatedLcn(paths[i]);
    if (cluster) teken_plaatje(*cluster, colour);
  }
}

}  // namespace vornalux
