// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/engine.h"
#include "forms/controls.h"
#include "forms/picture_box.h"
#include "platform/desktop.h"

namespace vornalux {

// Paints the volume as one strip on a picture box: density, NTFS zone, $MFT, candidates. Each pixel
// column stands for an equal run of clusters. Yields to pending events while it paints, so a redraw
// may start inside a redraw.
class ClusterMap {
 public:
  // The engine, whose lists and zone are shown, must outlive this.
  ClusterMap(Desktop& desktop, Engine& engine, const RunFlags& flags, const RunTarget& target,
             PictureBox& picture, Label& redraw_glyph)
      : desktop_(desktop),
        engine_(engine),
        flags_(flags),
        target_(target),
        picture_(picture),
        redraw_glyph_(redraw_glyph) {}

  std::int64_t ClustersPerColumn = 0;  // 0 until the first full redraw

  // Paints the column that the cluster is nearest to. Does not refresh.
  void teken_plaatje(std::int64_t cluster, Colour colour);

  void DrawVolumeBitmap(const VolumeBitmapImage& image);

  // A fresh bitmap, then one column for each candidate of the class lists and fragmented files.
  void RedrawClusterMap(RunView& view);

 private:
  void PaintDensity(const VolumeBitmapImage& image, std::int64_t bytes_per_column);
  void PaintMasterFileTable();
  void PaintCandidates(const std::vector<std::string>& paths, Colour colour, bool refresh);
  void PaintRange(std::int64_t first, std::int64_t last, std::int64_t step, Colour colour);

  Desktop& desktop_;
  Engine& engine_;
  const RunFlags& flags_;
  const RunTarget& target_;
  PictureBox& picture_;
  Label& redraw_glyph_;
};

// The density colour of a column of which `share` (0 to 1) is in use.
Colour DensityColour(float share);

}  // namespace vornalux
