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

// What is best depends on the volume.
constexpr Keeping kKeepings[] = {{.share = 0.3},
                                 {.share = 0.15, .clusters = 20},
                                 {.share = 0.15, .clusters = 8},
                                 {.share = 0.3, .clusters = 3}};
constexpr Keeping kMoreKeepings[] = {{.share = 1},
                                     {.share = 0.5},
                                     {},
                                     {.share = 0.7},
                                     {.share = 0.4, .clusters = 8},
                                     {.share = 0.2, .clusters = 1},
                                     {.share = 0.6, .clusters = 40},
                                     {.clusters = 8},
                                     {.share = 0.1, .clusters = 2},
                                     {.share = 0.25, .clusters = 5}};
constexpr std::int64_t kMuch = 2;  // times what has to be moved
constexpr std::int64_t kManyPieces = 20'000;

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
  std::int64_t least_to_move = 0;
  const auto compact_from = [&](const MoveList& begun, const Keeping& keeping) {
    ClusterSpace space(volume);
    const std::int32_t ceiling = FirstFreeLcn(space);
    if (!least) {
      least = DisorderOf(space, ceiling);
      least_to_move = LeastToMove(space, ceiling);
    }
    for (const Move& move : begun) space.MoveRun(move.from, move.to, move.length);
    Compact(space, ceiling, keeping);
    const Disorder disorder = DisorderOf(space, ceiling);
    if (disorder < *least) {
      least = disorder;
      best = space.Moves();
    }
  };
  const auto many = [&] { return std::ssize(volume.blocked) + least->pieces > kManyPieces; };
  for (const Keeping& keeping : kKeepings) {
    compact_from({}, keeping);
    if (many()) break;
  }
  for (const Keeping& keeping : kMoreKeepings) {
    if (many() || (least->behind == 0 && least->moved <= kMuch * least_to_move)) break;
    compact_from({}, keeping);
  }
  // Where some stay in pieces for want of room to turn in, mending finds its own ways.
  if (!PlanOf(volume, best).staying.empty()) {
    const Plan mended = PlanDefrag(volume);
    compact_from({mended.moves.begin(), mended.moves.end()}, kKeepings[0]);
  }
  Plan whole = PlanOf(volume, best);
  whole.least_to_move = least_to_move;
  if (whole.clusters_moved <= limits.clusters) return whole;
  CutOff(best, whole, limits.clusters);
  Plan plan = PlanOf(volume, best);
  plan.least_to_move = least_to_move;
  TellLimited(plan, whole.staying);
  return plan;
}

}  // namespace vornalux::plan
