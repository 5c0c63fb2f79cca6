// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "engine/pass.h"
#include "engine/plan/plan.h"
#include "engine/run_context.h"
#include "volume/volume_census.h"

namespace vornalux {

// What a plan has to respect besides the clusters.
class PlanRules {
 public:
  // Reads the layout list. The volume's constants are known.
  PlanRules(const RunContext& run, Pass pass);

  // Not to be moved: left out of Defrag by its extension, too small to keep its alignment, or a
  // start-up file that lies whole in the area in front that is reserved for such.
  bool Stays(const CensusEntry& entry) const;
  // For shadow copies: the clusters that a file's way is to be a multiple of.
  std::int32_t Alignment() const { return alignment_; }

 private:
  const RunContext& run_;
  Pass pass_;
  std::int32_t alignment_ = 1;
  std::int64_t smallest_ = 0;                // clusters of the smallest file that may be moved
  std::vector<std::string> start_up_files_;  // sorted, in small letters
};

// For each entry whether it is one of the files that the run is about; empty where all are.
std::vector<bool> WantedOf(const RunTarget& target, const std::vector<CensusEntry>& entries);

using Planner = plan::Plan (*)(const plan::Volume&, const plan::Limits&);

// The user and the timers get their turn meanwhile. Nothing when the run was stopped.
std::optional<plan::Plan> PlanWhileHeard(const RunContext& run, Planner planner,
                                         plan::Volume& volume, const plan::Limits& limits = {});

}  // namespace vornalux
