// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "host/terminal/display/styled_line.h"
#include "host/terminal/picture/map_image.h"

namespace vornalux {

// The cluster map drawn with characters. Where there are fewer places than columns a place shows
// the most telling of its columns: a candidate if there is one, else the MFT, else how full they
// are.

// Adds the whole map in `cells` columns of the line. Two columns of the map share a cell where the
// terminal has colours and half blocks.
void AddMap(StyledLine& line, const MapColumns& columns, int cells, Look look);

// Adds the box that stands for a colour in the legend, as the map shows it.
void AddLegendBox(StyledLine& line, Colour colour, Look look);

}  // namespace vornalux
