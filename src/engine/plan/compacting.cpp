// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/plan/compacting.h"

#include <algorithm>
#include <tuple>
#include <vector>

#include "engine/plan/final_places.h"
#include "engine/plan/mend_files.h"
#include "engine/plan/rearranging.h"

namespace vornalux::plan {
namespace {

constexpr int kRounds = 6;
constexpr std::int64_t kFew = 150;  // one of so many free clusters may lie elsewhere

// What lies behind the ceiling and has no place in front of it as a whole: its pieces, one by one,
// the longest first.
void FillWithPieces(ClusterSpace& space, std::int32_t ceiling) {
  std::vector<Run> behind;
  space.Visit(ceiling, [&](const ClusterSpace::Piece& piece) {
    if (piece.file != ClusterSpace::kBlocked) behind.push_back(piece.Clusters());
    return true;
  });
  std::sort(behind.begin(), behind.end(), [](const Run& a, const Run& b) {
    return a.length != b.length ? a.length > b.length : a.lcn < b.lcn;
  });
  for (const Run& run : behind) {
    const auto gap = space.BestFit(run.lcn, run.length, {ceiling, space.Clusters() - ceiling});
    if (gap) space.MoveRun(run.lcn, gap->lcn, run.length);
  }
}

}  // namespace

Disorder DisorderOf(const ClusterSpace& space, std::int32_t ceiling) {
  std::int64_t behind = 0;
  space.Visit(ceiling, [&](const ClusterSpace::Piece& piece) {
    if (piece.file != ClusterSpace::kBlocked) {
      behind += piece.Clusters().End() - std::max(ceiling, piece.lcn);
    }
    return true;
  });
  const bool few = behind <= space.FreeClusters() / kFew;
  return {space.PieceCount(), few ? 0 : behind, space.ClustersMoved()};
}

// Where not everything got to its place, what did is a beginning: the rest is placed anew.
void Compact(ClusterSpace& space, std::int32_t ceiling, const Keeping& keeping) {
  Disorder last;
  for (int round = 0; round < kRounds; ++round) {
    const FinalPlaces places(space, ceiling, keeping);
    const bool all = Rearranging(space, places.Starts()).CarryOut();
    const Disorder now = DisorderOf(space, ceiling);
    const bool better = std::tie(now.pieces, now.behind) < std::tie(last.pieces, last.behind);
    if ((all && now.behind == 0) || !better) break;
    last = now;
    if (!all) {
      MendFiles(space, MendingOrder::LargestFirst, std::numeric_limits<std::int64_t>::max());
    }
  }
  FillWithPieces(space, ceiling);
}

std::int32_t CeilingForGap(const ClusterSpace& space, std::int32_t length) {
  std::int32_t ceiling = FirstFreeLcn(space);
  std::int32_t begin = 0;
  const auto room_until = [&](std::int32_t end) {
    if (end - begin >= length) ceiling = std::max(ceiling, end - length);
  };
  space.Visit(0, [&](const ClusterSpace::Piece& piece) {
    if (piece.file != ClusterSpace::kBlocked) return true;
    room_until(piece.lcn);
    begin = piece.Clusters().End();
    return true;
  });
  room_until(space.Clusters());
  return ceiling;
}

}  // namespace vornalux::plan
