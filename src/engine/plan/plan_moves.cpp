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

Obstacle ObstacleOf(std::int32_t size, const Plan& plan) {
  if (size > plan.longest_unblocked) return Obstacle::Blocked;
  return size > plan.free ? Obstacle::Space : Obstacle::NotFound;
}

// How many of the moves, from the first on, can be one request: consecutive clusters of a file, to
// clusters that follow each other and are all free beforehand.
std::size_t MovesOfRequest(const ClusterSpace& space, const MoveList& moves) {
  Run target{moves.front().to, moves.front().length};
  std::size_t count = 1;
  for (; count < moves.size() && moves[count].file == moves.front().file; ++count) {
    const Move& last = moves[count - 1];
    const Move& next = moves[count];
    if (next.to != target.End()) break;
    const ClusterSpace::Piece& piece = space.At(space.PieceFrom(last.from));
    const bool ends_piece = last.from + last.length == piece.Clusters().End();
    if (!ends_piece || piece.next == ClusterSpace::kNone || space.At(piece.next).lcn != next.from) {
      break;
    }
    target.length += next.length;
    if (!space.IsFree(target)) break;
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
  for (std::int32_t file = 0; file < space.FileCount(); ++file) {
    most.push_back(space.PiecesOf(file));
  }
  std::int32_t worse = 0;
  while (!moves.empty()) {
    const std::int32_t file = moves.front().file;
    std::int32_t& allowed = most[static_cast<std::size_t>(file)];
    const bool was_worse = space.PiecesOf(file) > allowed;
    for (std::size_t left = MovesOfRequest(space, moves); left > 0; --left) {
      space.Follow(moves.front());
      plan.moves.push_back({moves.front(), left > 1, false});
      moves.pop_front();
    }
    // What is whole once stays whole; pieces that touch by chance need not.
    if (!space.IsFragmented(file)) allowed = 1;
    worse += (space.PiecesOf(file) > allowed ? 1 : 0) - (was_worse ? 1 : 0);
    plan.moves.back().unfinished = worse > 0;
  }
  plan.after = FiguresOf(space);
  plan.free = space.FreeClusters();
  plan.longest_unblocked = plan.after.fragmented > 0 ? LongestUnblocked(space) : 0;
  for (std::int32_t file = 0; file < space.FileCount(); ++file) {
    if (!space.IsFragmented(file)) continue;
    const std::int32_t size = space.SizeOf(file);
    plan.staying.push_back({file, space.PiecesOf(file), size, ObstacleOf(size, plan)});
  }
  return plan;
}

void TellLimited(Plan& plan, const std::vector<Staying>& anyway) {
  auto same = anyway.begin();
  for (Staying& staying : plan.staying) {
    while (same != anyway.end() && same->file < staying.file) ++same;
    if (same == anyway.end() || same->file != staying.file) staying.obstacle = Obstacle::Limit;
  }
}

}  // namespace vornalux::plan
