// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/plan/rearranging.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

namespace vornalux::plan {
namespace {

constexpr std::int32_t kNone = ClusterSpace::kNone;
constexpr std::int32_t kShortSlide = 64;   // requests, rather than going aside and back
constexpr std::int32_t kLongSlide = 4096;  // requests at most
constexpr int kGapsSeen = 300;             // behind all targets
constexpr std::size_t kTargetsTried = 200;
constexpr std::size_t kTargetsSeenInHaste = 64;  // when many have been looked at already
constexpr std::size_t kGapsForParts = 30;
constexpr std::size_t kParts = 200;

}  // namespace

Rearranging::Rearranging(ClusterSpace& space, const std::vector<std::int32_t>& starts)
    : space_(space) {
  for (std::int32_t file = 0; file < space.FileCount(); ++file) {
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
  for (;;) {
    while (!queue_.empty()) {
      const std::int32_t item = queue_.front();
      queue_.pop_front();
      At(item).queued = false;
      space_.Checkpoint();
      Settle(item);
    }
    undo_.clear();
    if (left_ == 0) return true;
    if (!ClearOneTarget()) return false;
  }
}

void Rearranging::Queue(std::int32_t item) {
  if (At(item).queued || At(item).state != State::Waiting) return;
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
  undo_.push_back({item, source.lcn});
  waiting_.Erase({source.lcn, item});
  each.lcn = lcn;
  if (lcn == each.target) {
    each.state = State::Done;
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
  undo_.push_back({item, from});
  waiting_.Erase({from, item});
  each.lcn = to;
  each.state = State::Done;
  --left_;
  QueueThoseAt({from, each.length});
  return true;
}

// To its target, when that is free.
bool Rearranging::Settle(std::int32_t item) {
  const Item each = At(item);
  std::vector<std::int32_t> others;
  if (each.state != State::Waiting || !InTheWay(item, others) || !others.empty()) return false;
  const std::int32_t step = std::abs(each.lcn - each.target);
  if (step < each.length) {
    const bool short_slide = each.length / step <= kShortSlide;
    if (short_slide || !SetAside(item, each.Target())) return Slide(item);
  }
  MoveTo(item, each.target);
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

// Those with the least in their way.
std::vector<Rearranging::Candidate> Rearranging::Candidates() {
  std::vector<Candidate> candidates;
  const std::size_t most = targets_to_see_ > 0 ? items_.size() : kTargetsSeenInHaste;
  std::vector<std::int32_t> others;
  for (std::size_t seen = 0; seen < items_.size() && candidates.size() < most; ++seen) {
    next_candidate_ = next_candidate_ + 1 < items_.size() ? next_candidate_ + 1 : 0;
    const auto item = static_cast<std::int32_t>(next_candidate_);
    if (At(item).state != State::Waiting || !InTheWay(item, others)) continue;
    Candidate candidate{0, item};
    for (const std::int32_t other : others) candidate.in_the_way += At(other).length;
    candidates.push_back(candidate);
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
  const std::vector<Candidate> candidates = Candidates();
  for (const bool tear : {false, true}) {
    for (const Candidate& candidate : candidates) {
      space_.Checkpoint();
      const std::size_t moves = space_.Moves().size();
      undo_.clear();
      if (Clear(candidate.item, tear)) return true;
      TakeBack(moves);
    }
  }
  return false;
}

// Makes room for one item. The largest in its way go first, while there is most room.
bool Rearranging::Clear(std::int32_t item, bool tear) {
  std::vector<std::int32_t> others;
  if (!InTheWay(item, others)) return false;
  std::sort(others.begin(), others.end(), [&](std::int32_t a, std::int32_t b) {
    return At(a).length != At(b).length ? At(a).length > At(b).length : a < b;
  });
  const Run target = At(item).Target();
  std::vector<std::int32_t> torn;
  std::vector<std::vector<Run>> parts;
  for (const std::int32_t other : others) {
    if (Settle(other) || SetAside(other, target)) continue;
    if (!tear || space_.Alignment() > 1) return false;
    torn.push_back(other);
    parts.emplace_back();
    if (!Tear(other, target, parts.back())) return false;
  }
  // Every time one gets to its target, so that there is an end.
  if (At(item).state == State::Waiting && !Settle(item)) return false;
  for (std::size_t i = 0; i < torn.size(); ++i) {
    if (!Rejoin(torn[i], parts[i])) return false;
  }
  return true;
}

bool Rearranging::Tear(std::int32_t item, const Run& but_not, std::vector<Run>& parts) {
  Item& each = At(item);
  undo_.push_back({item, each.lcn});
  waiting_.Erase({each.lcn, item});
  each.state = State::Torn;
  --left_;
  for (std::int32_t done = 0; done < each.length;) {
    Run largest;
    for (const Run& gap : space_.LargestGaps(kGapsForParts)) {
      Run room = gap;
      if (gap.Meets(but_not)) {
        const Run low{gap.lcn, but_not.lcn - gap.lcn};
        const Run high{but_not.End(), gap.End() - but_not.End()};
        room = low.length > high.length ? low : high;
      }
      if (room.length > largest.length) largest = room;
    }
    if (largest.length <= 0 || parts.size() == kParts) return false;
    largest.length = std::min(largest.length, each.length - done);
    space_.MoveRun(each.lcn + done, largest.lcn, largest.length);
    parts.push_back(largest);
    done += largest.length;
  }
  return true;
}

bool Rearranging::Rejoin(std::int32_t item, const std::vector<Run>& parts) {
  Item& each = At(item);
  const Run source = each.Source();
  std::int32_t place = each.target;
  if (!space_.IsFree(each.Target())) {
    const auto gap = space_.BestFit(each.lcn, each.length);
    if (!gap) return false;
    place = gap->lcn;
  }
  each.lcn = place;
  for (const Run& part : parts) {
    space_.MoveRun(part.lcn, place, part.length);
    place += part.length;
    QueueThoseAt(part);
  }
  if (each.lcn == each.target) {
    each.state = State::Done;
  } else {
    each.state = State::Waiting;
    ++left_;
    waiting_.Insert({each.lcn, item});
    Queue(item);
  }
  QueueThoseAt(source);
  return true;
}

void Rearranging::TakeBack(std::size_t moves) {
  space_.TakeBackTo(moves);
  for (; !undo_.empty(); undo_.pop_back()) {
    Item& each = At(undo_.back().item);
    if (each.state == State::Waiting) {
      waiting_.Erase({each.lcn, undo_.back().item});
      --left_;
    }
    each.lcn = undo_.back().lcn;
    each.state = State::Waiting;
    ++left_;
    waiting_.Insert({each.lcn, undo_.back().item});
  }
}

}  // namespace vornalux::plan
