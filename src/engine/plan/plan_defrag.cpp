// SPDX-License-Identifier: GPL-2.0-or-later
#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>
#include <tuple>
#include <utility>

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
constexpr double kKeep = 0.5;  // of its file a piece has to be to stay when all is compacted

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
void MendByCompacting(const Volume& volume, std::int32_t gap, std::int64_t limit,
                      ClusterSpace& best) {
  const auto compact = [&](ClusterSpace& space) {
    Compact(space, CeilingForGap(space, gap), kKeep);
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

MoveList MovesToMend(const Volume& volume, const Limits& limits) {
  ClusterSpace best = BestMending(volume, limits);
  // Small volumes are searched to the end: there a few clusters in the way are much.
  MoveList moves = TryEveryWay(volume, best.PieceCount(), best.ClustersMoved());
  if (!moves.empty() && ClustersOf(moves) <= limits.clusters) return moves;
  const std::int32_t gap = GapMissing(best);
  if (gap > 0) MendByCompacting(volume, gap, limits.clusters, best);
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
