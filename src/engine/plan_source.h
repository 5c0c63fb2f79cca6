// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <vector>

#include "engine/plan/cluster_space.h"
#include "volume/free_runs.h"
#include "volume/volume_census.h"

namespace vornalux {

// The volume as the planner takes it: file i is entries[i], with no clusters where it has to stay.
// Whatever does not agree (two owners of a cluster, a file's clusters marked free, places beyond
// the volume) stays, and so does all that nobody in the list owns.
plan::Volume PlanSource(const std::vector<CensusEntry>& entries, const std::vector<bool>& stays,
                        const FreeRunList& gaps, std::int32_t clusters);

}  // namespace vornalux
