// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/plan/final_places.h"

#include <algorithm>
#include <iterator>
#include <limits>

namespace vornalux::plan {
namespace {

constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
constexpr std::int32_t kNone = ClusterSpace::kNone;
constexpr std::int64_t kWasteAllowed = 200;  // one of so many free clusters may stay in front
constexpr std::int64_t kWorthMoving = 4;     // clusters to be moved for one that is gained
constexpr int kTries = 60;                   // files to begin a gap with
constexpr int kTriesInHaste = 4;
constexpr int kLargest = 8;  // files that others make room for
constexpr std::size_t kSummands = 120;
constexpr std::int32_t kLongestSum = 60'000;
constexpr std::int64_t kWork = 30'000'000;  // steps of looking for sums
constexpr std::int64_t kMostWork = 3 * kWork;

std::size_t Index(std::int32_t number) { return static_cast<std::size_t>(number); }

}  // namespace

std::int32_t FirstFreeLcn(const ClusterSpace& space) {
  std::int64_t left = 0;
  for (std::int32_t file = 0; file < space.FileCount(); ++file) left += space.SizeOf(file);
  std::int32_t begin = 0;  // behind what is blocked
  bool found = false;
  const auto take_until = [&](std::int32_t end) {
    found = end - begin >= left;
    if (found) return;
    left -= end - begin;
  };
  space.Visit(0, [&](const ClusterSpace::Piece& piece) {
    if (piece.file != ClusterSpace::kBlocked) return true;
    take_until(piece.lcn);
    if (!found) begin = piece.Clusters().End();
    return !found;
  });
  return begin + static_cast<std::int32_t>(left);
}

FinalPlaces::FinalPlaces(const ClusterSpace& space, std::int32_t ceiling, const Keeping& keeping)
    : space_(space), ceiling_(ceiling), starts_(Index(space.FileCount()), kNone) {
  SortOut(MostKept(space, ceiling, keeping));
  PlaceTheLargest();
  FillGaps();
  PlaceTheRest();
}

// As much as it may take, with what is in front of it for the alignment.
std::int32_t FinalPlaces::RoomFor(std::int32_t file) const {
  return space_.SizeOf(file) + space_.Alignment() - 1;
}

std::int32_t FinalPlaces::StartAt(std::int32_t file, std::int32_t lcn) const {
  return space_.AlignedUp(lcn, space_.At(space_.FirstPiece(file)).lcn);
}

void FinalPlaces::SortOut(const std::vector<KeptPlace>& kept) {
  std::vector<Fixed> fixed;
  std::vector<bool> is_loose(Index(space_.FileCount()), true);
  for (const KeptPlace& place : kept) {
    fixed.push_back({place});
    is_loose[Index(place.file)] = false;
    if (space_.IsFragmented(place.file)) starts_[Index(place.file)] = place.lcn;
  }
  room_ = ceiling_ + space_.FreeClusters() / kWasteAllowed;
  space_.Visit(0, [&](const ClusterSpace::Piece& piece) {
    const bool blocked = piece.file == ClusterSpace::kBlocked;
    if (!blocked || piece.lcn < ceiling_) room_ -= piece.length;
    if (blocked) fixed.push_back({{piece.lcn, piece.Clusters().End(), piece.file, piece.length}});
    return true;
  });
  std::sort(fixed.begin(), fixed.end());
  fixed_.Assign(fixed);
  std::vector<BySize> loose;
  for (std::int32_t file = 0; file < space_.FileCount(); ++file) {
    if (is_loose[Index(file)] && space_.SizeOf(file) > 0) loose.push_back({RoomFor(file), file});
  }
  std::sort(loose.begin(), loose.end());
  loose_.Assign(loose);
}

// For which there will be no gap, though there is room between what is blocked.
void FinalPlaces::PlaceTheLargest() {
  std::int32_t longest = 0;
  EachGap([&](const Run& gap) { longest = std::max(longest, gap.length); });
  for (int i = 0; i < kLargest && loose_.Begin() != loose_.End(); ++i) {
    const BySize largest = loose_.At(loose_.Previous(loose_.End()));
    if (largest.size <= longest) return;
    std::int32_t start = CheapestPlace(largest.number, ceiling_);
    if (start == kNone) start = CheapestPlace(largest.number, space_.Clusters());
    if (start == kNone) return;
    const std::int32_t end = start + space_.SizeOf(largest.number);
    loose_.Erase(largest);
    for (FixedPlace at = fixed_.LowerBound(At(end)); at != fixed_.Begin();) {
      const Fixed other = fixed_.At(fixed_.Previous(at));
      if (other.end <= start) break;
      fixed_.Erase(other);
      starts_[Index(other.file)] = kNone;
      loose_.Insert({RoomFor(other.file), other.file});
      at = fixed_.LowerBound(At(end));
    }
    fixed_.Insert({{start, end, largest.number, 0}});
    starts_[Index(largest.number)] = start;
  }
}

// Beginning or ending where another does, up to the limit, with the least in the way; kNone where
// there is no room.
std::int32_t FinalPlaces::CheapestPlace(std::int32_t file, std::int32_t limit) const {
  const std::int32_t size = space_.SizeOf(file);
  std::int32_t best = kNone;
  std::int64_t least = std::numeric_limits<std::int64_t>::max();
  const auto consider = [&](std::int32_t lcn) {
    const std::int32_t start = StartAt(file, lcn);
    if (start < 0 || start > limit - size) return;
    std::int64_t in_the_way = 0;
    for (FixedPlace at = fixed_.LowerBound(At(start + size)); at != fixed_.Begin();) {
      at = fixed_.Previous(at);
      if (fixed_.At(at).end <= start) break;
      // A file that was given its place has no clusters there that count, and keeps it.
      if (fixed_.At(at).file == ClusterSpace::kBlocked || fixed_.At(at).kept == 0) return;
      in_the_way += fixed_.At(at).kept;
      if (in_the_way >= least) return;
    }
    best = start;
    least = in_the_way;
  };
  EachGap([&](const Run& gap) {
    consider(gap.lcn);
    consider(gap.End() - size);
  });
  return best;
}

std::int32_t FinalPlaces::BeginBefore(const FixedPlace& fixed) const {
  return fixed == fixed_.Begin() ? 0 : fixed_.At(fixed_.Previous(fixed)).end;
}

std::int32_t FinalPlaces::EndAt(const FixedPlace& fixed) const {
  return fixed == fixed_.End() ? space_.Clusters() : fixed_.At(fixed).lcn;
}

template <typename Visitor>
void FinalPlaces::EachGap(Visitor visit) const {
  std::int32_t begin = 0;
  for (FixedPlace at = fixed_.Begin();; at = fixed_.Next(at)) {
    if (EndAt(at) > begin) visit(Run{begin, EndAt(at) - begin});
    if (at == fixed_.End()) return;
    begin = fixed_.At(at).end;
  }
}

// The largest sum of loose files that is not above the length; several ways of taking large ones
// first, then sums of small ones.
FinalPlaces::Choice FinalPlaces::LargestSum(std::int32_t length) {
  Choice best;
  auto first = loose_.LowerBound({length, kMost});
  const int tries = work_ < kWork ? kTries : kTriesInHaste;
  for (int i = 0; i < tries && best.sum < length && first != loose_.Begin(); ++i) {
    first = loose_.Previous(first);
    TryFrom(length, first, best);
  }
  if (best.sum < length && length <= kLongestSum && work_ < kWork) TrySums(length, best);
  return best;
}

// That one, and always the largest behind it that still fits.
void FinalPlaces::TryFrom(std::int32_t length, SortedChunks<BySize>::Place at, Choice& best) {
  Choice choice;
  for (BySize last = loose_.At(at);;) {
    choice.files.push_back(last.number);
    choice.sum += last.size;
    // All that are chosen are larger, or as large and behind.
    at = loose_.LowerBound(std::min(last, BySize{length - choice.sum, kMost}));
    if (at == loose_.Begin()) break;
    at = loose_.Previous(at);
    last = loose_.At(at);
  }
  work_ += 10 * std::ssize(choice.files);
  if (choice.sum > best.sum) best = std::move(choice);
}

// All sums of some of the files: the small ones, that most sums need, and a choice of the others.
void FinalPlaces::TrySums(std::int32_t length, Choice& best) {
  std::vector<BySize> files;
  std::vector<BySize> larger;
  for (auto at = loose_.Begin(); at != loose_.End() && loose_.At(at).size <= length;
       at = loose_.Next(at)) {
    (files.size() < kSummands ? files : larger).push_back(loose_.At(at));
    if (larger.size() >= 100 * kSummands) break;
  }
  work_ += std::ssize(larger);
  const std::size_t step = larger.size() / kSummands + 1;
  for (std::size_t i = 0; i < larger.size(); i += step) files.push_back(larger[i]);
  // The large ones first: the small ones are worth more in other gaps.
  std::reverse(files.begin(), files.end());
  constexpr std::int16_t kOpen = -1;
  constexpr std::int16_t kReached = -2;
  std::vector<std::int16_t> last(Index(length) + 1, kOpen);  // the file that a sum was reached with
  last[0] = kReached;
  for (std::size_t i = 0; i < files.size(); ++i) {
    for (std::int32_t sum = length; sum >= files[i].size; --sum) {
      if (last[Index(sum)] == kOpen && last[Index(sum - files[i].size)] != kOpen) {
        last[Index(sum)] = static_cast<std::int16_t>(i);
      }
    }
    work_ += length;
  }
  std::int32_t sum = length;
  while (sum > best.sum && last[Index(sum)] == kOpen) --sum;
  if (sum <= best.sum) return;
  best = {{}, sum};
  while (sum > 0) {
    const BySize& file = files[Index(last[Index(sum)])];
    best.files.push_back(file.number);
    sum -= file.size;
  }
}

void FinalPlaces::Take(const Choice& choice, std::int32_t lcn) {
  for (const std::int32_t file : choice.files) {
    loose_.Erase({RoomFor(file), file});
    lcn = StartAt(file, lcn);
    fillings_.Insert({lcn, file});
    lcn += space_.SizeOf(file);
  }
}

// What fills a gap is loose again.
void FinalPlaces::Reopen(const Run& gap) {
  if (gap.length <= 0) return;
  const auto in_gap = [&] {
    const auto at = fillings_.LowerBound({gap.lcn, 0});
    return at != fillings_.End() && fillings_.At(at).lcn < gap.End() ? at : fillings_.End();
  };
  std::int32_t filled = 0;
  for (auto at = in_gap(); at != fillings_.End(); at = in_gap()) {
    const Filling filling = fillings_.At(at);
    fillings_.Erase(filling);
    loose_.Insert({RoomFor(filling.file), filling.file});
    filled += RoomFor(filling.file);
  }
  const auto open = open_.LowerBound({gap.length, gap.lcn});
  if (open != open_.End() && open_.At(open).size == gap.length &&
      open_.At(open).number == gap.lcn) {
    open_.Erase({gap.length, gap.lcn});
  } else {
    wasted_ -= gap.length - filled;
  }
}

// Makes one gap of the two beside it.
void FinalPlaces::Release(const FixedPlace& fixed) {
  const Fixed gone = fixed_.At(fixed);
  const std::int32_t begin = BeginBefore(fixed);
  const std::int32_t end = EndAt(fixed_.Next(fixed));
  Reopen({begin, gone.lcn - begin});
  if (end <= ceiling_) Reopen({gone.end, end - gone.end});
  fixed_.Erase(gone);
  starts_[Index(gone.file)] = kNone;
  loose_.Insert({RoomFor(gone.file), gone.file});
  if (end <= ceiling_) open_.Insert({end - begin, begin});
}

void FinalPlaces::FillGaps() {
  std::vector<BySize> gaps;
  EachGap([&](const Run& gap) {
    if (gap.End() <= ceiling_) gaps.push_back({gap.length, gap.lcn});
  });
  std::sort(gaps.begin(), gaps.end());
  open_.Assign(gaps);
  while (open_.Begin() != open_.End()) {
    space_.Checkpoint();
    const BySize gap = open_.At(open_.Begin());
    const Choice choice = LargestSum(gap.size);
    const std::int32_t waste = gap.size - choice.sum;
    if (waste > 0 && work_ < kMostWork) {
      const FixedPlace right = fixed_.LowerBound(At(gap.number));
      const auto kept = [&](const FixedPlace& at) {
        return at == fixed_.End() || fixed_.At(at).file == ClusterSpace::kBlocked
                   ? kMost
                   : fixed_.At(at).kept;
      };
      const FixedPlace left = right == fixed_.Begin() ? fixed_.End() : fixed_.Previous(right);
      const FixedPlace cheaper = kept(left) <= kept(right) ? left : right;
      if (kept(cheaper) < kMost &&
          (wasted_ + waste > room_ || kept(cheaper) < kWorthMoving * waste)) {
        Release(cheaper);
        continue;
      }
    }
    open_.Erase(gap);
    wasted_ += waste;
    Take(choice, gap.number);
  }
}

// Behind the gaps, the largest first.
void FinalPlaces::PlaceTheRest() {
  std::vector<Run> rooms;
  EachGap([&](const Run& gap) {
    if (gap.End() > ceiling_) rooms.push_back(gap);
  });
  for (auto at = loose_.End(); at != loose_.Begin();) {
    at = loose_.Previous(at);
    const BySize& entry = loose_.At(at);
    const auto room = std::find_if(rooms.begin(), rooms.end(),
                                   [&](const Run& each) { return each.length >= entry.size; });
    if (room == rooms.end()) continue;
    starts_[Index(entry.number)] = StartAt(entry.number, room->lcn);
    *room = {room->lcn + entry.size, room->length - entry.size};
  }
  for (auto at = fillings_.Begin(); at != fillings_.End(); at = fillings_.Next(at)) {
    starts_[Index(fillings_.At(at).file)] = fillings_.At(at).lcn;
  }
}

}  // namespace vornalux::plan
