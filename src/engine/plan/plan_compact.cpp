// SPDX-License-Identifier: GPL-2.0-or-later
#include <algorithm>
#include <cstdint>
#include <iterator>
#include <limits>
#include <tuple>
#include <vector>

#include "engine/plan/final_places.h"
#include "engine/plan/mend_files.h"
#include "engine/plan/plan_moves.h"
#include "engine/plan/rearranging.h"

namespace vornalux::plan {
namespace {

// How much of its file a piece has to be to stay where it is: what is best depends on the volume.
constexpr double kKeep[] = {0.5, 0.3, 0.7, 2};
constexpr std::int64_t kManyPieces = 20'000;
constexpr int kRounds = 6;
constexpr std::int64_t kEnough = 150;  // one of so many free clusters may lie elsewhere

// Clusters of files behind that place.
std::int64_t UsedFrom(const ClusterSpace& space, std::int32_t lcn) {
  std::int64_t used = 0;
  space.Visit(lcn, [&](const ClusterSpace::Piece& piece) {
    if (piece.file != ClusterSpace::kBlocked) {
      used += piece.Clusters().End() - std::max(lcn, piece.lcn);
    }
    return true;
  });
  return used;
}

struct Rank {
  std::int64_t pieces = std::numeric_limits<std::int64_t>::max();
  std::int64_t behind = 0;  // more than is allowed
  std::int64_t moved = 0;
  friend auto operator<=>(const Rank&, const Rank&) = default;
};

Rank RankOf(const ClusterSpace& space, std::int32_t first_free) {
  const std::int64_t behind = UsedFrom(space, first_free);
  const bool enough = behind <= space.FreeClusters() / kEnough;
  return {space.PieceCount(), enough ? 0 : behind, space.ClustersMoved()};
}

// Where not everything got to its place, what did is a beginning: the rest is placed anew.
void Compact(ClusterSpace& space, std::int32_t first_free, double keep) {
  Rank last;
  for (int round = 0; round < kRounds; ++round) {
    const FinalPlaces places(space, keep);
    const bool all = Rearranging(space, places.Starts()).CarryOut();
    const Rank rank = RankOf(space, first_free);
    if ((all && rank.behind == 0) ||
        std::tie(rank.pieces, rank.behind) >= std::tie(last.pieces, last.behind)) {
      return;
    }
    last = rank;
    if (!all) {
      MendFiles(space, MendingOrder::LargestFirst, Limits().clusters);
    }
  }
}

// As many of the first moves as are allowed, of which none is of use only with those behind them.
void CutOff(std::vector<Move>& moves, const Plan& plan, std::int64_t limit) {
  std::size_t count = 0;
  std::int64_t clusters = 0;
  for (std::size_t i = 0; i < plan.moves.size(); ++i) {
    clusters += plan.moves[i].length;
    if (clusters > limit) break;
    if (!plan.moves[i].joined && !plan.moves[i].unfinished) count = i + 1;
  }
  moves.resize(count);
}

}  // namespace

Plan PlanCompact(const Volume& volume, const Limits& limits) {
  std::vector<Move> best;
  Rank best_rank;
  for (const double keep : kKeep) {
    ClusterSpace space(volume);
    const std::int32_t first_free = FirstFreeLcn(space);
    if (best_rank.pieces == Rank().pieces) best_rank = RankOf(space, first_free);
    const bool large = std::ssize(volume.blocked) + space.PieceCount() > kManyPieces;
    Compact(space, first_free, keep);
    const Rank rank = RankOf(space, first_free);
    if (rank < best_rank) {
      best_rank = rank;
      best = space.Moves();
    }
    if (large) break;
  }
  const Plan whole = PlanOf(volume, best);
  if (whole.clusters_moved <= limits.clusters) return whole;
  CutOff(best, whole, limits.clusters);
  Plan plan = PlanOf(volume, best);
  TellLimited(plan, whole.staying);
  return plan;
}

}  // namespace vornalux::plan
