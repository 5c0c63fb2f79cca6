// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/plan/cluster_space.h"

#include <algorithm>
#include <span>
#include <utility>

namespace vornalux::plan {

ClusterSpace::ClusterSpace(const Volume& volume, Gaps gaps_kept)
    : checkpoint_(&volume.checkpoint),
      clusters_(volume.clusters),
      alignment_(volume.alignment),
      sorted_gaps_(gaps_kept) {
  files_.reserve(volume.files.size());
  std::size_t count = volume.blocked.size();
  for (const FileRuns& file : volume.files) count += file.runs.size();
  pieces_.reserve(count);
  for (const FileRuns& file : volume.files) AddFile(file);
  for (const Run& run : volume.blocked) {
    if (run.length > 0) NewPiece({run.lcn, run.length, kBlocked});
  }
  SortPieces();
  std::vector<BySize> gaps;
  const auto gap_until = [&](std::int32_t lcn) {
    const std::int32_t end = EndOf(highest_);
    if (lcn <= end) return;
    free_ += lcn - end;
    if (sorted_gaps_ == Gaps::Sorted) gaps.push_back({lcn - end, end});
  };
  for (std::int32_t piece = 0; piece < std::ssize(pieces_); ++piece) {
    gap_until(At(piece).lcn);
    Link(piece, highest_, kNone);
    by_lcn_.Append({At(piece).lcn, piece});
  }
  gap_until(clusters_);
  std::sort(gaps.begin(), gaps.end());
  gap_count_ = static_cast<std::int32_t>(gaps.size());
  gaps_.Assign(gaps);
}

void ClusterSpace::AddFile(const FileRuns& file) {
  File facts;
  std::int32_t last = kNone;
  for (const Run& run : file.runs) {
    if (run.length == 0) continue;
    facts.size += run.length;
    if (last != kNone && At(last).Clusters().End() == run.lcn) {
      pieces_[Index(last)].length += run.length;
      continue;
    }
    last = NewPiece({run.lcn, run.length, FileCount()});
    if (facts.pieces++ == 0) facts.first = last;
  }
  files_.push_back(facts);
  piece_count_ += facts.pieces;
}

// So that what lies together on the volume does so in memory, too. Links them in their files.
void ClusterSpace::SortPieces() {
  for (std::size_t i = 0; i < pieces_.size(); ++i) {
    pieces_[i].next = static_cast<std::int32_t>(i);
  }
  std::sort(pieces_.begin(), pieces_.end(),
            [](const Piece& a, const Piece& b) { return a.lcn < b.lcn; });
  std::vector<std::int32_t> place(pieces_.size());  // of those that were added first, second ...
  for (std::size_t i = 0; i < pieces_.size(); ++i) {
    place[Index(std::exchange(pieces_[i].next, kNone))] = static_cast<std::int32_t>(i);
  }
  for (File& file : files_) {
    if (file.pieces == 0) continue;
    const std::span own(place.data() + file.first, Index(file.pieces));
    file.first = own.front();
    for (std::size_t i = 1; i < own.size(); ++i) {
      pieces_[Index(own[i - 1])].next = own[i];
      pieces_[Index(own[i])].previous = own[i - 1];
    }
  }
}

std::int32_t ClusterSpace::NewPiece(const Piece& piece) {
  if (spare_ == kNone) {
    pieces_.push_back(piece);
    return static_cast<std::int32_t>(pieces_.size()) - 1;
  }
  const std::int32_t slot = std::exchange(spare_, At(spare_).next);
  pieces_[Index(slot)] = piece;
  return slot;
}

SortedChunks<ClusterSpace::ByLcn>::Place ClusterSpace::PlaceFrom(std::int32_t lcn) const {
  const auto place = by_lcn_.LowerBound({lcn, 0});
  const bool begins_there = place != by_lcn_.End() && by_lcn_.At(place).lcn == lcn;
  if (begins_there || place == by_lcn_.Begin()) return place;
  const auto before = by_lcn_.Previous(place);
  return At(by_lcn_.At(before).piece).Clusters().End() > lcn ? before : place;
}

std::int32_t ClusterSpace::PieceFrom(std::int32_t lcn) const {
  const auto place = PlaceFrom(lcn);
  return place == by_lcn_.End() ? kNone : by_lcn_.At(place).piece;
}

std::int32_t ClusterSpace::LcnBefore(std::int32_t lcn, std::int32_t count) const {
  auto place = by_lcn_.LowerBound({lcn, 0});
  for (; count > 0 && place != by_lcn_.Begin(); --count) place = by_lcn_.Previous(place);
  return place == by_lcn_.End() ? lcn : std::min(lcn, by_lcn_.At(place).lcn);
}

bool ClusterSpace::IsFree(const Run& run) const {
  if (run.lcn < 0 || run.End() > clusters_) return false;
  const auto place = PlaceFrom(run.lcn);
  return place == by_lcn_.End() || by_lcn_.At(place).lcn >= run.End();
}

Run ClusterSpace::LargestGap() const {
  if (gap_count_ == 0) return {};
  const BySize& gap = gaps_.At(gaps_.Previous(gaps_.End()));
  return {gap.lcn, gap.length};
}

std::optional<Run> ClusterSpace::BestFit(std::int32_t from, std::int32_t length,
                                         const Run& but_not) const {
  for (auto place = gaps_.LowerBound({length, 0}); place != gaps_.End();
       place = gaps_.Next(place)) {
    const BySize& gap = gaps_.At(place);
    const std::int32_t last = gap.lcn + gap.length - length;
    const Run low{AlignedUp(gap.lcn, from), length};
    if (low.lcn > last) continue;
    if (!low.Meets(but_not)) return low;
    const Run high{AlignedUp(last - alignment_ + 1, from), length};
    if (!high.Meets(but_not)) return high;
  }
  return std::nullopt;
}

std::vector<Run> ClusterSpace::LargestGaps(std::size_t count) const {
  std::vector<Run> gaps;
  for (auto place = gaps_.End(); place != gaps_.Begin() && gaps.size() < count;) {
    place = gaps_.Previous(place);
    gaps.push_back({gaps_.At(place).lcn, gaps_.At(place).length});
  }
  return gaps;
}

Run ClusterSpace::GapAt(std::int32_t lcn) const {
  const auto place = by_lcn_.LowerBound({lcn, 0});
  return GapBelow(place == by_lcn_.End() ? kNone : by_lcn_.At(place).piece);
}

void ClusterSpace::Link(std::int32_t piece, std::int32_t below, std::int32_t above) {
  pieces_[Index(piece)].below = below;
  pieces_[Index(piece)].above = above;
  if (below != kNone) pieces_[Index(below)].above = piece;
  (above == kNone ? highest_ : pieces_[Index(above)].below) = piece;
}

void ClusterSpace::Unlink(std::int32_t piece) {
  const std::int32_t below = At(piece).below;
  const std::int32_t above = At(piece).above;
  if (below != kNone) pieces_[Index(below)].above = above;
  (above == kNone ? highest_ : pieces_[Index(above)].below) = below;
}

void ClusterSpace::AddGap(const Run& gap) {
  if (gap.length <= 0 || sorted_gaps_ == Gaps::NotSorted) return;
  gaps_.Insert({gap.length, gap.lcn});
  ++gap_count_;
}

void ClusterSpace::RemoveGap(const Run& gap) {
  if (gap.length <= 0 || sorted_gaps_ == Gaps::NotSorted) return;
  gaps_.Erase({gap.length, gap.lcn});
  --gap_count_;
}

std::int32_t ClusterSpace::Split(std::int32_t piece, std::int32_t length) {
  const Piece whole = At(piece);
  const std::int32_t rest =
      NewPiece({whole.lcn + length, whole.length - length, whole.file, piece, whole.next});
  Link(rest, piece, whole.above);
  pieces_[Index(piece)].length = length;
  pieces_[Index(piece)].next = rest;
  if (whole.next != kNone) pieces_[Index(whole.next)].previous = rest;
  by_lcn_.Insert({whole.lcn + length, rest});
  ++files_[Index(whole.file)].pieces;
  ++piece_count_;
  return rest;
}

void ClusterSpace::Join(std::int32_t piece) {
  if (piece == kNone || At(piece).next == kNone) return;
  const std::int32_t next = At(piece).next;
  const Piece gone = At(next);
  if (At(piece).Clusters().End() != gone.lcn) return;
  by_lcn_.Erase({gone.lcn, next});
  Unlink(next);
  pieces_[Index(piece)].length += gone.length;
  pieces_[Index(piece)].next = gone.next;
  if (gone.next != kNone) pieces_[Index(gone.next)].previous = piece;
  pieces_[Index(next)] = {.lcn = kNone, .next = std::exchange(spare_, next)};
  --files_[Index(gone.file)].pieces;
  --piece_count_;
}

void ClusterSpace::Relocate(std::int32_t piece, std::int32_t from, std::int32_t to,
                            std::int32_t length) {
  if (At(piece).lcn < from) piece = Split(piece, from - At(piece).lcn);
  if (At(piece).length > length) Split(piece, length);

  const auto place = by_lcn_.LowerBound({to, 0});
  std::int32_t above = place == by_lcn_.End() ? kNone : by_lcn_.At(place).piece;
  std::int32_t below = above == kNone ? highest_ : At(above).below;
  const std::int32_t gap_begin = EndOf(below);
  const std::int32_t gap_end = BeginOf(above);
  RemoveGap({gap_begin, gap_end - gap_begin});
  AddGap({gap_begin, to - gap_begin});
  AddGap({to + length, gap_end - to - length});

  if (above == piece) above = At(piece).above;
  if (below == piece) below = At(piece).below;
  const std::int32_t below_source = At(piece).below;
  const std::int32_t above_source = At(piece).above;
  Unlink(piece);
  by_lcn_.InsertAt(place, {to, piece});
  by_lcn_.Erase({from, piece});
  pieces_[Index(piece)].lcn = to;
  Link(piece, below, above);

  std::int32_t freed_begin = EndOf(below_source);
  std::int32_t freed_end = BeginOf(above_source);
  // It stays between the same neighbours.
  if (below == below_source && above == above_source) {
    (to < from ? freed_begin : freed_end) = to < from ? to + length : to;
  }
  RemoveGap({freed_begin, from - freed_begin});
  RemoveGap({from + length, freed_end - from - length});
  AddGap({freed_begin, freed_end - freed_begin});
  Join(piece);
  Join(At(piece).previous);
}

void ClusterSpace::MoveRun(std::int32_t piece, std::int32_t from, std::int32_t to,
                           std::int32_t length) {
  clusters_moved_ += length;
  moves_.push_back({At(piece).file, from, to, length});
  Relocate(piece, from, to, length);
}

void ClusterSpace::TakeBackTo(std::size_t count) {
  while (moves_.size() > count) {
    const Move move = moves_.back();
    moves_.pop_back();
    clusters_moved_ -= move.length;
    Relocate(PieceFrom(move.to), move.to, move.from, move.length);
  }
}

}  // namespace vornalux::plan
