// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <vector>

#include "engine/plan/cluster_space.h"

namespace vornalux::plan {

// Clusters [lcn, end) where a file can lie in one piece and some of its clusters need not move.
struct KeptPlace {
  std::int32_t lcn = 0;
  std::int32_t end = 0;
  std::int32_t file = 0;
  std::int32_t kept = 0;  // clusters that need not move
};

// When a place of a file in pieces is worth having: what is brought there leaves other gaps.
struct Keeping {
  double share = 0;           // of the file that need not move, at least
  std::int32_t clusters = 0;  // that are to be had in any other place as well
};

// Of all places in front of the ceiling those that keep most in all. No two meet, and no file has
// two. By LCN.
std::vector<KeptPlace> MostKept(const ClusterSpace& space, std::int32_t ceiling,
                                const Keeping& keeping);

// Clusters that have to be moved, at least, for all files to lie in one piece in front of the
// ceiling.
std::int64_t LeastToMove(const ClusterSpace& space, std::int32_t ceiling);

}  // namespace vornalux::plan
