// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <vector>

#include "platform/types.h"

namespace vornalux {

// A run of an attribute: count clusters from vcn on lie at lcn, or nowhere (lcn -1).
struct ClusterRun {
  std::int64_t vcn = 0;
  std::int64_t lcn = 0;
  std::int64_t count = 0;

  friend bool operator==(const ClusterRun&, const ClusterRun&) = default;
};

// What a move does to one stream.
struct MovePlan {
  std::vector<ClusterRun> before;   // all runs, adjoining ones joined
  std::vector<ClusterRun> after;    // the same VCNs, adjoining ones joined
  std::vector<ClusterRun> sources;  // the parts that leave their place, in VCN order
  std::int64_t target_lcn = 0;
  std::int64_t target_count = 0;  // 0: only holes in range, nothing to do
};

// Do the runs follow each other from VCN 0 on without gaps, and lie in the volume or nowhere?
bool RunsAreSound(const std::vector<ClusterRun>& runs, std::int64_t total_clusters);

// Splits a stream's runs for a move of [vcn, vcn + count) to lcn, clipping the range at the end of
// the allocation. kInvalidParameter: a number is out of range, vcn is at or past the end of the
// allocation, or the target leaves the volume. kFileCorrupt: the runs are not sound.
ErrorCode PlanMove(const std::vector<ClusterRun>& runs, std::int64_t vcn, std::int64_t lcn,
                   std::int64_t count, std::int64_t total_clusters, MovePlan& plan);

// Joins runs that adjoin in VCN and LCN, or are both holes.
void JoinRuns(std::vector<ClusterRun>& runs);

}  // namespace vornalux
