// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <vector>

#include "engine/plan/cluster_space.h"
#include "engine/plan/kept_places.h"

namespace vornalux::plan {

// The LCN behind which all is free when everything that can be moved lies in front of it without a
// gap.
std::int32_t FirstFreeLcn(const ClusterSpace& space);

// A volume without gaps in front of FirstFreeLcn, and what has to move for it. Files stay, or come
// to one of their pieces, where that keeps most clusters in their places; the others fill the gaps
// between them, several to a gap so that nothing is left. Where that does not come out even, one of
// the neighbours is put among the others.
class FinalPlaces {
 public:
  // The ceiling is FirstFreeLcn or above.
  FinalPlaces(const ClusterSpace& space, std::int32_t ceiling, const Keeping& keeping);

  // Where each file is to begin. kNone: it stays, or no place was left.
  const std::vector<std::int32_t>& Starts() const { return starts_; }

 private:
  // A file's place, or what is blocked.
  struct Fixed : KeptPlace {
    friend bool operator<(const Fixed& a, const Fixed& b) { return a.lcn < b.lcn; }
  };
  static Fixed At(std::int32_t lcn) { return {{.lcn = lcn}}; }
  struct BySize {
    std::int32_t size = 0;
    std::int32_t number = 0;  // a file, or the LCN of a gap
    friend bool operator<(const BySize& a, const BySize& b) {
      return a.size != b.size ? a.size < b.size : a.number < b.number;
    }
  };
  struct Filling {
    std::int32_t lcn = 0;
    std::int32_t file = 0;
    friend bool operator<(const Filling& a, const Filling& b) { return a.lcn < b.lcn; }
  };
  struct Choice {
    std::vector<std::int32_t> files;
    std::int32_t sum = 0;
  };
  using FixedPlace = SortedChunks<Fixed>::Place;

  std::int32_t RoomFor(std::int32_t file) const;
  std::int32_t StartAt(std::int32_t file, std::int32_t lcn) const;
  void SortOut(const std::vector<KeptPlace>& kept);
  void PlaceTheLargest();
  std::int32_t CheapestPlace(std::int32_t file, std::int32_t limit) const;
  void FillGaps();
  void PlaceTheRest();
  std::int32_t BeginBefore(const FixedPlace& fixed) const;  // of the gap in front of it
  std::int32_t EndAt(const FixedPlace& fixed) const;
  template <typename Visitor>
  void EachGap(Visitor visit) const;
  void Release(const FixedPlace& fixed);
  void Reopen(const Run& gap);
  Choice LargestSum(std::int32_t length);
  void TryFrom(std::int32_t length, SortedChunks<BySize>::Place at, Choice& best);
  void TrySums(std::int32_t length, Choice& best);
  void Take(const Choice& choice, std::int32_t lcn);

  const ClusterSpace& space_;
  std::int32_t ceiling_;
  std::int64_t room_ = 0;  // clusters in front of the ceiling that may stay free
  std::int64_t wasted_ = 0;
  std::int64_t work_ = 0;
  std::vector<std::int32_t> starts_;
  SortedChunks<BySize> loose_;  // files without a place
  SortedChunks<Fixed> fixed_;
  SortedChunks<BySize> open_;  // gaps to be filled
  SortedChunks<Filling> fillings_;
};

}  // namespace vornalux::plan
