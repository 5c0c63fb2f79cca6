// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/run_view.h"
#include "forms/controls.h"
#include "forms/picture_box.h"
#include "platform/desktop.h"
#include "volume/extent_reader.h"
#include "volume/volume_geometry.h"

namespace vornalux {

// A volume as the map draws it.
struct MapVolume {
  const VolumeBitmapImage& bitmap;
  std::int64_t zone_start;  // of NTFS, both ends painted
  std::int64_t zone_end;
  std::string master_file_table;  // its path, empty where there is none
};

// Paints a volume as one strip on a picture box: density, NTFS zone, $MFT, candidates. Each pixel
// column stands for an equal run of clusters. Yields to pending events while it paints, so a redraw
// may start inside a redraw.
class ClusterMap {
 public:
  // All outlive this.
  ClusterMap(Desktop& desktop, ExtentReader& extents, PictureBox& picture, Label& redraw_glyph)
      : desktop_(desktop), extents_(extents), picture_(picture), redraw_glyph_(redraw_glyph) {}

  std::int64_t ClustersPerColumn = 0;  // 0 until the volume is drawn

  // Another volume is to be shown: blank until it is drawn. A drawing that is going on ends.
  void Forget();

  // Paints the column that the cluster is nearest to. Does not refresh.
  void teken_plaatje(std::int64_t cluster, Colour colour);

  // The columns from an extent's first cluster to the one past its end. Neither refreshes nor
  // yields.
  void PaintExtent(std::int64_t lcn, std::int64_t length, Colour colour);

  void DrawVolume(const MapVolume& volume);

  // The picture is to have another width than it was drawn with.
  bool NeedsRedraw() const { return picture_.ResizePending(); }

  // One column for each path, by where it begins; an empty one repeats the column before it. With
  // refresh they show as they come.
  void DrawCandidates(const std::vector<std::string>& paths, Colour colour, bool refresh);

  void Refresh() { picture_.Refresh(); }

 private:
  void PaintDensity(const VolumeBitmapImage& image);
  std::int64_t ColumnOf(std::int64_t cluster) const;
  std::int64_t LastVisible(std::int64_t cluster) const;
  void PaintLayers(const MapVolume& volume);
  void PaintMasterFileTable(const std::string& path);
  void PaintRange(std::int64_t first, std::int64_t last, std::int64_t step, Colour colour);

  Desktop& desktop_;
  ExtentReader& extents_;
  PictureBox& picture_;
  Label& redraw_glyph_;
  std::uint64_t forgotten_ = 0;  // volumes so far
};

// The density colour of a column of which `share` (0 to 1) is in use.
Colour DensityColour(float share);

}  // namespace vornalux
