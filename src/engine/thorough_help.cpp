// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/thorough_help.h"

#include <exception>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

#include "engine/analysis.h"
#include "engine/busy_window.h"
#include "engine/plan_rules.h"
#include "engine/plan_source.h"
#include "volume/volume_census.h"

namespace vornalux {
namespace {

// Behind everything that a hole could be mistaken for.
constexpr std::int64_t kFarAway = std::int64_t{1} << 40;

using Paths = std::unordered_set<std::string>;

// When all its clusters follow each other. Holes may count as fragments all the same.
bool WouldCountAsWhole(const CensusEntry& entry, bool ntfs) {
  std::vector<Extent> extents;
  std::int64_t lcn = kFarAway;
  std::int64_t vcn = 0;
  for (const Extent& extent : entry.extents) {
    const std::int64_t length = extent.NextVcn - std::exchange(vcn, extent.NextVcn);
    const bool hole = extent.Lcn < 0;
    if (!hole && !extents.empty() && extents.back().Lcn >= 0) {
      extents.back().NextVcn = vcn;
    } else {
      extents.push_back({vcn, hole ? extent.Lcn : lcn});
    }
    if (!hole) lcn += length;
  }
  return CountFragments(extents, ntfs) <= 1;
}

// fragmented, refused: by their paths.
std::optional<ThoroughHelp> PlanFor(const RunContext& run, const Paths& fragmented,
                                    const Paths& refused) {
  const std::vector<CensusEntry> entries =
      TakeCensus(run.platform, run.extents, run.flags, run.target.Folder(), run.target.Ntfs());
  const PlanRules rules(run, Pass::Defrag);
  std::vector<bool> stays;
  for (const CensusEntry& entry : entries) {
    stays.push_back(rules.Stays(entry) || refused.contains(entry.path));
  }
  const FreeRunList gaps = run.geometry.LookAtAllGaps().List();
  const std::int32_t clusters = run.geometry.bitmap.TotalClusters();
  if (run.flags.StopRequested || clusters <= 0) return std::nullopt;
  PlanSource source(entries, stays, run.target.Ntfs(), gaps, clusters,
                    WantedOf(run.target, entries));
  source.volume.alignment = rules.Alignment();
  const auto plan = PlanWhileHeard(run, plan::PlanDefrag, source.volume);
  if (!plan) return std::nullopt;
  ThoroughHelp help = {.files = 0, .clusters_moved = plan->clusters_moved};
  std::vector<bool> cured;
  for (const plan::FileRuns& file : source.volume.files) cured.push_back(!file.runs.empty());
  for (const plan::Staying& file : plan->staying)
    cured[static_cast<std::size_t>(file.file)] = false;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (cured[source.planned_as[i]] && fragmented.contains(entries[i].path) &&
        WouldCountAsWhole(entries[i], run.target.Ntfs())) {
      ++help.files;
    }
  }
  return help.files > 0 ? std::optional(help) : std::nullopt;
}

}  // namespace

std::optional<ThoroughHelp> FindThoroughHelp(const RunContext& run, const RunSummary& summary) {
  if (summary.stopped || summary.plan || summary.still_fragmented.empty()) return std::nullopt;
  if (run.flags.ProgramEnded) return std::nullopt;
  // Events happen below: what the caller has may be forgotten by then.
  Paths fragmented;
  for (const StillFragmented& file : summary.still_fragmented) fragmented.insert(file.path);
  Paths refused;
  for (const MoveFailure& failure : run.movers.statistics.failures) {
    if (failure.reason == NotMoved::Refused) refused.insert(failure.path);
  }
  const BusyWindow busy(run.view);
  const Boolean stopped = std::exchange(run.flags.StopRequested, False);
  const std::int32_t locked = run.extents.LockedCount;
  run.view.SetCaption("Planning volume " + run.target.Root());
  run.platform.desktop.DoEvents();
  std::optional<ThoroughHelp> help;
  try {
    help = PlanFor(run, fragmented, refused);
  } catch (const std::exception&) {
    // A run that has gone well does not fail for want of memory for this.
    help.reset();
  }
  run.extents.LockedCount = locked;
  if (!run.flags.ProgramEnded) run.flags.StopRequested = stopped;
  run.view.SetCaption("Volume " + run.target.Root());
  return help;
}

}  // namespace vornalux
