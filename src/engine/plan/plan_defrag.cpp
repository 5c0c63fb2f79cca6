// SPDX-License-Identifier: GPL-2.0-or-later
#include <algorithm>
#include <limits>
#include <tuple>
#include <utility>

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
constexpr std::int64_t kManyPieces = 200'000;

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

std::int64_t ClustersOf(const std::vector<Move>& moves) {
  std::int64_t clusters = 0;
  for (const Move& move : moves) clusters += move.length;
  return clusters;
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
          if (mending_.IntoFewerPieces(file) && Left() >= 0) return true;
          space_.TakeBackTo(mark);
          return false;
        });
      }
      if (!progress) return;
    }
  }

  const ClusterSpace& Space() const { return space_; }

 private:
  std::int64_t Left() const { return limit_ - space_.ClustersMoved(); }

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
};

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

// The limit is the obstacle only of files that stay in no plan without one.
void TellLimited(const Volume& volume, Plan& plan) {
  const std::vector<Staying> anyway = PlanDefrag(volume).staying;
  auto same = anyway.begin();
  for (Staying& staying : plan.staying) {
    while (same != anyway.end() && same->file < staying.file) ++same;
    if (same == anyway.end() || same->file != staying.file) staying.obstacle = Obstacle::Limit;
  }
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

// The best that the orders of mending find. Large volumes are planned once only: the time counts.
std::vector<Move> BestMending(const Volume& volume, const Limits& limits) {
  std::vector<Move> best;
  std::tuple<std::int64_t, std::int64_t> best_rank{std::numeric_limits<std::int64_t>::max(), 0};
  for (const Order order : kOrders) {
    DefragPlanner planner(volume, order, limits.clusters);
    planner.MakePlan();
    const std::tuple rank{planner.Space().PieceCount(), ClustersOf(planner.Space().Moves())};
    if (rank >= best_rank) continue;
    best_rank = rank;
    best = planner.Space().Moves();
    if (std::ssize(volume.blocked) + planner.Space().PieceCount() > kManyPieces) break;
  }
  return best;
}

}  // namespace

Plan PlanDefrag(const Volume& volume, const Limits& limits) {
  std::vector<Move> moves = BestMending(volume, limits);
  ClusterSpace space(volume);
  Plan plan;
  plan.before = FiguresOf(space);
  for (const Move& move : moves) space.MoveRun(move.from, move.to, move.length);
  const std::int64_t pieces = space.PieceCount();
  space.TakeBackTo(0);
  // Small volumes are searched to the end: there a few clusters in the way are much.
  std::vector<Move> better = TryEveryWay(space, pieces, ClustersOf(moves));
  if (!better.empty() && ClustersOf(better) <= limits.clusters) moves = std::move(better);
  plan.clusters_moved = ClustersOf(moves);

  std::vector<std::int32_t> fewest;
  for (std::int32_t file = 0; file < space.FileCount(); ++file) {
    fewest.push_back(space.PiecesOf(file));
  }
  std::int32_t worse = 0;
  for (std::size_t first = 0; first < moves.size();) {
    const std::size_t end = EndOfRequest(space, moves, first);
    const std::int32_t file = moves[first].file;
    std::int32_t& least = fewest[static_cast<std::size_t>(file)];
    const bool was_worse = space.PiecesOf(file) > least;
    for (; first < end; ++first) {
      space.MoveRun(moves[first].from, moves[first].to, moves[first].length);
      plan.moves.push_back({moves[first], first + 1 < end, false});
    }
    least = std::min(least, space.PiecesOf(file));
    worse += (space.PiecesOf(file) > least ? 1 : 0) - (was_worse ? 1 : 0);
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
  if (!plan.staying.empty() && limits.clusters < Limits().clusters) TellLimited(volume, plan);
  return plan;
}

}  // namespace vornalux::plan
