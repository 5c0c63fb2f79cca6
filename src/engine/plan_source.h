// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "engine/plan/cluster_space.h"
#include "volume/free_runs.h"
#include "volume/volume_census.h"

namespace vornalux {

// The volume as the planner takes it: file i is entries[i], with no clusters where it has to stay.
struct PlanSource {
  plan::Volume volume;
  // For each entry the one that its clusters are planned by: itself, or another name of its file.
  std::vector<std::size_t> planned_as;

  // The entry whose clusters a file of the volume is, or a piece of whose clusters.
  std::size_t EntryOf(std::int32_t file) const {
    const auto index = static_cast<std::size_t>(file);
    return index < planned_as.size() ? index : pieces_of_[index - planned_as.size()];
  }

  // Whatever does not agree (two owners of a cluster, a file's clusters marked free, places beyond
  // the volume) stays, and so does all that nobody in the list owns. links: the file system has
  // files of several names, which are no two owners. A file moves when one of its names may.
  // wanted: for each entry whether it is to come into one piece; empty where all are. Pieces of
  // others are files of their own to the planner, behind those of the entries: they may make room,
  // and nothing is moved for their sake.
  PlanSource(const std::vector<CensusEntry>& entries, const std::vector<bool>& stays, bool links,
             const FreeRunList& gaps, std::int32_t clusters, const std::vector<bool>& wanted = {});

 private:
  std::vector<std::size_t> pieces_of_;  // of files behind those of the entries
};

}  // namespace vornalux
