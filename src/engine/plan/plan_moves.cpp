// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/plan/plan_moves.h"

#include <algorithm>
#include <cstddef>

namespace vornalux::plan {
namespace {

Figures FiguresOf(const ClusterSpace& space) {
  Figures figures;
  for (std::int32_t file = 0; file < space.FileCount(); ++file) {
    if (!space.IsFragmented(file)) continue;
    ++figures.fragmented;
    figures.pieces += space.PiecesOf(file);
  }
  std::int32_t end = 0;
  const auto gap_until = [&](std::int32_t lcn) {
    figures.gaps += lcn > end ? 1 : 0;
    figures.largest_gap = std::max(figures.largest_gap, lcn - end);
  };
  space.Visit(0, [&](const ClusterSpace::Piece& piece) {
    gap_until(piece.lcn);
    end = piece.Clusters().End();
    return true;
  });
  gap_until(space.Clusters());
  return figures;
}

// The most clusters between two that are blocked.
std::int32_t LongestUnblocked(const ClusterSpace& space) {
  std::int32_t longest = 0;
  std::int32_t begin = 0;
  space.Visit(0, [&](const ClusterSpace::Piece& piece) {
    if (piece.file != ClusterSpace::kBlocked) return true;
    longest = std::max(longest, piece.lcn - begin);
    begin = piece.Clusters().End();
    return true;
  });
  return std::max(longest, space.Clusters() - begin);
}

// How many of the moves, from the first on, can be one request: consecutive clusters of a file, to
// clusters that follow each other and are all free beforehand. The first one's are the piece's.
std::size_t MovesOfRequest(const ClusterSpace& space, std::int32_t piece, const MoveList& moves) {
  const Move& first = moves.front();
  const auto goes_on = [&](const Move& last, const Move& next) {
    return next.file == last.file && next.to == last.to + last.length;
  };
  std::size_t count = 1;
  if (moves.size() == count || !goes_on(first, moves[count])) return count;
  const std::int32_t gap_end = space.GapAt(first.to).End();
  for (; count < moves.size() && goes_on(moves[count - 1], moves[count]); ++count) {
    const Move& last = moves[count - 1];
    const bool ends_piece = last.from + last.length == space.At(piece).Clusters().End();
    piece = space.At(piece).next;
    if (!ends_piece || piece == ClusterSpace::kNone) break;
    if (space.At(piece).lcn != moves[count].from) break;
    if (moves[count].to + moves[count].length > gap_end) break;
  }
  return count;
}

}  // namespace

std::int64_t ClustersOf(const MoveList& moves) {
  std::int64_t clusters = 0;
  for (const Move& move : moves) clusters += move.length;
  return clusters;
}

Plan PlanOf(const Volume& volume, MoveList moves) {
  ClusterSpace space(volume, ClusterSpace::Gaps::NotSorted);
  Plan plan;
  plan.before = FiguresOf(space);
  plan.clusters_moved = ClustersOf(moves);
  std::vector<std::int32_t> most;  // pieces that a file may be in when the run is stopped
  most.reserve(static_cast<std::size_t>(space.FileCount()));
  for (std::int32_t file = 0; file < space.FileCount(); ++file) {
    most.push_back(space.PiecesOf(file));
  }
  std::int32_t worse = 0;
  while (!moves.empty()) {
    const std::int32_t file = moves.front().file;
    std::int32_t& allowed = most[static_cast<std::size_t>(file)];
    const bool was_worse = space.PiecesOf(file) > allowed;
    std::int32_t piece = space.PieceFrom(moves.front().from);
    for (std::size_t left = MovesOfRequest(space, piece, moves); left > 0; --left) {
      const std::int32_t next = space.At(piece).next;
      space.Follow(piece, moves.front());
      plan.moves.push_back({moves.front(), left > 1, false});
      moves.pop_front();
      if (left > 1) piece = space.PieceAt(moves.front().from, next);
    }
    // What is whole once stays whole; pieces that touch by chance need not.
    if (!space.IsFragmented(file)) allowed = 1;
    worse += (space.PiecesOf(file) > allowed ? 1 : 0) - (was_worse ? 1 : 0);
    plan.moves.back().unfinished = worse > 0;
  }
  plan.after = FiguresOf(space);
  plan.free = space.FreeClusters();
  plan.longest_unblocked = plan.after.fragmented > 0 ? LongestUnblocked(space) : 0;
  plan.staying = StayingIn(space);
  return plan;
}

std::vector<Staying> StayingIn(const ClusterSpace& space) {
  std::vector<Staying> all;
  std::int32_t unblocked = 0;
  for (std::int32_t file = 0; file < space.FileCount(); ++file) {
    if (!space.IsFragmented(file)) continue;
    if (all.empty()) unblocked = LongestUnblocked(space);
    const std::int32_t size = space.SizeOf(file);
    const Obstacle obstacle = size > unblocked              ? Obstacle::Blocked
                              : size > space.FreeClusters() ? Obstacle::Space
                                                            : Obstacle::NotFound;
    all.push_back({file, space.PiecesOf(file), size, obstacle});
  }
  return all;
}

void TellLimited(Plan& plan, const std::vector<Staying>& anyway) {
  auto same = anyway.begin();
  for (Staying& staying : plan.staying) {
    while (same != anyway.end() && same->file < staying.file) ++same;
    if (same == anyway.end() || same->file != staying.file) staying.obstacle = Obstacle::Limit;
  }
}

}  // namespace vornalux::plan
