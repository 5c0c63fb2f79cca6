// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <vector>

#include "host/terminal/picture/raster.h"
#include "ui/defrag_window.h"

namespace vornalux {

// The strip of a moment: one colour a column.
using MapColumns = std::vector<Colour>;

// One colour box of the legend with its caption.
struct LegendEntry {
  Colour box = 0;
  bool has_inner = false;
  Colour inner = 0;
  std::string caption;
};

// The legend as the window has it, left to right. An entry without a box has only a caption.
struct Legend {
  std::vector<LegendEntry> density;     // free, used, MFT
  std::string candidates_caption;       // "candidate for:"
  std::vector<LegendEntry> candidates;  // defrag, optimize, sys area
};
Legend CollectLegend(const DefragWindow& window);

// The strip, two pixels a column, with the legend below.
Raster DrawMapWithLegend(const MapColumns& columns, const Legend& legend);

// A PNG file as bytes.
std::vector<std::uint8_t> EncodePng(const Raster& raster);

}  // namespace vornalux
