// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "host/terminal/live/map_grid.h"
#include "host/terminal/result/results.h"

namespace vornalux {

// How large a map standard output takes: what the terminal shows at once, else some lines of text.
MapGrid OutputGrid();

// What standard output can show: colours on a terminal only, and where they are welcome. charset:
// of the output.
Look OutputLook(Charset charset);

// The map with its legend as lines.
std::string MapText(const VolumeDescription& volume, const AnalysisFigures& figures,
                    const MapColumns& map, const Legend& legend, MapGrid grid, Look look);

}  // namespace vornalux
