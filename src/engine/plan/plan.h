// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <limits>
#include <vector>

#include "engine/plan/cluster_space.h"

namespace vornalux::plan {

struct Figures {
  std::int32_t fragmented = 0;  // files in more than one piece
  std::int64_t pieces = 0;      // of those
  std::int32_t gaps = 0;
  std::int32_t largest_gap = 0;  // clusters

  friend bool operator==(const Figures&, const Figures&) = default;
};

// Why a file stays in pieces.
enum class Obstacle {
  Blocked,  // what cannot be moved leaves no room of its size between
  Space,    // all that is free together is less than its size
  Limit,    // the data to be moved would have been more than was allowed
  NotFound  // no order of moves was found
};

struct Staying {
  std::int32_t file = 0;
  std::int32_t pieces = 0;
  Obstacle obstacle = Obstacle::NotFound;
};

struct PlannedMove : Move {
  // Makes one request with the next one, which goes on in the file and in the target.
  bool joined = false;
  // Until the next one is done, too, some file is in more pieces than before: a run that ends here
  // first finishes what belongs together.
  bool unfinished = false;
};

struct Plan {
  std::vector<PlannedMove> moves;
  std::int64_t clusters_moved = 0;
  Figures before;
  Figures after;
  std::vector<Staying> staying;  // in the order of files
};

struct Limits {
  std::int64_t clusters = std::numeric_limits<std::int64_t>::max();  // moved in all
};

// Every file in one piece, with as little data moved as can be found.
Plan PlanDefrag(const Volume& volume, const Limits& limits = {});

}  // namespace vornalux::plan
