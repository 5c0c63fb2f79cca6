// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/plan_rules.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>

#include "engine/analysis.h"
#include "engine/layout_list.h"

namespace vornalux {
namespace {

struct Stopped {};

// The list has the names as the system had them at start-up, not as the folders have them.
std::string InSmallLetters(std::string text) {
  for (char& letter : text) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  }
  return text;
}

}  // namespace

std::vector<bool> WantedOf(const RunTarget& target, const std::vector<CensusEntry>& entries) {
  std::vector<bool> wanted;
  if (target.files.empty()) return wanted;
  const std::unordered_set<std::string_view> files(target.files.begin(), target.files.end());
  for (const CensusEntry& entry : entries) wanted.push_back(files.contains(entry.path));
  return wanted;
}

std::optional<plan::Plan> PlanWhileHeard(const RunContext& run, Planner planner,
                                         plan::Volume& volume, const plan::Limits& limits) {
  volume.checkpoint = [&run] {
    run.platform.desktop.DoEvents();
    if (run.flags.StopRequested) throw Stopped();
  };
  try {
    return planner(volume, limits);
  } catch (const Stopped&) {
    return std::nullopt;
  }
}

PlanRules::PlanRules(const RunContext& run, Pass pass) : run_(run), pass_(pass) {
  // Shadow copies look at 16 sectors at a time; as Movers::VssAlignShift has it.
  constexpr std::int32_t kSectors = 16;
  const std::int32_t sectors = run.geometry.constants.SectorsPerCluster;
  if (run.flags.VssSafe && sectors < 2) smallest_ = std::numeric_limits<std::int64_t>::max();
  if (run.flags.VssSafe && sectors >= 2 && sectors < 9) {
    alignment_ = (kSectors + sectors / 2) / sectors;
    smallest_ = sectors + 1;
  }
  PathList list;
  const std::int32_t locked = run.extents.LockedCount;
  ReadLayoutList(run.platform.files, run.extents, run.walk.PrefetchDir, run.target.drive, list);
  run.extents.LockedCount = locked;
  for (std::string& path : list.paths) {
    if (!path.empty()) start_up_files_.push_back(InSmallLetters(std::move(path)));
  }
  std::sort(start_up_files_.begin(), start_up_files_.end());
}

bool PlanRules::Stays(const CensusEntry& entry) const {
  if (pass_ == Pass::Defrag && !IncludedBy(run_.target.exclude, entry.path)) return true;
  if (entry.extents.empty()) return false;
  if (entry.extents.back().NextVcn < smallest_) return true;
  const std::int64_t lcn = entry.extents.front().Lcn;
  return lcn >= 0 && lcn < run_.geometry.constants.ReservedFront &&
         CountFragments(entry.extents, run_.target.Ntfs()) <= 1 &&
         std::binary_search(start_up_files_.begin(), start_up_files_.end(),
                            InSmallLetters(entry.path));
}

}  // namespace vornalux
