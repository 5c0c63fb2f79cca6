// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <deque>
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
  // What cannot be moved leaves no room of its size between: there is no way.
  Blocked,
  // All that is free together is less than its size, so that there is no gap for it at any time. A
  // way would have to bring it in parts to where its own clusters or others' are; none was found.
  Space,
  Limit,    // moving more than was allowed would have put it into one piece
  NotFound  // no order of moves was found
};

struct Staying {
  std::int32_t file = 0;
  std::int32_t pieces = 0;
  std::int32_t size = 0;  // clusters
  Obstacle obstacle = Obstacle::NotFound;
};

struct PlannedMove : Move {
  // Makes one request with the next one, which goes on in the file and in the target.
  bool joined = false;
  // Until the next one is done, too, some file is in more pieces than before: a run that ends here
  // first finishes what belongs together.
  bool unfinished = false;
};

// As long as a MoveList.
using PlannedMoves = std::deque<PlannedMove>;

struct Plan {
  PlannedMoves moves;
  std::int64_t clusters_moved = 0;
  // For all files to lie in one piece in front of the free space; of PlanCompact only.
  std::int64_t least_to_move = 0;
  Figures before;
  Figures after;
  std::vector<Staying> staying;  // in the order of files
  // What obstacles are judged by, in clusters. Moves change neither.
  std::int32_t free = 0;
  std::int32_t longest_unblocked = 0;  // between two that cannot be moved; 0 where nothing stays
};

struct Limits {
  std::int64_t clusters = std::numeric_limits<std::int64_t>::max();  // moved in all
};

// Every file in one piece, with as little data moved as can be found.
Plan PlanDefrag(const Volume& volume, const Limits& limits = {});

// All files in one piece and all free clusters behind them, as far as what is blocked allows. A
// bound on what is moved ends it earlier.
Plan PlanCompact(const Volume& volume, const Limits& limits = {});

}  // namespace vornalux::plan
