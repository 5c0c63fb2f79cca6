// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/plan/mending.h"

#include <algorithm>

namespace vornalux::plan {
namespace {

constexpr std::size_t kPlacesTried = 20;
constexpr std::size_t kPlacesTriedInHaste = 4;  // when much has been looked at already
constexpr std::int64_t kMoveInVain = 20;        // costs as much as looking at so many segments
constexpr std::size_t kPartsTried = 8;
constexpr std::size_t kGapsTried = 8;
constexpr std::size_t kGapsTriedInHaste = 3;
constexpr std::int32_t kNeighbours = 64;    // segments on either side of a gap
constexpr std::int64_t kSlideMoves = 4096;  // requests that one gathering may need

}  // namespace

Mending::Chain Mending::WholeFile(std::int32_t file) const {
  Chain chain{file, space_.SizeOf(file), true, {}};
  chain.parts.reserve(static_cast<std::size_t>(space_.PiecesOf(file)));
  std::int32_t offset = 0;
  for (std::int32_t piece = space_.FirstPiece(file); piece != ClusterSpace::kNone;
       piece = space_.At(piece).next) {
    chain.parts.push_back({offset, space_.At(piece).lcn, space_.At(piece).length, piece});
    offset += space_.At(piece).length;
  }
  return chain;
}

Mending::Chain Mending::PartOf(const Chain& chain, std::size_t first, std::size_t count) const {
  const auto begin = chain.parts.begin() + static_cast<std::ptrdiff_t>(first);
  Chain part{chain.file, 0, false, {begin, begin + static_cast<std::ptrdiff_t>(count)}};
  for (Part& each : part.parts) {
    each.offset = part.size;
    part.size += each.length;
  }
  return part;
}

bool Mending::Owns(const Chain& chain, const ClusterSpace::Piece& piece) const {
  return piece.file == chain.file &&
         (chain.whole || std::any_of(chain.parts.begin(), chain.parts.end(),
                                     [&](const Part& part) { return part.lcn == piece.lcn; }));
}

std::vector<Mending::Part> Mending::LongestParts(const Chain& chain) const {
  std::vector<Part> parts = chain.parts;
  const auto count = static_cast<std::ptrdiff_t>(std::min(parts.size(), kPartsTried));
  std::partial_sort(parts.begin(), parts.begin() + count, parts.end(),
                    [](const Part& a, const Part& b) {
                      return a.length != b.length ? a.length > b.length : a.lcn < b.lcn;
                    });
  parts.resize(static_cast<std::size_t>(count));
  return parts;
}

// Clusters that stay when the chain is to begin there.
std::int32_t Mending::InPlace(const Chain& chain, std::int32_t start) {
  std::int32_t clusters = 0;
  for (const Part& part : chain.parts) {
    if (part.lcn == start + part.offset) clusters += part.length;
  }
  return clusters;
}

// Where the part stays, when nobody else has anything there.
std::optional<Mending::Place> Mending::FreePlaceAround(const Chain& chain, const Part& part) const {
  const Run window{part.lcn - part.offset, chain.size};
  if (window.lcn < 0 || window.lcn > space_.Clusters() - window.length) return std::nullopt;
  if (space_.AlignedUp(window.lcn, chain.parts.front().lcn) != window.lcn) return std::nullopt;
  const auto in_the_way = [&](std::int32_t piece) {
    return piece != ClusterSpace::kNone && space_.At(piece).Clusters().Meets(window);
  };
  std::int32_t below = space_.At(part.piece).below;
  while (in_the_way(below) && Owns(chain, space_.At(below))) below = space_.At(below).below;
  if (in_the_way(below)) return std::nullopt;
  std::int32_t above = space_.At(part.piece).above;
  while (in_the_way(above) && Owns(chain, space_.At(above))) above = space_.At(above).above;
  if (in_the_way(above)) return std::nullopt;
  return Place{window.lcn, window.length - InPlace(chain, window.lcn)};
}

std::optional<Mending::Place> Mending::BestFreePlace(const Chain& chain) const {
  std::optional<Place> best;
  const std::int32_t from = chain.parts.front().lcn;
  if (const auto gap = space_.BestFit(from, chain.size)) best = Place{gap->lcn, gap->length};
  for (const Part& part : LongestParts(chain)) {
    const auto place = FreePlaceAround(chain, part);
    if (place && (!best || place->cost < best->cost)) best = place;
  }
  return best;
}

std::int64_t Mending::CostIntoGap(std::int32_t file) const {
  const auto place = BestFreePlace(WholeFile(file));
  return place ? place->cost : kNoWay;
}

bool Mending::IntoGap(std::int32_t file) {
  const Chain chain = WholeFile(file);
  const auto place = BestFreePlace(chain);
  const std::size_t mark = space_.Moves().size();
  if (place && Bring(chain, place->start)) return true;
  space_.TakeBackTo(mark);
  if (const auto gap = space_.BestFit(chain.parts.front().lcn, chain.size)) {
    return Bring(chain, gap->lcn);
  }
  return false;
}

// By as much at a time as is free in front of it; the gap in front is at least one cluster.
bool Mending::Slide(std::int32_t from, std::int32_t to, std::int32_t length) {
  const std::int32_t step = from > to ? from - to : to - from;
  if (length / step > kSlideMoves) return false;
  for (std::int32_t done = 0; done < length; done += step) {
    const std::int32_t count = std::min(step, length - done);
    if (from > to) {
      space_.MoveRun(from + done, to + done, count);
    } else {
      const std::int32_t first = length - done - count;
      space_.MoveRun(from + first, to + first, count);
    }
  }
  return true;
}

// Each part to its place. Where parts lie in each other's way, some go aside first.
bool Mending::Bring(Chain chain, std::int32_t start) {
  const Run window{start, chain.size};
  std::vector<Part>& parts = chain.parts;
  std::erase_if(parts, [&](const Part& part) { return part.lcn == start + part.offset; });
  std::size_t set_aside = 0;
  while (!parts.empty()) {
    const std::size_t before = parts.size();
    std::erase_if(parts, [&](const Part& part) {
      const Run source{part.lcn, part.length};
      const Run target{start + part.offset, part.length};
      if (space_.IsFree(target)) {
        space_.MoveRun(space_.PieceAt(source.lcn, part.piece), source.lcn, target.lcn, part.length);
        return true;
      }
      if (!source.Meets(target)) return false;
      const Run rest = source.lcn > target.lcn ? Run{target.lcn, source.lcn - target.lcn}
                                               : Run{source.End(), target.lcn - source.lcn};
      return space_.IsFree(rest) && Slide(source.lcn, target.lcn, part.length);
    });
    if (parts.size() < before) continue;
    if (set_aside++ > before) return false;
    bool moved = false;
    for (Part& part : parts) {
      if (!window.Meets({part.lcn, part.length})) continue;
      const auto gap = space_.BestFit(part.lcn, part.length, window);
      if (!gap) continue;
      space_.MoveRun(part.lcn, gap->lcn, part.length);
      part.lcn = gap->lcn;
      moved = true;
      break;
    }
    if (!moved) return false;
  }
  return true;
}

// Everything that is not the chain's goes out of the window.
bool Mending::Vacate(const Chain& chain, const Run& window) {
  std::vector<Run> runs;
  for (std::int32_t piece = space_.PieceFrom(window.lcn);
       piece != ClusterSpace::kNone && space_.At(piece).lcn < window.End();
       piece = space_.Following(piece)) {
    if (space_.At(piece).file == ClusterSpace::kBlocked) return false;
    if (!Owns(chain, space_.At(piece))) runs.push_back(space_.At(piece).Clusters());
  }
  std::sort(runs.begin(), runs.end(), [](const Run& a, const Run& b) {
    return a.length != b.length ? a.length > b.length : a.lcn < b.lcn;
  });
  for (const Run& run : runs) {
    const std::int32_t piece = space_.PieceFrom(run.lcn);
    // Gone with another one of the same file.
    if (piece == ClusterSpace::kNone || space_.At(piece).lcn != run.lcn ||
        Owns(chain, space_.At(piece))) {
      continue;
    }
    const std::int32_t other = space_.At(piece).file;
    if (other != chain.file && space_.IsFragmented(other)) {
      const auto whole =
          space_.BestFit(space_.At(space_.FirstPiece(other)).lcn, space_.SizeOf(other), window);
      if (whole && Bring(WholeFile(other), whole->lcn)) continue;
    }
    const std::int32_t here = space_.PieceFrom(run.lcn);
    const Run clusters = space_.At(here).Clusters();
    const auto gap = space_.BestFit(clusters.lcn, clusters.length, window);
    if (!gap) return false;
    space_.MoveRun(here, clusters.lcn, gap->lcn, clusters.length);
  }
  return true;
}

// From the one at lcn on, up to the first that ends at `end` or behind.
const std::vector<Mending::Segment>& Mending::Segments(std::int32_t file, std::int32_t lcn,
                                                       std::int32_t end, std::size_t most) {
  const std::int32_t largest = space_.LargestGap().length;
  std::vector<Segment>& segments = segments_;
  segments.clear();
  std::int64_t evicted = 0;
  std::int32_t blocked = 0;
  space_.Visit(lcn, [&](const ClusterSpace::Piece& at) {
    if (at.file == ClusterSpace::kBlocked || (at.file != file && at.length > largest)) {
      ++blocked;
    } else if (at.file != file) {
      evicted += at.length;
    }
    segments.push_back({at.lcn, at.Clusters().End(), at.file, evicted, blocked});
    return segments.size() < most && at.Clusters().End() < end;
  });
  return segments;
}

bool Mending::Cheaper(const Place& a, const Place& b) {
  return a.cost != b.cost ? a.cost < b.cost : a.start < b.start;
}

// Among the cheapest ones, a heap with the dearest of them in front.
void Mending::Offer(std::vector<Place>& places, const Place& place) {
  if (places.size() == kPlacesTried * 2) {
    if (!Cheaper(place, places.front())) return;
    std::pop_heap(places.begin(), places.end(), Cheaper);
    places.pop_back();
  }
  places.push_back(place);
  std::push_heap(places.begin(), places.end(), Cheaper);
}

// Places that begin or end where a segment or a gap does, among these segments. Where they do not
// go on to the end of the volume, what is behind the last one is not looked at.
void Mending::Sweep(const Chain& chain, const std::vector<Segment>& segments,
                    std::vector<Place>& places) const {
  const std::int32_t size = chain.size;
  if (segments.empty()) return;
  const std::int32_t begin = segments.front().lcn;
  const std::int32_t end = segments.back().end;
  const auto gap_above = [&](std::size_t i) {
    return i + 1 == segments.size() || segments[i + 1].lcn > segments[i].end;
  };
  const auto family = [&](bool of_ends, auto start_at) {
    std::size_t first = 0;
    std::size_t last = 0;
    for (std::size_t i = 0; i < segments.size(); ++i) {
      if (of_ends && !gap_above(i)) continue;  // where one ends the next begins
      const std::int32_t start = space_.AlignedUp(start_at(i), chain.parts.front().lcn);
      if (start < begin || start > end - size) continue;
      while (first < segments.size() && segments[first].end <= start) ++first;
      while (last < segments.size() && segments[last].lcn < start + size) ++last;
      std::int64_t evicted = 0;
      if (first < last) {
        const Segment before = first == 0 ? Segment{} : segments[first - 1];
        if (segments[last - 1].blocked != before.blocked) continue;
        evicted = segments[last - 1].evicted - before.evicted;
      }
      Offer(places, {start, evicted + size});
    }
  };
  family(false, [&](std::size_t i) { return segments[i].lcn; });
  family(false, [&](std::size_t i) { return segments[i].lcn - size; });
  family(true, [&](std::size_t i) { return segments[i].end; });
  family(true, [&](std::size_t i) { return segments[i].end - size; });
}

// The cheapest, cheapest first.
std::vector<Mending::Place> Mending::PlacesToVacate(const Chain& chain) {
  std::vector<Place> places;
  std::vector<Segment>& segments = segments_;
  const auto around = [&](const Run& gap) {
    const std::int32_t far = far_ ? space_.Clusters() : chain.size;
    const std::int32_t begin = std::max(space_.LcnBefore(gap.lcn, kNeighbours), gap.lcn - far);
    const std::int32_t behind = std::min(far, space_.Clusters() - gap.End());
    Segments(chain.file, begin, gap.End() + behind, 2 * kNeighbours);
    scan_budget_ -= std::ssize(segments);
    Sweep(chain, segments, places);
  };
  if (scan_budget_ > space_.PieceCount()) {
    Segments(chain.file, 0, space_.Clusters(), std::numeric_limits<std::size_t>::max());
    // The gap at the end belongs to the last segment's neighbourhood.
    if (!segments.empty() && segments.back().end < space_.Clusters()) {
      segments.push_back({space_.Clusters(), space_.Clusters(), ClusterSpace::kBlocked,
                          segments.back().evicted, segments.back().blocked});
    }
    scan_budget_ -= std::ssize(segments);
    Sweep(chain, segments, places);
  } else {
    const std::size_t count = scan_budget_ > 0 ? kGapsTried : kGapsTriedInHaste;
    for (const Run& gap : space_.LargestGaps(count)) around(gap);
  }
  for (const Part& part : LongestParts(chain)) {
    const std::int32_t start = part.lcn - part.offset;
    if (start < 0 || start > space_.Clusters() - chain.size) continue;
    if (space_.AlignedUp(start, chain.parts.front().lcn) != start) continue;
    std::int64_t evicted = 0;
    bool blocked = false;
    space_.Visit(start, [&](const ClusterSpace::Piece& at) {
      if (at.lcn >= start + chain.size) return false;
      blocked |= at.file == ClusterSpace::kBlocked;
      if (at.file != chain.file) evicted += at.length;
      return !blocked;
    });
    if (!blocked) Offer(places, {start, evicted + chain.size - InPlace(chain, start)});
  }
  std::sort(places.begin(), places.end(), Cheaper);
  places.erase(std::unique(places.begin(), places.end(),
                           [](const Place& a, const Place& b) { return a.start == b.start; }),
               places.end());
  const std::size_t tried = scan_budget_ > 0 ? kPlacesTried : kPlacesTriedInHaste;
  if (places.size() > tried) places.resize(tried);
  return places;
}

bool Mending::IntoVacatedPlace(std::int32_t file, std::int64_t limit) {
  const Chain chain = WholeFile(file);
  const std::int64_t before = space_.ClustersMoved();
  for (const Place& place : PlacesToVacate(chain)) {
    const std::size_t mark = space_.Moves().size();
    if (Vacate(chain, {place.start, chain.size}) && Bring(chain, place.start) &&
        space_.ClustersMoved() - before <= limit) {
      return true;
    }
    scan_budget_ -= kMoveInVain * static_cast<std::int64_t>(space_.Moves().size() - mark);
    space_.TakeBackTo(mark);
  }
  return false;
}

// The stretch with the least in it that has enough free clusters between its ends, which are gaps.
bool Mending::IntoGatheredGap(std::int32_t file, std::int64_t limit) {
  if (space_.Alignment() > 1) return false;
  const std::int32_t size = space_.SizeOf(file);
  if (space_.FreeClusters() < size) return false;
  if (space_.PieceCount() < kScanBudget) {
    if (scan_budget_ < space_.PieceCount()) return false;
    scan_budget_ -= space_.PieceCount();
  } else if (gathers_ > 0) {
    --gathers_;
  } else {
    return false;
  }
  struct Stretch {
    std::int64_t used = Mending::kNoWay;
    std::int32_t begin = 0;  // LCN
    std::int32_t end = 0;
  } best;
  // From the gap below the first piece to that below the last, kNone being behind all.
  std::int32_t first = space_.Following(ClusterSpace::kNone);
  std::int64_t free = 0;
  std::int64_t used = 0;
  for (std::int32_t last = first;; last = space_.At(last).above) {
    free += space_.GapBelow(last).length;
    while (free - space_.GapBelow(first).length >= size) {
      free -= space_.GapBelow(first).length;
      used -= space_.At(first).length;
      first = space_.At(first).above;
    }
    if (free >= size && used < best.used) {
      best = {used, space_.GapBelow(first).lcn, space_.GapBelow(last).End()};
    }
    if (last == ClusterSpace::kNone) break;
    if (space_.At(last).file == ClusterSpace::kBlocked) {
      first = space_.At(last).above;
      free = used = 0;
    } else {
      used += space_.At(last).length;
    }
  }
  if (best.used == kNoWay || best.used + size > limit) return false;
  const std::int64_t before = space_.ClustersMoved();
  const std::size_t mark = space_.Moves().size();
  std::int32_t cursor = best.begin;
  for (;;) {
    const std::int32_t piece = space_.PieceFrom(cursor);
    if (piece == ClusterSpace::kNone || space_.At(piece).lcn >= best.end) break;
    const Run clusters = space_.At(piece).Clusters();
    if (clusters.lcn > cursor && !Slide(clusters.lcn, cursor, clusters.length)) {
      space_.TakeBackTo(mark);
      return false;
    }
    cursor += clusters.length;
  }
  if (Bring(WholeFile(file), cursor) && space_.ClustersMoved() - before <= limit) return true;
  space_.TakeBackTo(mark);
  return false;
}

// The most pieces that follow each other and have a place together, cheapest first.
bool Mending::IntoFewerPieces(std::int32_t file) {
  const Chain whole = WholeFile(file);
  const std::vector<Part>& parts = whole.parts;
  const std::int32_t largest = space_.LargestGap().length;
  std::size_t best_first = 0;
  std::size_t best_count = 1;
  std::optional<Place> best;
  const auto consider = [&](std::size_t chain_first, std::size_t count) {
    if (count < 2 || count < best_count) return;
    const auto place = BestFreePlace(PartOf(whole, chain_first, count));
    if (!place || (count == best_count && best && best->cost <= place->cost)) return;
    best_first = chain_first;
    best_count = count;
    best = place;
  };
  std::size_t first = 0;
  std::int64_t length = 0;
  for (std::size_t last = 0; last < parts.size(); ++last) {
    length += parts[last].length;
    while (length > largest) length -= parts[first++].length;
    consider(first, last + 1 - first);
  }
  for (first = 0; best_count <= 2 && first + 1 < parts.size(); ++first) consider(first, 2);
  return best && Bring(PartOf(whole, best_first, best_count), best->start);
}

}  // namespace vornalux::plan
