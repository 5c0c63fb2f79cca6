// SPDX-License-Identifier: GPL-2.0-or-later
#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>
#include <vector>

#include "engine/plan/compacting.h"
#include "engine/plan/final_places.h"
#include "engine/plan/plan_moves.h"

namespace vornalux::plan {
namespace {

// How much of its file a piece has to be to stay where it is: what is best depends on the volume.
constexpr double kKeep[] = {0.5, 0.3, 0.7, 2};
constexpr double kKeepWhereMuchMoves[] = {0.4, 0.6, 0.2, 0.85, 0.45, 0.35};
constexpr std::int64_t kMuch = 2;  // times what has to be moved
constexpr std::int64_t kManyPieces = 20'000;

// What lies behind the ceiling, and of each file all but its longest piece.
std::int64_t HasToMove(const ClusterSpace& space, std::int32_t ceiling) {
  std::int64_t clusters = 0;
  for (std::int32_t file = 0; file < space.FileCount(); ++file) {
    std::int32_t behind = 0;
    std::int32_t longest = 0;
    for (std::int32_t piece = space.FirstPiece(file); piece != ClusterSpace::kNone;
         piece = space.At(piece).next) {
      const Run run = space.At(piece).Clusters();
      behind += std::max(0, run.End() - std::max(run.lcn, ceiling));
      longest = std::max(longest, run.length);
    }
    clusters += std::max(behind, space.SizeOf(file) - longest);
  }
  return clusters;
}

// As many of the first moves as are allowed, of which none is of use only with those behind them.
void CutOff(MoveList& moves, const Plan& plan, std::int64_t limit) {
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
  MoveList best;
  std::optional<Disorder> least;
  std::int64_t has_to_move = 0;
  const auto compact_from = [&](const MoveList& begun, double keep) {
    ClusterSpace space(volume);
    const std::int32_t ceiling = FirstFreeLcn(space);
    if (!least) {
      least = DisorderOf(space, ceiling);
      has_to_move = HasToMove(space, ceiling);
    }
    for (const Move& move : begun) space.MoveRun(move.from, move.to, move.length);
    Compact(space, ceiling, keep);
    const Disorder disorder = DisorderOf(space, ceiling);
    if (disorder < *least) {
      least = disorder;
      best = space.Moves();
    }
  };
  const auto many = [&] { return std::ssize(volume.blocked) + least->pieces > kManyPieces; };
  for (const double keep : kKeep) {
    compact_from({}, keep);
    if (many()) break;
  }
  for (const double keep : kKeepWhereMuchMoves) {
    if (many() || least->moved <= kMuch * has_to_move) break;
    compact_from({}, keep);
  }
  // Where some stay in pieces for want of room to turn in, mending finds its own ways.
  if (!PlanOf(volume, best).staying.empty()) {
    const Plan mended = PlanDefrag(volume);
    compact_from({mended.moves.begin(), mended.moves.end()}, kKeep[0]);
  }
  const Plan whole = PlanOf(volume, best);
  if (whole.clusters_moved <= limits.clusters) return whole;
  CutOff(best, whole, limits.clusters);
  Plan plan = PlanOf(volume, best);
  TellLimited(plan, whole.staying);
  return plan;
}

}  // namespace vornalux::plan
