// SPDX-License-Identifier: GPL-2.0-or-later
#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <tuple>
#include <utility>

#include "engine/plan/compacting.h"
#include "engine/plan/every_way.h"
#include "engine/plan/mend_files.h"
#include "engine/plan/plan_moves.h"

namespace vornalux::plan {
namespace {

constexpr MendingOrder kOrders[] = {MendingOrder::LargestFirst, MendingOrder::SmallestFirst,
                                    MendingOrder::MostPiecesPerCluster};
constexpr std::int64_t kManyPieces = 20'000;
constexpr double kKeep = 0.5;  // of its file a piece has to be to stay when all is compacted

struct Mended {
  std::int64_t pieces = std::numeric_limits<std::int64_t>::max();  // of all files
  std::int64_t clusters = 0;                                       // moved
  MoveList moves = {};

  bool operator<(const Mended& other) const {
    return std::tie(pieces, clusters) < std::tie(other.pieces, other.clusters);
  }
};

Mended WhatBecameOf(ClusterSpace&& space) {
  return {space.PieceCount(), space.ClustersMoved(), std::move(space).Moves()};
}

// The best that the orders of mending find. For large volumes the first that leaves nothing in
// pieces will do: the time counts.
Mended BestMending(const Volume& volume, const Limits& limits) {
  Mended best;
  for (const MendingOrder order : kOrders) {
    ClusterSpace space(volume);
    MendFiles(space, order, limits.clusters);
    const bool whole = space.PieceCount() <= space.FileCount();
    Mended mended = WhatBecameOf(std::move(space));
    if (mended < best) best = std::move(mended);
    if (whole && std::ssize(volume.blocked) + best.pieces > kManyPieces) break;
  }
  return best;
}

// What no order of mending brings together does when the free space is in one place; before
// anything is mended, or after.
void MendByCompacting(const Volume& volume, const Plan& plan, std::int64_t limit, Mended& best) {
  std::int32_t longest = 0;
  for (const Staying& staying : plan.staying) {
    if (staying.obstacle == Obstacle::NotFound) longest = std::max(longest, staying.size);
    // It takes all that is free, and more.
    if (staying.obstacle == Obstacle::Space) longest = std::max(longest, plan.free);
  }
  if (longest == 0) return;
  const MoveList begun = best.moves;
  for (const bool after : {true, false}) {
    if (!after && std::ssize(volume.blocked) + best.pieces > kManyPieces) return;
    ClusterSpace space(volume);
    for (const Move& move : begun) {
      if (after) space.MoveRun(move.from, move.to, move.length);
    }
    Compact(space, CeilingForGap(space, longest), kKeep);
    MendFiles(space, MendingOrder::LargestFirst, limit);
    Mended mended = WhatBecameOf(std::move(space));
    if (mended < best && mended.clusters <= limit) best = std::move(mended);
  }
}

}  // namespace

Plan PlanDefrag(const Volume& volume, const Limits& limits) {
  Mended best = BestMending(volume, limits);
  // Small volumes are searched to the end: there a few clusters in the way are much.
  MoveList better = TryEveryWay(volume, best.pieces, best.clusters);
  const bool searched = !better.empty() && ClustersOf(better) <= limits.clusters;
  if (searched) best.moves = std::move(better);
  Plan plan = PlanOf(volume, std::move(best.moves));
  if (!plan.staying.empty() && !searched) {
    best.moves = MoveList(plan.moves.begin(), plan.moves.end());
    MendByCompacting(volume, plan, limits.clusters, best);
    plan = PlanOf(volume, std::move(best.moves));
  }
  if (!plan.staying.empty() && limits.clusters < Limits().clusters) {
    TellLimited(plan, PlanDefrag(volume).staying);
  }
  return plan;
}

}  // namespace vornalux::plan
