// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <vector>

#include "engine/plan/cluster_space.h"

namespace vornalux::plan {

// Where few pieces are left to be arranged, all orders of moves are tried, the cheapest first.
// Gives the moves to the fewest pieces that were found and, among those, the least clusters moved;
// whatever it takes on the way. Nothing when the volume is not of few pieces, or nothing better
// than `pieces` (of all files) with `clusters` moved was found.
MoveList TryEveryWay(const Volume& volume, std::int64_t pieces, std::int64_t clusters);

}  // namespace vornalux::plan
