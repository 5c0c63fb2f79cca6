// SPDX-License-Identifier: GPL-2.0-or-later
#include <algorithm>
#include <tuple>

#include "engine/plan/every_way.h"
#include "engine/plan/mending.h"
#include "engine/plan/plan.h"

namespace vornalux::plan {
namespace {

// In which order files are mended: which is best depends on the volume, so all are tried.
enum class Order { LargestFirst, SmallestFirst, MostPiecesPerCluster };
constexpr Order kOrders[] = {Order::LargestFirst, Order::SmallestFirst,
                             Order::MostPiecesPerCluster};
constexpr int kRounds = 8;

Figures FiguresOf(const ClusterSpace& space) {
  Figures figures;
  for (std::int32_t file = 0; file < space.FileCount(); ++file) {
    if (!space.IsFragmented(file)) continue;
    ++figures.fragmented;
    figures.pieces += space.PiecesOf(file);
  }
  figures.gaps = space.GapCount();
  figures.largest_gap = space.LargestGap().length;
  return figures;
}

class DefragPlanner {
 public:
  DefragPlanner(const Volume& volume, Order order, std::int64_t limit)
      : space_(volume), mending_(space_), order_(order), limit_(limit) {}

  void MakePlan() {
    for (int round = 0; round < kRounds; ++round) {
      bool progress = false;
      while (EachFile([&](std::int32_t file) {
        return mending_.CostIntoGap(file) <= Left() && mending_.IntoGap(file);
      })) {
        progress = true;
      }
      progress |=
          EachFile([&](std::int32_t file) { return mending_.IntoVacatedPlace(file, Left()); });
      if (!progress) {
        progress =
            EachFile([&](std::int32_t file) { return mending_.IntoGatheredGap(file, Left()); });
      }
      if (!progress) {
        progress = EachFile([&](std::int32_t file) {
          const std::size_t mark = space_.Moves().size();
          if (mending_.IntoFewerPieces(file) && Moved() <= limit_) return true;
          space_.TakeBackTo(mark);
          return false;
        });
      }
      if (!progress) return;
    }
  }

  const ClusterSpace& Space() const { return space_; }
  std::int64_t Moved() {
    for (; counted_ < space_.Moves().size(); ++counted_) {
      moved_ += space_.Moves()[counted_].length;
    }
    if (counted_ > space_.Moves().size()) {
      counted_ = 0;
      moved_ = 0;
      return Moved();
    }
    return moved_;
  }

 private:
  std::int64_t Left() { return limit_ - Moved(); }

  template <typename Way>
  bool EachFile(Way way) {
    std::vector<std::int32_t> files;
    for (std::int32_t file = 0; file < space_.FileCount(); ++file) {
      if (space_.IsFragmented(file)) files.push_back(file);
    }
    const auto rank = [&](std::int32_t file) {
      switch (order_) {
        case Order::LargestFirst:
          return -static_cast<double>(space_.SizeOf(file));
        case Order::SmallestFirst:
          return static_cast<double>(space_.SizeOf(file));
        case Order::MostPiecesPerCluster:
          break;
      }
      return -static_cast<double>(space_.PiecesOf(file) - 1) / space_.SizeOf(file);
    };
    std::stable_sort(files.begin(), files.end(),
                     [&](std::int32_t a, std::int32_t b) { return rank(a) < rank(b); });
    bool any = false;
    for (const std::int32_t file : files) any |= space_.IsFragmented(file) && way(file);
    return any;
  }

  ClusterSpace space_;
  Mending mending_;
  Order order_;
  std::int64_t limit_;
  std::int64_t moved_ = 0;
  std::size_t counted_ = 0;
};

std::int64_t PiecesOfAll(const ClusterSpace& space) {
  std::int64_t pieces = 0;
  for (std::int32_t file = 0; file < space.FileCount(); ++file) pieces += space.PiecesOf(file);
  return pieces;
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

Obstacle ObstacleOf(const ClusterSpace& space, std::int32_t file) {
  if (space.SizeOf(file) > LongestUnblocked(space)) return Obstacle::Blocked;
  if (space.SizeOf(file) > space.FreeClusters()) return Obstacle::Space;
  return Obstacle::NotFound;
}

// The moves from `first` on that can be one request: consecutive clusters of a file, to clusters
// that follow each other and are all free beforehand.
std::size_t EndOfRequest(const ClusterSpace& space, const std::vector<Move>& moves,
                         std::size_t first) {
  Run target{moves[first].to, moves[first].length};
  std::size_t end = first + 1;
  for (; end < moves.size() && moves[end].file == moves[first].file; ++end) {
    const Move& last = moves[end - 1];
    if (moves[end].to != target.End()) break;
    const ClusterSpace::Piece& piece = space.At(space.PieceFrom(last.from));
    const bool ends_piece = last.from + last.length == piece.Clusters().End();
    if (!ends_piece || piece.next == ClusterSpace::kNone ||
        space.At(piece.next).lcn != moves[end].from) {
      break;
    }
    target.length += moves[end].length;
    if (!space.IsFree(target)) break;
  }
  return end;
}

// Small volumes are searched to the end: there a few clusters in the way are much.
void TryMore(const Volume& volume, const Limits& limits, std::vector<Move>& moves, Plan& plan) {
  ClusterSpace space(volume);
  std::int64_t pieces = PiecesOfAll(space);
  std::int64_t clusters = 0;
  for (const Move& move : moves) space.MoveRun(move.from, move.to, move.length);
  for (const Move& move : moves) clusters += move.length;
  pieces = PiecesOfAll(space);
  space.TakeBackTo(0);
  std::vector<Move> better = TryEveryWay(space, pieces, clusters);
  if (better.empty()) return;
  std::int64_t moved = 0;
  for (const Move& move : better) moved += move.length;
  if (moved > limits.clusters) return;
  moves = std::move(better);
  plan.clusters_moved = moved;
}

}  // namespace

Plan PlanDefrag(const Volume& volume, const Limits& limits) {
  Plan plan;
  std::vector<Move> best;
  std::tuple<std::int64_t, std::int64_t> best_rank;
  bool none_yet = true;
  for (const Order order : kOrders) {
    DefragPlanner planner(volume, order, limits.clusters);
    if (none_yet) plan.before = FiguresOf(planner.Space());
    planner.MakePlan();
    const Figures after = FiguresOf(planner.Space());
    const std::tuple rank{after.pieces - after.fragmented, planner.Moved()};
    if (!none_yet && rank >= best_rank) continue;
    none_yet = false;
    best_rank = rank;
    best = planner.Space().Moves();
    plan.after = after;
    plan.clusters_moved = planner.Moved();
    plan.staying.clear();
    for (std::int32_t file = 0; file < planner.Space().FileCount(); ++file) {
      if (!planner.Space().IsFragmented(file)) continue;
      plan.staying.push_back(
          {file, planner.Space().PiecesOf(file), ObstacleOf(planner.Space(), file)});
    }
  }
  TryMore(volume, limits, best, plan);
  ClusterSpace replay(volume);
  std::vector<std::int32_t> fewest;
  for (std::int32_t file = 0; file < replay.FileCount(); ++file) {
    fewest.push_back(replay.PiecesOf(file));
  }
  std::int32_t worse = 0;
  for (std::size_t first = 0; first < best.size();) {
    const std::size_t end = EndOfRequest(replay, best, first);
    const std::int32_t file = best[first].file;
    std::int32_t& least = fewest[static_cast<std::size_t>(file)];
    const bool was_worse = replay.PiecesOf(file) > least;
    for (; first < end; ++first) {
      replay.MoveRun(best[first].from, best[first].to, best[first].length);
      plan.moves.push_back({best[first], first + 1 < end, false});
    }
    const std::int32_t pieces = replay.PiecesOf(file);
    least = std::min(least, pieces);
    worse += (pieces > least ? 1 : 0) - (was_worse ? 1 : 0);
    plan.moves.back().unfinished = worse > 0;
  }
  return plan;
}

}  // namespace vornalux::plan
