// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/plan/every_way.h"

#include <algorithm>
#include <limits>
#include <map>
#include <queue>
#include <string>
#include <unordered_map>

namespace vornalux::plan {
namespace {

constexpr std::int32_t kFewPieces = 10;        // blocked ones included
constexpr std::size_t kArrangements = 50'000;  // looked at

struct Unit {
  std::int32_t lcn = 0;
  std::int32_t length = 0;
  std::int32_t file = 0;
  std::int32_t offset = 0;

  std::int32_t End() const { return lcn + length; }
};
using Arrangement = std::vector<Unit>;  // ascending by LCN

std::string KeyOf(const Arrangement& units) {
  std::string key;
  key.reserve(units.size() * 12);
  for (const Unit& unit : units) {
    for (const std::int32_t value : {unit.lcn, unit.file, unit.offset}) {
      key.append(reinterpret_cast<const char*>(&value), sizeof value);
    }
  }
  return key;
}

class Search {
 public:
  Search(const ClusterSpace& space, std::int64_t pieces, std::int64_t clusters)
      : clusters_(space.Clusters()), best_pieces_(pieces), best_cost_(clusters) {
    for (std::int32_t file = 0; file < space.FileCount(); ++file) {
      std::int32_t offset = 0;
      for (std::int32_t piece = space.FirstPiece(file); piece != ClusterSpace::kNone;
           piece = space.At(piece).next) {
        start_.push_back({space.At(piece).lcn, space.At(piece).length, file, offset});
        offset += space.At(piece).length;
      }
      if (offset > 0) ++least_;
    }
    for (std::int32_t piece = space.Following(ClusterSpace::kNone); piece != ClusterSpace::kNone;
         piece = space.Following(piece)) {
      const ClusterSpace::Piece& at = space.At(piece);
      if (at.file == ClusterSpace::kBlocked) start_.push_back({at.lcn, at.length, at.file, 0});
    }
    Sort(start_);
  }

  MoveList Run() {
    Reach(start_, kNoNode, {}, 0);
    while (!queue_.empty() && nodes_.size() < kArrangements) {
      const auto [estimate, number] = queue_.top();
      queue_.pop();
      const std::size_t node = number;
      if (nodes_[node].closed || estimate >= Bound()) continue;
      nodes_[node].closed = true;
      Expand(node);
    }
    MoveList moves;
    for (std::size_t node = best_; node != kNoNode && nodes_[node].from != kNoNode;
         node = nodes_[node].from) {
      moves.push_back(nodes_[node].move);
    }
    std::reverse(moves.begin(), moves.end());
    return moves;
  }

 private:
  static constexpr std::size_t kNoNode = static_cast<std::size_t>(-1);
  struct Node {
    Arrangement units;
    std::size_t from = kNoNode;
    Move move;
    std::int64_t cost = 0;
    bool closed = false;
  };

  static void Sort(Arrangement& units) {
    std::sort(units.begin(), units.end(),
              [](const Unit& a, const Unit& b) { return a.lcn < b.lcn; });
  }

  // Once every file is whole only cheaper ways matter.
  std::int64_t Bound() const {
    return best_pieces_ <= least_ ? best_cost_ : std::numeric_limits<std::int64_t>::max();
  }

  // What must be moved at least until every file is in one piece.
  std::int64_t Remaining(const Arrangement& units) const {
    std::map<std::pair<std::int32_t, std::int32_t>, std::int32_t> in_place;
    std::map<std::int32_t, std::int32_t> size;
    std::map<std::int32_t, std::int32_t> most;
    for (const Unit& unit : units) {
      if (unit.file == ClusterSpace::kBlocked) continue;
      size[unit.file] += unit.length;
      most[unit.file] =
          std::max(most[unit.file], in_place[{unit.file, unit.lcn - unit.offset}] += unit.length);
    }
    std::int64_t clusters = 0;
    for (const auto& [file, length] : size) clusters += length - most[file];
    return clusters;
  }

  void Reach(Arrangement units, std::size_t from, const Move& move, std::int64_t cost) {
    std::string key = KeyOf(units);
    const auto [known, fresh] = known_.try_emplace(std::move(key), nodes_.size());
    if (!fresh) {
      Node& node = nodes_[known->second];
      if (node.cost <= cost) return;
      node.from = from;
      node.move = move;
      node.cost = cost;
    } else {
      nodes_.push_back({std::move(units), from, move, cost, false});
    }
    const Node& node = nodes_[known->second];
    std::int64_t pieces = 0;
    for (const Unit& unit : node.units) pieces += unit.file == ClusterSpace::kBlocked ? 0 : 1;
    if (pieces < best_pieces_ || (pieces == best_pieces_ && cost < best_cost_)) {
      best_pieces_ = pieces;
      best_cost_ = cost;
      best_ = known->second;
    }
    queue_.push({cost + Remaining(node.units), known->second});
  }

  void Expand(std::size_t node) {
    const Arrangement units = nodes_[node].units;
    std::int32_t end = 0;
    for (std::size_t i = 0; i <= units.size(); ++i) {
      const std::int32_t next = i == units.size() ? clusters_ : units[i].lcn;
      if (next > end) IntoGap(node, units, {end, next - end});
      if (i < units.size()) end = units[i].End();
    }
  }

  // A piece, or as much of either end as the gap holds, to either end of it.
  void IntoGap(std::size_t node, const Arrangement& units, const plan::Run& gap) {
    for (std::size_t i = 0; i < units.size(); ++i) {
      const Unit& unit = units[i];
      if (unit.file == ClusterSpace::kBlocked) continue;
      const std::int32_t length = std::min(unit.length, gap.length);
      for (const std::int32_t first : {0, unit.length - length}) {
        for (const std::int32_t to : {gap.lcn, gap.End() - length}) {
          Put(node, units, i, first, length, to);
          if (to == gap.End() - length && to == gap.lcn) break;
        }
        if (length == unit.length) break;
      }
    }
  }

  void Put(std::size_t node, const Arrangement& units, std::size_t i, std::int32_t first,
           std::int32_t length, std::int32_t to) {
    const Unit unit = units[i];
    Arrangement after;
    after.reserve(units.size() + 2);
    for (std::size_t k = 0; k < units.size(); ++k) {
      if (k != i) after.push_back(units[k]);
    }
    after.push_back({to, length, unit.file, unit.offset + first});
    if (first > 0) after.push_back({unit.lcn, first, unit.file, unit.offset});
    if (const std::int32_t rest = first + length; rest < unit.length) {
      after.push_back({unit.lcn + rest, unit.length - rest, unit.file, unit.offset + rest});
    }
    Sort(after);
    std::size_t kept = 0;
    for (std::size_t k = 1; k < after.size(); ++k) {
      Unit& last = after[kept];
      if (after[k].file != ClusterSpace::kBlocked && last.file == after[k].file &&
          last.End() == after[k].lcn && last.offset + last.length == after[k].offset) {
        last.length += after[k].length;
      } else {
        after[++kept] = after[k];
      }
    }
    after.resize(kept + 1);
    Reach(std::move(after), node, {unit.file, unit.lcn + first, to, length},
          nodes_[node].cost + length);
  }

  std::int32_t clusters_;
  Arrangement start_;
  std::int64_t least_ = 0;  // pieces that there must be
  std::vector<Node> nodes_;
  std::unordered_map<std::string, std::size_t> known_;
  using Entry = std::pair<std::int64_t, std::size_t>;
  std::priority_queue<Entry, std::vector<Entry>, std::greater<>> queue_;
  std::size_t best_ = kNoNode;
  std::int64_t best_pieces_;
  std::int64_t best_cost_;
};

bool OfFewPieces(const ClusterSpace& space) {
  std::int32_t count = 0;
  for (std::int32_t piece = space.Following(ClusterSpace::kNone); piece != ClusterSpace::kNone;
       piece = space.Following(piece)) {
    if (++count > kFewPieces) return false;
  }
  return true;
}

}  // namespace

MoveList TryEveryWay(const Volume& volume, std::int64_t pieces, std::int64_t clusters) {
  if (pieces > kFewPieces || volume.alignment > 1) return {};
  const ClusterSpace space(volume);
  if (!OfFewPieces(space)) return {};
  return Search(space, pieces, clusters).Run();
}

}  // namespace vornalux::plan
