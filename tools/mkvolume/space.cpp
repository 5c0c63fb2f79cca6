// SPDX-License-Identifier: GPL-2.0-or-later
#include "mkvolume/space.h"

#include <algorithm>
#include <numeric>
#include <stdexcept>
#include <string>
#include <tuple>

namespace vornalux::making {

void ClusterSet::Set(std::int64_t lcn, std::int64_t count, bool taken) {
  for (std::int64_t i = lcn; i < lcn + count; ++i) {
    if (Taken(i) == taken) continue;
    taken_[static_cast<std::size_t>(i)] = taken;
    taken_count_ += taken ? 1 : -1;
  }
}

std::vector<VcnRange> ClusterSet::FreeRanges() const {
  std::vector<VcnRange> ranges;
  for (std::int64_t lcn = 0; lcn < Size(); ++lcn) {
    if (Taken(lcn)) continue;
    if (!ranges.empty() && ranges.back().vcn + ranges.back().count == lcn) {
      ++ranges.back().count;
    } else {
      ranges.push_back({lcn, 1});
    }
  }
  return ranges;
}

namespace {

struct Piece {
  std::size_t request = 0;
  std::int64_t number = 0;  // within the request
  std::int64_t count = 0;   // clusters
  bool divided = false;     // the request has other pieces
  std::int64_t lcn = -1;
};

std::int64_t ClustersIn(const SpaceRequest& request) {
  return std::accumulate(request.ranges.begin(), request.ranges.end(), std::int64_t{0},
                         [](std::int64_t sum, const VcnRange& range) { return sum + range.count; });
}

// Cuts a request into pieces of random sizes, at least one cluster each.
void Cut(std::size_t request, std::int64_t clusters, std::int64_t pieces, SeededRandom& random,
         std::vector<Piece>& out) {
  std::int64_t left = clusters;
  for (std::int64_t i = 0; i < pieces; ++i) {
    const std::int64_t after = pieces - i - 1;
    std::int64_t count = left;
    if (after > 0) {
      const std::int64_t mean = left / (after + 1);
      count = std::min(random.Between(1, std::max<std::int64_t>(1, 2 * mean - 1)), left - after);
    }
    out.push_back({request, i, count, pieces > 1});
    left -= count;
  }
}

// Hands out places along the volume, with gaps such that the free clusters are used up at its end.
class Placer {
 public:
  // packed: without gaps, when there is no room for them.
  Placer(const ClusterSet& clusters, bool packed, SeededRandom& random)
      : random_(random), packed_(packed), ranges_(clusters.FreeRanges()), free_(clusters.Free()) {}

  void Place(std::vector<Piece>& pieces);

 private:
  void PlaceLarge(std::vector<Piece>& pieces);
  void PlaceAlong(std::vector<Piece*>& order);
  void PlaceLeftOver(std::vector<Piece*>& pieces);
  std::int64_t DrawGap(std::int64_t pieces_left, std::int64_t room);
  bool Adjoins(const Piece& piece, std::int64_t lcn) const {
    return last_ != nullptr && last_->request == piece.request && last_->lcn + last_->count == lcn;
  }

  SeededRandom& random_;
  bool packed_;
  std::vector<VcnRange> ranges_;  // free, by LCN
  std::int64_t free_;
  std::int64_t unplaced_ = 0;  // clusters
  const Piece* last_ = nullptr;
  std::vector<VcnRange> gaps_;
};

[[noreturn]] void NoRoom(const Piece& piece) {
  throw std::runtime_error("the volume is too full: no room for an extent of " +
                           std::to_string(piece.count) + " clusters");
}

void Placer::Place(std::vector<Piece>& pieces) {
  for (const Piece& piece : pieces) unplaced_ += piece.count;
  if (unplaced_ > free_) {
    throw std::runtime_error("the volume is too small: " + std::to_string(unplaced_) +
                             " clusters are needed, " + std::to_string(free_) + " are free");
  }
  PlaceLarge(pieces);
  std::vector<Piece*> order;
  for (Piece& piece : pieces) {
    if (piece.lcn < 0) order.push_back(&piece);
  }
  random_.Shuffle(order);
  PlaceAlong(order);
}

// Pieces that may not find a place later: somewhere in the largest free range that is left.
void Placer::PlaceLarge(std::vector<Piece>& pieces) {
  std::int64_t largest = 0;
  for (const VcnRange& range : ranges_) largest = std::max(largest, range.count);
  std::vector<Piece*> large;
  for (Piece& piece : pieces) {
    if (piece.count > largest / 64 && piece.count > 8) large.push_back(&piece);
  }
  std::sort(large.begin(), large.end(), [](const Piece* a, const Piece* b) {
    return std::tuple(b->count, a->request, a->number) <
           std::tuple(a->count, b->request, b->number);
  });
  for (Piece* piece : large) {
    const auto range =
        std::max_element(ranges_.begin(), ranges_.end(),
                         [](const VcnRange& a, const VcnRange& b) { return a.count < b.count; });
    if (range == ranges_.end() || range->count < piece->count) NoRoom(*piece);
    const std::int64_t room = range->count - piece->count;
    // Near one end, so that what is left of the range is large.
    std::int64_t skip = packed_ ? 0 : random_.Between(0, room / 8);
    if (!packed_ && random_.Chance(0.5)) skip = room - skip;
    piece->lcn = range->vcn + skip;
    VcnRange behind{piece->lcn + piece->count, room - skip};
    range->count = skip;
    free_ -= piece->count;
    unplaced_ -= piece->count;
    if (piece->divided) {  // a guard on either side against other parts of the same file
      free_ -= (behind.count > 0) + (range->count > 0);
      if (range->count > 0) --range->count;
      if (behind.count > 0) behind = {behind.vcn + 1, behind.count - 1};
    }
    if (behind.count > 0) ranges_.insert(range + 1, behind);
  }
}

std::int64_t Placer::DrawGap(std::int64_t pieces_left, std::int64_t room) {
  const std::int64_t slack = free_ - unplaced_;
  if (packed_ || slack <= 0 || random_.Below(3) != 0) return 0;
  const std::int64_t mean = std::max<std::int64_t>(1, 3 * slack / (pieces_left + 1));
  return std::min({random_.Between(1, 2 * mean), room, slack});
}

void Placer::PlaceAlong(std::vector<Piece*>& order) {
  std::vector<Piece*> waiting;  // did not fit where it was their turn
  std::size_t next = 0;
  for (const VcnRange& range : ranges_) {
    std::int64_t lcn = range.vcn;
    const std::int64_t end = range.vcn + range.count;
    last_ = nullptr;
    std::size_t misses = 0;
    // Those that wait have the first turn in a new range.
    std::vector<Piece*> again;
    again.swap(waiting);
    std::size_t next_again = 0;
    while (lcn < end && misses < 64 && (next < order.size() || next_again < again.size())) {
      Piece* piece = next_again < again.size() ? again[next_again++] : order[next++];
      const std::int64_t left = static_cast<std::int64_t>(order.size() - next + again.size() -
                                                          next_again + waiting.size());
      std::int64_t gap = DrawGap(left, end - lcn);
      if (gap == 0 && Adjoins(*piece, lcn)) gap = 1;
      if (piece->count > end - lcn - gap) gap = Adjoins(*piece, lcn) ? 1 : 0;
      if (piece->count > end - lcn - gap) {
        waiting.push_back(piece);
        ++misses;
        continue;
      }
      if (gap > 0) gaps_.push_back({lcn, gap});
      piece->lcn = lcn + gap;
      free_ -= gap + piece->count;
      unplaced_ -= piece->count;
      lcn = piece->lcn + piece->count;
      last_ = piece;
    }
    waiting.insert(waiting.end(), again.begin() + static_cast<std::ptrdiff_t>(next_again),
                   again.end());
    if (lcn < end) gaps_.push_back({lcn, end - lcn});
    free_ -= end - lcn;
  }
  waiting.insert(waiting.end(), order.begin() + static_cast<std::ptrdiff_t>(next), order.end());
  PlaceLeftOver(waiting);
}

void Placer::PlaceLeftOver(std::vector<Piece*>& pieces) {
  std::sort(pieces.begin(), pieces.end(), [](const Piece* a, const Piece* b) {
    return std::tuple(b->count, a->request, a->number) <
           std::tuple(a->count, b->request, b->number);
  });
  std::sort(gaps_.begin(), gaps_.end(),
            [](const VcnRange& a, const VcnRange& b) { return a.count > b.count; });
  std::size_t at = 0;
  for (Piece* piece : pieces) {
    // From the largest gap on, in turns: parts of one file come into different gaps.
    std::size_t tried = 0;
    while (tried < gaps_.size() && gaps_[at].count < piece->count + 2) {
      at = (at + 1) % gaps_.size();
      ++tried;
    }
    if (tried == gaps_.size()) NoRoom(*piece);
    VcnRange& gap = gaps_[at];
    piece->lcn = gap.vcn + 1;
    gap.vcn += piece->count + 1;
    gap.count -= piece->count + 1;
    at = (at + 1) % gaps_.size();
  }
}

// Lays a request's places over its ranges.
void Answer(SpaceRequest& request, const std::vector<Piece>& pieces, std::size_t first) {
  std::size_t range = 0;
  std::int64_t in_range = 0;
  for (std::size_t i = first;
       i < pieces.size() && i - first < static_cast<std::size_t>(request.pieces); ++i) {
    std::int64_t lcn = pieces[i].lcn;
    for (std::int64_t left = pieces[i].count; left > 0;) {
      const VcnRange& here = request.ranges[range];
      const std::int64_t count = std::min(left, here.count - in_range);
      request.runs.push_back({here.vcn + in_range, lcn, count});
      lcn += count;
      left -= count;
      in_range += count;
      if (in_range == here.count) {
        ++range;
        in_range = 0;
      }
    }
  }
}

void PlacePieces(std::vector<Piece>& pieces, const ClusterSet& clusters, SeededRandom& random) {
  try {
    std::vector<Piece> placed = pieces;
    Placer(clusters, false, random).Place(placed);
    pieces = std::move(placed);
  } catch (const std::runtime_error&) {
    Placer(clusters, true, random).Place(pieces);
  }
}

}  // namespace

void PlaceAll(std::vector<SpaceRequest>& requests, ClusterSet& clusters, SeededRandom& random) {
  std::vector<Piece> pieces;
  std::vector<std::size_t> first(requests.size());
  for (std::size_t i = 0; i < requests.size(); ++i) {
    first[i] = pieces.size();
    const std::int64_t count = ClustersIn(requests[i]);
    requests[i].pieces = std::clamp<std::int64_t>(requests[i].pieces, count > 0 ? 1 : 0, count);
    Cut(i, count, requests[i].pieces, random, pieces);
  }
  PlacePieces(pieces, clusters, random);
  for (std::size_t i = 0; i < requests.size(); ++i) {
    Answer(requests[i], pieces, first[i]);
    for (const PlacedRun& run : requests[i].runs) clusters.Set(run.lcn, run.count, true);
  }
}

}  // namespace vornalux::making
