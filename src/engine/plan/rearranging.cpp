// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/plan/rearranging.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <utility>

namespace vornalux::plan {
namespace {

constexpr std::int32_t kNone = ClusterSpace::kNone;
constexpr std::int32_t kShortSlide = 64;   // requests, rather than going aside and back
constexpr std::int32_t kLongSlide = 4096;  // requests at most
constexpr std::int32_t kParts = 64;        // of a piece
constexpr std::int32_t kMorePieces = 2;
constexpr int kGapsSeen = 300;  // behind all targets
constexpr std::size_t kTargetsTried = 200;
constexpr std::size_t kTargetsSeenInHaste = 64;  // when many have been looked at already

}  // namespace

Rearranging::Rearranging(ClusterSpace& space, const std::vector<std::int32_t>& starts)
    : space_(space) {
  for (std::int32_t file = 0; file < space.FileCount(); ++file) {
    pieces_.push_back(space.PiecesOf(file));
    std::int32_t target = starts[static_cast<std::size_t>(file)];
    if (target == kNone) continue;
    for (std::int32_t piece = space.FirstPiece(file); piece != kNone;
         piece = space.At(piece).next) {
      const Run run = space.At(piece).Clusters();
      if (run.lcn != target) items_.push_back({run.lcn, run.length, target});
      target += run.length;
    }
    behind_ = std::max(behind_, target);
  }
  std::sort(items_.begin(), items_.end(),
            [](const Item& a, const Item& b) { return a.target < b.target; });
  std::vector<ByLcn> waiting;
  for (const Item& item : items_) {
    waiting.push_back({item.lcn, static_cast<std::int32_t>(waiting.size())});
  }
  std::sort(waiting.begin(), waiting.end());
  waiting_.Assign(waiting);
  left_ = std::ssize(items_);
}

bool Rearranging::CarryOut() {
  for (std::int32_t item = 0; item < std::ssize(items_); ++item) Queue(item);
  std::int64_t left = left_ + 1;  // when those behind were brought forward
  std::size_t none_worse = 0;     // moves after which no file was in more pieces than before
  for (;;) {
    SettleQueued();
    undo_.clear();
    if (left_ == 0) return true;
    if (SettleParts() || ClearOneTarget()) continue;
    if (std::exchange(left, left_) > left_ && BringForward()) continue;
    if (more_pieces_ == 0) none_worse = space_.Moves().size();
    if (++more_pieces_ > kMorePieces) break;
    left = left_ + 1;
    for (std::int32_t item = 0; item < std::ssize(items_); ++item) Queue(item);
  }
  std::int32_t file = 0;
  const auto worse = [&](std::int32_t pieces) { return space_.PiecesOf(file++) > pieces; };
  if (std::any_of(pieces_.begin(), pieces_.end(), worse)) space_.TakeBackTo(none_worse);
  return false;
}

void Rearranging::SettleQueued() {
  while (!queue_.empty()) {
    const std::int32_t item = queue_.front();
    queue_.pop_front();
    At(item).queued = false;
    space_.Checkpoint();
    if (!Settle(item) && !At(item).done) seen_in_parts_.push_back(item);
  }
}

void Rearranging::Queue(std::int32_t item) {
  if (At(item).queued || At(item).done) return;
  At(item).queued = true;
  queue_.push_back(item);
}

void Rearranging::QueueThoseAt(const Run& freed) {
  auto item =
      std::upper_bound(items_.begin(), items_.end(), freed.lcn,
                       [](std::int32_t lcn, const Item& each) { return lcn < each.target; });
  if (item != items_.begin()) --item;
  for (; item != items_.end() && item->target < freed.End(); ++item) {
    Queue(static_cast<std::int32_t>(item - items_.begin()));
  }
}

bool Rearranging::InTheWay(std::int32_t item, std::vector<std::int32_t>& others) {
  others.clear();
  const Run target = At(item).Target();
  const auto overlap = [&](const Run& run) {
    return std::min(run.End(), target.End()) - std::max(run.lcn, target.lcn);
  };
  std::int64_t known = 0;
  auto at = waiting_.LowerBound({target.lcn, 0});
  if (at != waiting_.Begin()) at = waiting_.Previous(at);
  for (; at != waiting_.End() && waiting_.At(at).lcn < target.End(); at = waiting_.Next(at)) {
    const std::int32_t other = waiting_.At(at).item;
    if (overlap(At(other).Source()) <= 0) continue;
    known += overlap(At(other).Source());
    if (other != item) others.push_back(other);
  }
  std::int64_t used = 0;
  space_.Visit(target.lcn, [&](const ClusterSpace::Piece& piece) {
    if (piece.lcn >= target.End()) return false;
    used += overlap(piece.Clusters());
    return true;
  });
  return used == known;
}

void Rearranging::MoveTo(std::int32_t item, std::int32_t lcn) {
  Item& each = At(item);
  const Run source = each.Source();
  space_.MoveRun(source.lcn, lcn, source.length);
  undo_.push_back({item, each});
  waiting_.Erase({source.lcn, item});
  each.lcn = lcn;
  if (lcn == each.target) {
    // Its neighbours in the file can be moved in parts now.
    for (const std::int32_t beside : {item - 1, item + 1}) {
      if (beside >= 0 && beside < std::ssize(items_)) Queue(beside);
    }
    each.done = true;
    --left_;
  } else {
    waiting_.Insert({lcn, item});
  }
  QueueThoseAt(source);
}

// By as much at a time as is free in front of it.
bool Rearranging::Slide(std::int32_t item) {
  Item& each = At(item);
  const std::int32_t from = each.lcn;
  const std::int32_t to = each.target;
  const std::int32_t step = std::abs(from - to);
  if (each.length / step > kLongSlide) return false;
  for (std::int32_t done = 0; done < each.length; done += step) {
    const std::int32_t count = std::min(step, each.length - done);
    const std::int32_t first = from > to ? done : each.length - done - count;
    space_.MoveRun(from + first, to + first, count);
  }
  undo_.push_back({item, each});
  waiting_.Erase({from, item});
  each.lcn = to;
  each.done = true;
  --left_;
  QueueThoseAt({from, each.length});
  return true;
}

// To its target, when that is free.
bool Rearranging::Settle(std::int32_t item) {
  const Item each = At(item);
  std::vector<std::int32_t> others;
  if (each.done || !InTheWay(item, others) || !others.empty()) return false;
  const std::int32_t step = std::abs(each.lcn - each.target);
  if (step < each.length) {
    const bool short_slide = each.length / step <= kShortSlide;
    if (short_slide || !SetAside(item, each.Target())) return Slide(item);
  }
  MoveTo(item, each.target);
  return true;
}

// What is free at the begin or the end of a target takes that much of its piece.
bool Rearranging::SettleParts() {
  bool any = false;
  for (const std::int32_t item : std::exchange(seen_in_parts_, {})) any |= SettlePart(item);
  return any;
}

bool Rearranging::SettlePart(std::int32_t item) {
  const Item& each = At(item);
  if (each.done) return false;
  const auto free_until = [&](std::int32_t piece) {
    return std::min(piece == kNone ? space_.Clusters() : space_.At(piece).lcn, each.Target().End());
  };
  const std::int32_t begin = free_until(space_.PieceFrom(each.target)) - each.target;
  if (begin > 0 && MovePart(item, 0, begin)) return true;
  const std::int32_t last = each.Target().End() - 1;
  if (!space_.IsFree({last, 1})) return false;
  const std::int32_t end = last + 1 - std::max(space_.GapAt(last).lcn, each.target);
  return MovePart(item, each.length - end, end);
}

// As long as its file is in no more pieces than it may be.
bool Rearranging::MovePart(std::int32_t item, std::int32_t offset, std::int32_t length) {
  Item& each = At(item);
  const std::int32_t file = space_.At(space_.PieceFrom(each.lcn)).file;
  const bool whole = !space_.IsFragmented(file);
  if (length == each.length || each.length / length > kParts) return false;
  if (whole && more_pieces_ == 0) return false;
  const std::size_t moves = space_.Moves().size();
  const Run source{each.lcn + offset, length};
  space_.MoveRun(source.lcn, each.target + offset, length);
  if (space_.PiecesOf(file) > pieces_[static_cast<std::size_t>(file)] + more_pieces_) {
    space_.TakeBackTo(moves);
    return false;
  }
  waiting_.Erase({each.lcn, item});
  if (offset == 0) {
    each.lcn += length;
    each.target += length;
  }
  each.length -= length;
  waiting_.Insert({each.lcn, item});
  Queue(item);
  QueueThoseAt(source);
  return true;
}

bool Rearranging::SetAside(std::int32_t item, const Run& but_not) {
  const Item each = At(item);
  std::int32_t begin = std::max(behind_, but_not.End());
  begin = std::max(begin, space_.GapAt(begin).lcn);
  std::int32_t place = kNone;
  const auto aligned = [&] { return space_.AlignedUp(begin, each.lcn); };
  int seen = 0;
  space_.Visit(begin, [&](const ClusterSpace::Piece& piece) {
    if (piece.lcn - aligned() >= each.length) place = aligned();
    begin = std::max(begin, piece.Clusters().End());
    return place == kNone && ++seen < kGapsSeen;
  });
  if (place == kNone && seen < kGapsSeen && space_.Clusters() - aligned() >= each.length) {
    place = aligned();
  }
  if (place == kNone) {
    const auto gap = space_.BestFit(each.lcn, each.length, but_not);
    if (!gap) return false;
    place = gap->lcn;
  }
  MoveTo(item, place);
  return true;
}

// Fills gaps with what lies behind all targets, so that there is room to set others aside.
bool Rearranging::BringForward() {
  std::vector<std::int32_t> behind;
  for (auto at = waiting_.LowerBound({behind_, 0}); at != waiting_.End(); at = waiting_.Next(at)) {
    behind.push_back(waiting_.At(at).item);
  }
  SortByLength(behind);
  bool any = false;
  for (const std::int32_t item : behind) {
    const Run there{behind_, space_.Clusters() - behind_};
    const auto gap = space_.BestFit(At(item).lcn, At(item).length, there);
    if (gap) MoveTo(item, gap->lcn);
    any |= gap.has_value();
  }
  return any;
}

void Rearranging::SortByLength(std::vector<std::int32_t>& items) {
  std::sort(items.begin(), items.end(), [&](std::int32_t a, std::int32_t b) {
    return At(a).length != At(b).length ? At(a).length > At(b).length : a < b;
  });
}

// Those with the least in their way, for what they bring home.
std::vector<Rearranging::Candidate> Rearranging::Candidates() {
  std::vector<Candidate> candidates;
  const std::size_t most = targets_to_see_ > 0 ? items_.size() : kTargetsSeenInHaste;
  std::vector<std::int32_t> others;
  for (std::size_t seen = 0; seen < items_.size() && candidates.size() < most; ++seen) {
    next_candidate_ = next_candidate_ + 1 < items_.size() ? next_candidate_ + 1 : 0;
    const auto item = static_cast<std::int32_t>(next_candidate_);
    if (At(item).done || !InTheWay(item, others)) continue;
    std::int64_t in_the_way = 0;
    for (const std::int32_t other : others) in_the_way += At(other).length;
    candidates.push_back({static_cast<double>(in_the_way) / At(item).length, item});
  }
  targets_to_see_ -= std::ssize(candidates);
  const std::size_t count = std::min(candidates.size(), kTargetsTried);
  std::partial_sort(candidates.begin(), candidates.begin() + static_cast<std::ptrdiff_t>(count),
                    candidates.end(), [](const Candidate& a, const Candidate& b) {
                      return a.in_the_way != b.in_the_way ? a.in_the_way < b.in_the_way
                                                          : a.item < b.item;
                    });
  candidates.resize(count);
  return candidates;
}

bool Rearranging::ClearOneTarget() {
  for (const Candidate& candidate : Candidates()) {
    space_.Checkpoint();
    const std::size_t moves = space_.Moves().size();
    undo_.clear();
    if (Clear(candidate.item)) return true;
    TakeBack(moves);
  }
  return false;
}

// Makes room for one item. The largest in its way go first, while there is most room.
bool Rearranging::Clear(std::int32_t item) {
  std::vector<std::int32_t> others;
  if (!InTheWay(item, others)) return false;
  SortByLength(others);
  const Run target = At(item).Target();
  for (const std::int32_t other : others) {
    if (!Settle(other) && !SetAside(other, target)) return false;
  }
  // Every time one gets to its target, so that there is an end.
  return At(item).done || Settle(item);
}

void Rearranging::TakeBack(std::size_t moves) {
  space_.TakeBackTo(moves);
  for (; !undo_.empty(); undo_.pop_back()) {
    const auto& [number, before] = undo_.back();
    Item& each = At(number);
    if (!each.done) {
      waiting_.Erase({each.lcn, number});
      --left_;
    }
    const bool queued = each.queued;
    each = before;
    each.queued = queued;
    ++left_;
    waiting_.Insert({each.lcn, number});
  }
}

}  // namespace vornalux::plan
