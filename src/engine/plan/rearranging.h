// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "engine/plan/cluster_space.h"

namespace vornalux::plan {

// Brings every piece of some files to its final place, where one may lie in the way of another. A
// piece goes there as soon as all of its place is free. When none can, parts of pieces go to what
// is free of their places; then those in the way of one are set aside: whole, behind everything, or
// in any gap; then those that lie behind everything make room there. If all else fails, files may
// be in more pieces than before for some moves.
class Rearranging {
 public:
  // starts: by file, where it is to begin; kNone for those that stay.
  Rearranging(ClusterSpace& space, const std::vector<std::int32_t>& starts);

  // False when some did not get there. No file is in more pieces then than before.
  bool CarryOut();

 private:
  struct Item {
    std::int32_t lcn = 0;
    std::int32_t length = 0;
    std::int32_t target = 0;  // LCN
    bool done = false;
    bool queued = false;

    Run Source() const { return {lcn, length}; }
    Run Target() const { return {target, length}; }
  };
  struct ByLcn {
    std::int32_t lcn = 0;
    std::int32_t item = 0;
    // Two may have one LCN while moves are taken back.
    friend auto operator<=>(const ByLcn&, const ByLcn&) = default;
  };
  struct Candidate {
    double in_the_way = 0;  // clusters, for each of its own
    std::int32_t item = 0;
  };
  struct Undo {
    std::int32_t number = 0;
    Item item;
  };

  Item& At(std::int32_t item) { return items_[static_cast<std::size_t>(item)]; }
  void Queue(std::int32_t item);
  void QueueThoseAt(const Run& freed);
  void SettleQueued();
  // What else lies where the item is to lie. False when that can't be moved from here.
  bool InTheWay(std::int32_t item, std::vector<std::int32_t>& others);
  bool Settle(std::int32_t item);
  void MoveTo(std::int32_t item, std::int32_t lcn);
  bool Slide(std::int32_t item);
  bool SettleParts();
  bool SettlePart(std::int32_t item);
  bool MovePart(std::int32_t item, std::int32_t offset, std::int32_t length);
  bool SetAside(std::int32_t item, const Run& but_not);
  bool BringForward();
  void SortByLength(std::vector<std::int32_t>& items);  // from the longest on
  bool ClearOneTarget();
  std::vector<Candidate> Candidates();
  bool Clear(std::int32_t item);
  void TakeBack(std::size_t moves);

  ClusterSpace& space_;
  std::vector<Item> items_;  // by target
  SortedChunks<ByLcn> waiting_;
  std::int64_t left_ = 0;  // items waiting
  std::deque<std::int32_t> queue_;
  std::vector<std::int32_t> seen_in_parts_;  // items that were queued and could not be settled
  std::vector<std::int32_t> pieces_;         // of each file, in the beginning
  std::int32_t more_pieces_ = 0;             // that a file may be in for some moves
  std::vector<Undo> undo_;
  std::size_t next_candidate_ = 0;
  std::int64_t targets_to_see_ = 1'000'000;
  std::int32_t behind_ = 0;  // LCN behind all targets
};

}  // namespace vornalux::plan
