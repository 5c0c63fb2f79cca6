// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <compare>
#include <cstdint>
#include <limits>

#include "engine/plan/cluster_space.h"
#include "engine/plan/kept_places.h"

namespace vornalux::plan {

// How far a space is from being compact: less is better.
struct Disorder {
  std::int64_t pieces = std::numeric_limits<std::int64_t>::max();  // of all files
  std::int64_t behind = 0;  // used clusters behind the ceiling, when they are more than a few
  std::int64_t moved = 0;   // clusters
  friend auto operator<=>(const Disorder&, const Disorder&) = default;
};
Disorder DisorderOf(const ClusterSpace& space, std::int32_t ceiling);

// Brings all files in one piece to the front of the ceiling, an LCN that leaves room enough for
// them.
void Compact(ClusterSpace& space, std::int32_t ceiling, const Keeping& keeping);

// A ceiling that leaves a gap of `length` clusters behind it, at the least work. Not for what is
// more than all free clusters, or than any two blocked ones leave between them.
std::int32_t CeilingForGap(const ClusterSpace& space, std::int32_t length);

}  // namespace vornalux::plan
