// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "engine/plan/cluster_space.h"

namespace vornalux::plan {

// Brings one file at a time into one piece. Each way is tried in the space, and taken back when it
// does not work out.
class Mending {
 public:
  explicit Mending(ClusterSpace& space) : space_(space), scan_budget_(kScanBudget) {}

  static constexpr std::int64_t kNoWay = std::numeric_limits<std::int64_t>::max();

  // What IntoGap would move, in clusters; kNoWay where no gap will do.
  std::int64_t CostIntoGap(std::int32_t file) const;

  // To free clusters, the file's own among them: the cheapest such place. The others stay.
  bool IntoGap(std::int32_t file);
  // To where others have to go first. Those that are in one piece go to gaps that hold them whole.
  bool IntoVacatedPlace(std::int32_t file, std::int64_t limit);
  // On large volumes places to vacate are looked for close to large gaps, until this is called.
  void LookFarther() { far_ = true; }
  // To a gap made by sliding what lies between several.
  bool IntoGatheredGap(std::int32_t file, std::int64_t limit);
  // Into fewer pieces, where one cannot be had.
  bool IntoFewerPieces(std::int32_t file);

 private:
  struct Part {
    std::int32_t offset = 0;  // in the chain, in clusters
    std::int32_t lcn = 0;
    std::int32_t length = 0;
    std::int32_t piece = 0;  // as long as it lies there
  };
  // Pieces that follow each other in a file and are to become one.
  struct Chain {
    std::int32_t file = 0;
    std::int32_t size = 0;
    bool whole = true;  // the whole file
    std::vector<Part> parts;
  };
  // Where a chain could begin, and what that would move, in clusters.
  struct Place {
    std::int32_t start = 0;
    std::int64_t cost = 0;
  };
  struct Segment {
    std::int32_t lcn = 0;
    std::int32_t end = 0;
    std::int32_t file = 0;
    std::int64_t evicted = 0;  // clusters to be moved for this one and all before
    std::int32_t blocked = 0;  // that cannot make room, this one and all before
  };

  static constexpr std::int64_t kScanBudget = 100'000;  // segments looked at
  static constexpr int kGathers = 32;  // of gaps of volumes for which the budget is not enough

  Chain WholeFile(std::int32_t file) const;
  // `count` parts of a chain from `first` on.
  Chain PartOf(const Chain& chain, std::size_t first, std::size_t count) const;
  bool Owns(const Chain& chain, const ClusterSpace::Piece& piece) const;
  std::vector<Part> LongestParts(const Chain& chain) const;
  static std::int32_t InPlace(const Chain& chain, std::int32_t start);

  std::optional<Place> FreePlaceAround(const Chain& chain, const Part& part) const;
  std::optional<Place> BestFreePlace(const Chain& chain) const;
  const std::vector<Segment>& Segments(std::int32_t file, std::int32_t lcn, std::int32_t end,
                                       std::size_t most);
  static bool Cheaper(const Place& a, const Place& b);
  static void Offer(std::vector<Place>& places, const Place& place);
  void Sweep(const Chain& chain, const std::vector<Segment>& segments,
             std::vector<Place>& places) const;
  std::vector<Place> PlacesToVacate(const Chain& chain);

  bool Vacate(const Chain& chain, const Run& window);
  bool Bring(Chain chain, std::int32_t start);
  bool Slide(std::int32_t from, std::int32_t to, std::int32_t length);

  ClusterSpace& space_;
  std::int64_t scan_budget_;
  bool far_ = false;
  int gathers_ = kGathers;
  // Large, and needed for each file: memory that is new each time would cost more than the work.
  std::vector<Segment> segments_;
};

}  // namespace vornalux::plan
