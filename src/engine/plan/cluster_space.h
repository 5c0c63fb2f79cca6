// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "engine/plan/sorted_chunks.h"

namespace vornalux::plan {

// Clusters [lcn, lcn + length).
struct Run {
  std::int32_t lcn = 0;
  std::int32_t length = 0;

  std::int32_t End() const { return lcn + length; }
  bool Meets(const Run& other) const { return lcn < other.End() && other.lcn < End(); }
  friend bool operator==(const Run&, const Run&) = default;
};

// The clusters of one file, in the file's order.
struct FileRuns {
  std::vector<Run> runs;  // holes left out; runs that touch count as one piece
};

// A volume to be planned. Runs lie within the volume and no two meet; what belongs to nobody here
// is free.
struct Volume {
  std::int32_t clusters = 0;
  std::vector<FileRuns> files;  // those that can be moved
  std::vector<Run> blocked;     // what cannot be moved, and free places to be kept free
  // Files, and pieces that are moved alone, move by multiples of so many clusters; pieces that come
  // to a file's first one follow it.
  std::int32_t alignment = 1;
  // Called now and then while the volume is planned; what it throws ends the planning.
  std::function<void()> checkpoint = {};
};

// One request to the file system: clusters of a file, in one run, to clusters that are free then.
struct Move {
  std::int32_t file = 0;
  std::int32_t from = 0;  // LCN
  std::int32_t to = 0;    // LCN
  std::int32_t length = 0;

  friend bool operator==(const Move&, const Move&) = default;
};

// Long; as it grows nothing is copied.
using MoveList = std::deque<Move>;

// Who has which clusters, while moves are tried, carried out and taken back. Nothing but memory.
class ClusterSpace {
 public:
  // A piece is a run of a file as long as it can be. Linked in the file's order and in the
  // volume's.
  struct Piece {
    std::int32_t lcn = 0;
    std::int32_t length = 0;
    std::int32_t file = 0;  // kBlocked: nobody's
    std::int32_t previous = kNone;
    std::int32_t next = kNone;
    std::int32_t below = kNone;
    std::int32_t above = kNone;

    Run Clusters() const { return {lcn, length}; }
  };
  static constexpr std::int32_t kNone = -1;
  static constexpr std::int32_t kBlocked = -1;

  enum class Gaps { Sorted, NotSorted };

  // Gaps that are not sorted cost nothing, and can't be asked for by their size.
  // The volume's checkpoint is called as long as the space lives.
  explicit ClusterSpace(const Volume& volume, Gaps gaps = Gaps::Sorted);

  void Checkpoint() const {
    if (*checkpoint_) (*checkpoint_)();
  }
  std::int32_t Clusters() const { return clusters_; }
  std::int32_t Alignment() const { return alignment_; }
  // The lowest from lcn on to which what lies at `from` can be moved.
  std::int32_t AlignedUp(std::int32_t lcn, std::int32_t from) const {
    if (alignment_ == 1) return lcn;  // asked often, and dividing is slow
    const std::int32_t rest = (from - lcn) % alignment_;
    return lcn + (rest < 0 ? rest + alignment_ : rest);
  }
  std::int32_t FileCount() const { return static_cast<std::int32_t>(files_.size()); }
  std::int32_t SizeOf(std::int32_t file) const { return files_[Index(file)].size; }
  std::int32_t PiecesOf(std::int32_t file) const { return files_[Index(file)].pieces; }
  // Of all files.
  std::int64_t PieceCount() const { return piece_count_; }
  bool IsFragmented(std::int32_t file) const { return PiecesOf(file) > 1; }
  // kNone for a file without clusters.
  std::int32_t FirstPiece(std::int32_t file) const { return files_[Index(file)].first; }
  const Piece& At(std::int32_t piece) const { return pieces_[Index(piece)]; }

  // The first piece that ends behind lcn, blocked ones included; kNone when there is none.
  std::int32_t PieceFrom(std::int32_t lcn) const;
  // The next one in the order of LCNs; the first for kNone.
  std::int32_t Following(std::int32_t piece) const {
    return piece == kNone ? PieceFrom(0) : At(piece).above;
  }
  // The one that begins at lcn, which most likely is this one.
  std::int32_t PieceAt(std::int32_t lcn, std::int32_t likely) const {
    return At(likely).lcn == lcn ? likely : PieceFrom(lcn);
  }
  bool IsFree(const Run& run) const;
  // Pieces in the order of LCNs, from PieceFrom(lcn) on, until one is answered with false.
  template <typename Visitor>
  void Visit(std::int32_t lcn, Visitor visitor) const {
    for (auto place = PlaceFrom(lcn); place != by_lcn_.End(); place = by_lcn_.Next(place)) {
      if (!visitor(At(by_lcn_.At(place).piece))) return;
    }
  }
  // The lcn of the piece that is `count` pieces before that one, or of the first.
  std::int32_t LcnBefore(std::int32_t lcn, std::int32_t count) const;

  std::int32_t FreeClusters() const { return free_; }
  std::int32_t GapCount() const { return gap_count_; }
  // Length 0 when nothing is free.
  Run LargestGap() const;
  // The smallest gap, the lowest of equals, of which `length` clusters at its begin or end lie
  // outside `but_not`, aligned with what lies at `from`; what is given is just those clusters.
  std::optional<Run> BestFit(std::int32_t from, std::int32_t length, const Run& but_not = {}) const;
  // The free clusters between a piece and the one below; for kNone between the highest and the end.
  Run GapBelow(std::int32_t piece) const {
    const std::int32_t begin = EndOf(piece == kNone ? highest_ : At(piece).below);
    return {begin, BeginOf(piece) - begin};
  }
  // The gap that holds a free cluster.
  Run GapAt(std::int32_t lcn) const;
  // Gaps from the largest down, at most `count`.
  std::vector<Run> LargestGaps(std::size_t count) const;

  // The source lies in one piece; the target is free.
  void MoveRun(std::int32_t from, std::int32_t to, std::int32_t length) {
    MoveRun(PieceFrom(from), from, to, length);
  }
  void MoveRun(std::int32_t piece, std::int32_t from, std::int32_t to, std::int32_t length);
  // The same, not to be taken back nor counted.
  void Follow(std::int32_t piece, const Move& move) {
    Relocate(piece, move.from, move.to, move.length);
  }
  const MoveList& Moves() const& { return moves_; }
  MoveList Moves() && { return std::move(moves_); }
  std::int64_t ClustersMoved() const { return clusters_moved_; }
  // Takes back all moves but the first `count`.
  void TakeBackTo(std::size_t count);

 private:
  struct File {
    std::int32_t size = 0;
    std::int32_t pieces = 0;
    std::int32_t first = kNone;
  };
  struct ByLcn {
    std::int32_t lcn;
    std::int32_t piece;
    friend bool operator<(const ByLcn& a, const ByLcn& b) { return a.lcn < b.lcn; }
  };
  struct BySize {
    std::int32_t length;
    std::int32_t lcn;
    friend bool operator<(const BySize& a, const BySize& b) {
      return a.length != b.length ? a.length < b.length : a.lcn < b.lcn;
    }
  };

  SortedChunks<ByLcn>::Place PlaceFrom(std::int32_t lcn) const;
  static std::size_t Index(std::int32_t number) { return static_cast<std::size_t>(number); }
  void AddFile(const FileRuns& file);
  void SortPieces();
  std::int32_t NewPiece(const Piece& piece);
  // Cuts a piece in two behind its first `length` clusters; gives the second.
  std::int32_t Split(std::int32_t piece, std::int32_t length);
  // Makes one of the piece and the one that follows it in the file, where they touch.
  void Join(std::int32_t piece);
  // The piece is the one that has `from`.
  void Relocate(std::int32_t piece, std::int32_t from, std::int32_t to, std::int32_t length);
  std::int32_t EndOf(std::int32_t piece) const {
    return piece == kNone ? 0 : At(piece).Clusters().End();
  }
  std::int32_t BeginOf(std::int32_t piece) const {
    return piece == kNone ? clusters_ : At(piece).lcn;
  }
  // In the volume's order, between two that are next to each other.
  void Link(std::int32_t piece, std::int32_t below, std::int32_t above);
  void Unlink(std::int32_t piece);
  void AddGap(const Run& gap);
  void RemoveGap(const Run& gap);

  const std::function<void()>* checkpoint_;
  std::int32_t clusters_;
  std::int32_t alignment_;
  Gaps sorted_gaps_;
  std::int32_t free_ = 0;
  std::int32_t gap_count_ = 0;
  std::int64_t piece_count_ = 0;
  std::int64_t clusters_moved_ = 0;
  std::vector<File> files_;
  std::vector<Piece> pieces_;
  std::int32_t spare_ = kNone;  // slot of pieces_ without a piece; the next one is linked to it
  SortedChunks<ByLcn> by_lcn_;
  std::int32_t highest_ = kNone;  // piece
  SortedChunks<BySize> gaps_;
  MoveList moves_;
};

}  // namespace vornalux::plan
