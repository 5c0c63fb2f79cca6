// SPDX-License-Identifier: GPL-2.0-or-later
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>
#include <tuple>
#include <utility>
#include <vector>

#include "engine/plan/compacting.h"
#include "engine/plan/every_way.h"
#include "engine/plan/mend_files.h"
#include "engine/plan/plan_moves.h"

namespace vornalux::plan {
namespace {

// The first is most often the one that leaves nothing in pieces, and with least moved. The second
// leaves less where hardly anything is free.
constexpr MendingOrder kOrders[] = {MendingOrder::LargestFirst, MendingOrder::MostPiecesPerCluster,
                                    MendingOrder::SmallestFirst};
constexpr std::int64_t kManyPieces = 20'000;
constexpr Keeping kKeepings[] = {{.share = 0.3}, {.share = 1}, {.share = 0.7}};

bool HasManyPieces(const Volume& volume, const ClusterSpace& space) {
  return std::ssize(volume.blocked) + space.PieceCount() > kManyPieces;
}

// Of all files in more than one.
std::int64_t ClustersInPieces(const ClusterSpace& space) {
  std::int64_t clusters = 0;
  for (std::int32_t file = 0; file < space.FileCount(); ++file) {
    if (space.IsFragmented(file)) clusters += space.SizeOf(file);
  }
  return clusters;
}

bool Better(const ClusterSpace& space, std::int64_t pieces, std::int64_t clusters) {
  return std::tuple(space.PieceCount(), space.ClustersMoved()) < std::tie(pieces, clusters);
}

// The best that the orders of mending find. One that leaves nothing in pieces and moves no more
// than the files in pieces have is good enough; large volumes are given one only, since the time
// counts.
ClusterSpace BestMending(const Volume& volume, const Limits& limits) {
  std::optional<ClusterSpace> best;
  for (const MendingOrder order : kOrders) {
    ClusterSpace space(volume);
    const std::int64_t in_pieces = ClustersInPieces(space);
    const bool many = HasManyPieces(volume, space);
    MendFiles(space, many ? MendingOrder::MostPiecesPerCluster : order, limits.clusters);
    if (!best || Better(space, best->PieceCount(), best->ClustersMoved())) best = std::move(space);
    const bool whole = ClustersInPieces(*best) == 0;
    if (many || (whole && best->ClustersMoved() <= in_pieces)) break;
  }
  return *std::move(best);
}

// A gap that would do for those that no order of mending brings together.
std::int32_t GapMissing(const ClusterSpace& space) {
  std::int32_t longest = 0;
  for (const Staying& staying : StayingIn(space)) {
    if (staying.obstacle == Obstacle::NotFound) longest = std::max(longest, staying.size);
    // It takes all that is free, and more.
    if (staying.obstacle == Obstacle::Space) longest = std::max(longest, space.FreeClusters());
  }
  return longest;
}

// Makes such a gap where all free space comes together; after everything else, or before.
void MendByCompacting(const Volume& volume, std::int32_t gap, const Keeping& keeping,
                      std::int64_t limit, ClusterSpace& best) {
  const auto compact = [&](ClusterSpace& space) {
    Compact(space, CeilingForGap(space, gap), keeping);
    MendFiles(space, MendingOrder::LargestFirst, limit);
    return space.ClustersMoved() <= limit;
  };
  const std::size_t begun = best.Moves().size();
  const std::int64_t pieces = best.PieceCount();
  const std::int64_t clusters = best.ClustersMoved();
  if (!compact(best) || !Better(best, pieces, clusters)) {
    best.TakeBackTo(begun);
  }
  if (HasManyPieces(volume, best)) return;
  ClusterSpace before(volume);
  if (compact(before) && Better(before, best.PieceCount(), best.ClustersMoved())) {
    best = std::move(before);
  }
}

void MendTheRest(const Volume& volume, const Limits& limits, ClusterSpace& best) {
  for (const Keeping& keeping : kKeepings) {
    const std::int32_t gap = GapMissing(best);
    if (gap == 0) return;
    MendByCompacting(volume, gap, keeping, limits.clusters, best);
    if (HasManyPieces(volume, best)) return;
  }
}

// Where files stay in pieces for which there is room, it is often those that are too large for any
// that get in the way: the same, as if these could not be moved.
void MendAroundTheLargest(const Volume& volume, const Limits& limits, ClusterSpace& best) {
  const std::vector<Staying> staying = StayingIn(best);
  const auto too_large = [](const Staying& file) { return file.obstacle != Obstacle::NotFound; };
  const auto count = static_cast<std::size_t>(std::ranges::count_if(staying, too_large));
  if (count == 0 || count == staying.size() || HasManyPieces(volume, best)) return;
  Volume without = volume;
  for (const Staying& file : staying) {
    if (!too_large(file)) continue;
    std::vector<Run>& runs = without.files[static_cast<std::size_t>(file.file)].runs;
    without.blocked.insert(without.blocked.end(), runs.begin(), runs.end());
    runs.clear();
  }
  ClusterSpace mended = BestMending(without, limits);
  MendTheRest(without, limits, mended);
  if (StayingIn(mended).size() + count >= staying.size()) return;
  best = ClusterSpace(volume);
  for (const Move& move : mended.Moves()) best.MoveRun(move.from, move.to, move.length);
}

MoveList MovesToMend(const Volume& volume, const Limits& limits) {
  ClusterSpace best = BestMending(volume, limits);
  // Small volumes are searched to the end: there a few clusters in the way are much.
  MoveList moves = TryEveryWay(volume, best.PieceCount(), best.ClustersMoved());
  if (!moves.empty() && ClustersOf(moves) <= limits.clusters) return moves;
  MendTheRest(volume, limits, best);
  MendAroundTheLargest(volume, limits, best);
  return std::move(best).Moves();
}

}  // namespace

Plan PlanDefrag(const Volume& volume, const Limits& limits) {
  Plan plan = PlanOf(volume, MovesToMend(volume, limits));
  if (!plan.staying.empty() && limits.clusters < Limits().clusters) {
    TellLimited(plan, PlanDefrag(volume).staying);
  }
  return plan;
}

}  // namespace vornalux::plan
