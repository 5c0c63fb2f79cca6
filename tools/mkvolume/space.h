// SPDX-License-Identifier: GPL-2.0-or-later
// Deciding where clusters go: exact numbers of extents, interleaved over the volume, with gaps.
#pragma once

#include <cstdint>
#include <vector>

#include "host/simulated/seeded_random.h"
#include "mkvolume/tree.h"

namespace vornalux::making {

// count clusters from vcn on lie at lcn.
struct PlacedRun {
  std::int64_t vcn = 0;
  std::int64_t lcn = 0;
  std::int64_t count = 0;
};

// Which clusters of a volume are taken.
class ClusterSet {
 public:
  explicit ClusterSet(std::int64_t clusters) : taken_(static_cast<std::size_t>(clusters)) {}

  std::int64_t Size() const { return static_cast<std::int64_t>(taken_.size()); }
  std::int64_t Free() const { return Size() - taken_count_; }
  bool Taken(std::int64_t lcn) const { return taken_[static_cast<std::size_t>(lcn)]; }
  void Set(std::int64_t lcn, std::int64_t count, bool taken);
  // Ranges of free clusters as (first, count) in vcn = lcn order.
  std::vector<VcnRange> FreeRanges() const;

 private:
  std::vector<bool> taken_;
  std::int64_t taken_count_ = 0;
};

// Something that needs clusters.
struct SpaceRequest {
  std::vector<VcnRange> ranges;  // VCNs that need a cluster, ascending
  std::int64_t pieces = 1;       // extents wanted; at most as many as clusters
  std::vector<PlacedRun> runs;   // the answer, in VCN order
};

// Answers all requests and takes their clusters. Parts of one request never adjoin, so that the
// pieces are exact (a hole between two ranges divides as well). Throws std::runtime_error when
// there is no room.
void PlaceAll(std::vector<SpaceRequest>& requests, ClusterSet& clusters, SeededRandom& random);

}  // namespace vornalux::making
