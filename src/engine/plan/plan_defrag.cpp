// SPDX-License-Identifier: GPL-2.0-or-later
#include <cstdint>
#include <iterator>
#include <limits>
#include <tuple>
#include <utility>

#include "engine/plan/every_way.h"
#include "engine/plan/mend_files.h"
#include "engine/plan/plan_moves.h"

namespace vornalux::plan {
namespace {

constexpr MendingOrder kOrders[] = {MendingOrder::LargestFirst, MendingOrder::SmallestFirst,
                                    MendingOrder::MostPiecesPerCluster};
constexpr std::int64_t kManyPieces = 200'000;

// The best that the orders of mending find. Large volumes are planned once only: the time counts.
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
    if (std::ssize(volume.blocked) + space.PieceCount() > kManyPieces) break;
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
  if (!plan.staying.empty() && limits.clusters < Limits().clusters) {
    TellLimited(plan, PlanDefrag(volume).staying);
  }
  return plan;
}

}  // namespace vornalux::plan
