// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/plan/cluster_space.h"

#include <algorithm>

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
  for (const FileRuns& file : volume.files) {
    const auto number = FileCount();
    File facts;
    std::int32_t last = kNone;
    for (const Run& run : file.runs) {
      if (run.length == 0) continue;
      facts.size += run.length;
      if (last != kNone && At(last).Clusters().End() == run.lcn) {
        pieces_[Index(last)].length += run.length;
        continue;
      }
      const std::int32_t piece = NewPiece({run.lcn, run.length, number, last, kNone});
      (last == kNone ? facts.first : pieces_[Index(last)].next) = piece;
      last = piece;
      ++facts.pieces;
    }
    files_.push_back(facts);
    piece_count_ += facts.pieces;
  }
  for (const Run& run : volume.blocked) {
    if (run.length > 0) NewPiece({run.lcn, run.length, kBlocked, kNone, kNone});
  }
  std::vector<ByLcn> order;
  order.reserve(pieces_.size());
  for (std::size_t i = 0; i < pieces_.size(); ++i) {
    order.push_back({pieces_[i].lcn, static_cast<std::int32_t>(i)});
  }
  std::sort(order.begin(), order.end());
  by_lcn_.Assign(order);
  free_ = clusters_;
  for (const Piece& piece : pieces_) free_ -= piece.length;
  if (sorted_gaps_ == Gaps::NotSorted) return;
  std::vector<BySize> gaps;
  std::int32_t end = 0;
  const auto gap_until = [&](std::int32_t lcn) {
    if (lcn > end) gaps.push_back({lcn - end, end});
  };
  for (const ByLcn& entry : order) {
    gap_until(entry.lcn);
    end = At(entry.piece).Clusters().End();
  }
  gap_until(clusters_);
  std::sort(gaps.begin(), gaps.end());
  gap_count_ = static_cast<std::int32_t>(gaps.size());
  gaps_.Assign(gaps);
}

std::int32_t ClusterSpace::NewPiece(const Piece& piece) {
  if (spare_.empty()) {
    pieces_.push_back(piece);
    return static_cast<std::int32_t>(pieces_.size()) - 1;
  }
  const std::int32_t slot = spare_.back();
  spare_.pop_back();
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

std::int32_t ClusterSpace::Following(std::int32_t piece) const {
  return PieceFrom(piece == kNone ? 0 : At(piece).Clusters().End());
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
  const auto above = by_lcn_.LowerBound({lcn, 0});
  const std::int32_t end = above == by_lcn_.End() ? clusters_ : by_lcn_.At(above).lcn;
  const std::int32_t begin =
      above == by_lcn_.Begin() ? 0 : At(by_lcn_.At(by_lcn_.Previous(above)).piece).Clusters().End();
  return {begin, end - begin};
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
  pieces_[Index(piece)].length += gone.length;
  pieces_[Index(piece)].next = gone.next;
  if (gone.next != kNone) pieces_[Index(gone.next)].previous = piece;
  spare_.push_back(next);
  --files_[Index(gone.file)].pieces;
  --piece_count_;
}

void ClusterSpace::Relocate(std::int32_t piece, std::int32_t from, std::int32_t to,
                            std::int32_t length) {
  if (At(piece).lcn < from) piece = Split(piece, from - At(piece).lcn);
  if (At(piece).length > length) Split(piece, length);

  const Run gap = GapAt(to);
  RemoveGap(gap);
  AddGap({gap.lcn, to - gap.lcn});
  AddGap({to + length, gap.End() - to - length});

  by_lcn_.Erase({from, piece});
  by_lcn_.Insert({to, piece});
  pieces_[Index(piece)].lcn = to;

  const Run freed = GapAt(from);
  RemoveGap({freed.lcn, from - freed.lcn});
  RemoveGap({from + length, freed.End() - from - length});
  AddGap(freed);

  Join(piece);
  Join(At(piece).previous);
}

void ClusterSpace::MoveRun(std::int32_t from, std::int32_t to, std::int32_t length) {
  clusters_moved_ += length;
  const std::int32_t piece = PieceFrom(from);
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
