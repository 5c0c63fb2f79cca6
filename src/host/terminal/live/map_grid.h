// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <vector>

#include "host/terminal/display/styled_line.h"
#include "host/terminal/picture/map_image.h"

namespace vornalux {

// The cluster map drawn with characters, a line below the other. Where there are fewer places than
// columns of the map, a place shows the most telling of its columns: a candidate if there is one,
// else the MFT, else how full they are. Each of the former has its letter, with and without
// colours; how full is told by brightness, or by signs where there are no colours.
struct MapGrid {
  int columns = 0;
  int rows = 0;

  int Places() const { return columns * rows; }
};

// Adds one row of the grid, counted from 0, as far as there is room.
void AddMapRow(StyledLine& line, const MapColumns& map, MapGrid grid, int row, Look look);

// Adds what stands for a colour in the legend, as the map shows it; two columns in colours, else
// one.
void AddLegendBox(StyledLine& line, Colour colour, Look look);

// Lines with the legend's boxes and captions that are no longer than `columns`; on one if possible.
std::vector<StyledLine> LegendLines(const Legend& legend, int margin, int columns, Look look);

}  // namespace vornalux
