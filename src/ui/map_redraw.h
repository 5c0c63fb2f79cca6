// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "engine/engine.h"
#include "forms/controls.h"
#include "ui/cluster_map.h"

namespace vornalux {

// Draws the map from what the volume and the engine's lists say now.
class MapRedraw {
 public:
  // All outlive this.
  MapRedraw(Desktop& desktop, Engine& engine, const RunFlags& flags, const RunTarget& target,
            ClusterMap& map, Label& redraw_glyph)
      : desktop_(desktop),
        engine_(engine),
        flags_(flags),
        target_(target),
        map_(map),
        redraw_glyph_(redraw_glyph) {}

  // False, and the user told, when the volume could not be read.
  bool Redraw(MapLayers layers);

 private:
  bool DrawVolume();
  bool DrawWithCandidates();

  Desktop& desktop_;
  Engine& engine_;
  const RunFlags& flags_;
  const RunTarget& target_;
  ClusterMap& map_;
  Label& redraw_glyph_;
  VolumeBitmapImage spare_;  // its memory serves the next drawing
};

}  // namespace vornalux
