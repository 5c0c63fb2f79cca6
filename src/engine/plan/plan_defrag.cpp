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

// The first is most often the one that leaves nothing in pieces, and with least moved.
constexpr MendingOrder kOrders[] = {MendingOrder::MostPiecesPerCluster, MendingOrder::LargestFirst,
                                    MendingOrder::SmallestFirst};
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

bool Better(const ClusterSpace& space, const Mended& than) {
  return Mended{space.PieceCount(), space.ClustersMoved()} < than;
}

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
    if (Better(space, best)) best = WhatBecameOf(std::move(space));
    if (whole && std::ssize(volume.blocked) + best.pieces > kManyPieces) break;
  }
  return best;
}

// A gap that would do for those that no order of mending brings together.
std::int32_t GapMissing(const Plan& plan) {
  std::int32_t longest = 0;
  for (const Staying& staying : plan.staying) {
    if (staying.obstacle == Obstacle::NotFound) longest = std::max(longest, staying.size);
    // It takes all that is free, and more.
    if (staying.obstacle == Obstacle::Space) longest = std::max(longest, plan.free);
  }
  return longest;
}

// Makes such a gap where all free space comes together; after everything else, or before.
void MendByCompacting(const Volume& volume, std::int32_t gap, std::int64_t limit, Mended& best) {
  for (const bool after : {true, false}) {
    if (!after && std::ssize(volume.blocked) + best.pieces > kManyPieces) return;
    ClusterSpace space(volume);
    while (after && !best.moves.empty()) {
      const Move& move = best.moves.front();
      space.MoveRun(move.from, move.to, move.length);
      best.moves.pop_front();
    }
    const std::size_t begun = space.Moves().size();
    Compact(space, CeilingForGap(space, gap), kKeep);
    MendFiles(space, MendingOrder::LargestFirst, limit);
    if (space.ClustersMoved() > limit || !Better(space, best)) {
      if (!after) return;
      space.TakeBackTo(begun);
    }
    best = WhatBecameOf(std::move(space));
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
  const std::int32_t gap = searched ? 0 : GapMissing(plan);
  if (gap > 0) {
    best.moves.assign(plan.moves.begin(), plan.moves.end());
    plan = {};
    MendByCompacting(volume, gap, limits.clusters, best);
    plan = PlanOf(volume, std::move(best.moves));
  }
  if (!plan.staying.empty() && limits.clusters < Limits().clusters) {
    TellLimited(plan, PlanDefrag(volume).staying);
  }
  return plan;
}

}  // namespace vornalux::plan
