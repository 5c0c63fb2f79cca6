// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <vector>

#include "host/terminal/picture/raster.h"
#include "ui/defrag_window.h"

namespace vornalux {

// The map of a moment: one colour a column, from the volume's begin to its end.
using MapColumns = std::vector<Colour>;

// How many columns, at most `places`, a map of so many clusters is to be drawn with so that all of
// it is on them: each stands for a whole number of the bitmap's bytes.
std::int32_t MapWidthFor(std::int64_t clusters, std::int64_t places);

// Places of a picture.
inline constexpr std::int64_t kPicturePlaces = 3600;

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

// The map as a square for each column, line below line, with the legend below. Squares of all but
// the shades of green have a pattern each, too, for eyes that see no colours.
Raster DrawMapWithLegend(const MapColumns& columns, const Legend& legend);

// A PNG file as bytes.
std::vector<std::uint8_t> EncodePng(const Raster& raster);

}  // namespace vornalux
