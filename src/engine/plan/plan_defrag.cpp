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

// The best that the orders of mending find. For large volumes the first that leaves nothing in
// pieces will do: the time counts.
std::vector<Move> BestMending(const Volume& volume, const Limits& limits) {
  std::vector<Move> best;
  std::tuple<std::int64_t, std::int64_t> best_rank{std::numeric_limits<std::int64_t>::max(), 0};
  for (const MendingOrder order : kOrders) {
    ClusterSpace space(volume);
    MendFiles(space, order, limits.clusters);
    const std::tuple rank{space.PieceCount(), space.ClustersMoved()};
    if (rank >= best_rank) continue;
    best_rank = rank;
    best = space.Moves();
    const bool whole = space.PieceCount() <= space.FileCount();
    if (whole && std::ssize(volume.blocked) + space.PieceCount() > kManyPieces) break;
  }
  return best;
}

// What no order of mending brings together does when the free space is in one place; before
// anything is mended, or after.
std::vector<Move> MendByCompacting(const Volume& volume, const Plan& plan,
                                   const std::vector<Move>& moves, std::int64_t limit) {
  ClusterSpace space(volume);
  std::int32_t longest = 0;
  for (const Staying& staying : plan.staying) {
    if (staying.obstacle == Obstacle::NotFound) longest = std::max(longest, staying.size);
    // It takes all that is free, and more.
    if (staying.obstacle == Obstacle::Space) longest = std::max(longest, plan.free);
  }
  std::vector<Move> best;
  for (const Move& move : moves) space.MoveRun(move.from, move.to, move.length);
  std::tuple best_rank{space.PieceCount(), std::int64_t{0}};
  if (longest == 0) return best;
  for (const bool mended : {true, false}) {
    if (!mended) space.TakeBackTo(0);
    Compact(space, CeilingForGap(space, longest), kKeep);
    MendFiles(space, MendingOrder::LargestFirst, limit);
    const std::tuple rank{space.PieceCount(), space.ClustersMoved()};
    if (rank >= best_rank || space.ClustersMoved() > limit) continue;
    best_rank = rank;
    best = space.Moves();
  }
  return best;
}

}  // namespace

Plan PlanDefrag(const Volume& volume, const Limits& limits) {
  std::vector<Move> moves = BestMending(volume, limits);
  ClusterSpace space(volume);
  for (const Move& move : moves) space.MoveRun(move.from, move.to, move.length);
  const std::int64_t pieces = space.PieceCount();
  space.TakeBackTo(0);
  // Small volumes are searched to the end: there a few clusters in the way are much.
  std::vector<Move> better = TryEveryWay(space, pieces, ClustersOf(moves));
  if (!better.empty() && ClustersOf(better) <= limits.clusters) moves = std::move(better);
  Plan plan = PlanOf(volume, moves);
  if (!plan.staying.empty()) {
    better = MendByCompacting(volume, plan, moves, limits.clusters);
    if (!better.empty()) plan = PlanOf(volume, better);
  }
  if (!plan.staying.empty() && limits.clusters < Limits().clusters) {
    TellLimited(plan, PlanDefrag(volume).staying);
  }
  return plan;
}

}  // namespace vornalux::plan
