// SPDX-License-Identifier: GPL-2.0-or-later
#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "engine/busy_window.h"
#include "engine/passes.h"
#include "engine/plan/plan.h"
#include "engine/plan_source.h"
#include "volume/volume_census.h"

namespace vornalux {
namespace {

// A volume that others work on changes under a plan; one that changes faster than it is planned
// must not keep the run going for ever.
constexpr int kNewLooks = 5;
constexpr int kNewPlans = 100;

const char* TextOf(plan::Obstacle obstacle) {
  switch (obstacle) {
    case plan::Obstacle::Blocked:
      return "no room between what cannot be moved";
    case plan::Obstacle::Space:
      return "larger than all free space together";
    case plan::Obstacle::Limit:
      return "more to move than is allowed";
    case plan::Obstacle::NotFound:
      break;
  }
  return "no way found";
}

// Carries out one plan after the other until one has been carried out to its end.
class ThoroughRun {
 public:
  using Planner = plan::Plan (*)(const plan::Volume&, const plan::Limits&);

  // doing: the caption while files move, without the volume.
  ThoroughRun(const RunContext& run, RunRecord& record, Planner planner, const char* doing)
      : run_(run), record_(record), planner_(planner), doing_(doing) {}

  void Run() {
    for (int look = 0; look < kNewLooks && Look(); ++look) {
      End end = End::NewPlan;
      for (int plan = 0; plan < kNewPlans && end == End::NewPlan; ++plan) end = CarryOutPlan();
      if (end != End::NewLook) break;
    }
    if (run_.flags.StopRequested) run_.view.SetValue(0);
  }

 private:
  enum class End { Done, Stopped, NewPlan, NewLook };

  static std::size_t Index(std::int32_t file) { return static_cast<std::size_t>(file); }

  bool Look() {
    // How much there is to move is not known before there is a plan.
    run_.view.SetRange(0, 1);
    run_.view.SetValue(0);
    run_.view.SetCaption("Enumerating files on volume " + run_.target.Root());
    entries_ = TakeCensus(run_.platform, run_.extents, run_.flags, run_.target.Folder(),
                          run_.target.Ntfs());
    stays_.clear();
    for (const CensusEntry& entry : entries_) {
      stays_.push_back(!IncludedBy(run_.target.exclude, entry.path) ||
                       refused_.contains(entry.path));
    }
    return !run_.flags.StopRequested;
  }

  End CarryOutPlan() {
    run_.view.SetCaption("Planning volume " + run_.target.Root());
    run_.view.SetCurrentFile("");
    run_.platform.desktop.DoEvents();
    if (run_.flags.StopRequested) return End::Stopped;
    std::int32_t clusters = 0;
    const FreeRunList& gaps = run_.geometry.GetFreeRuns(clusters);
    const plan::Volume volume = PlanSource(entries_, stays_, gaps, clusters);
    const plan::Plan plan = planner_(volume, {.clusters = Allowed()});
    record_.NotePlan(plan, volume, entries_);
    run_.view.SetCaption(doing_ + run_.target.Root());
    run_.view.SetRange(0, done_ + plan.clusters_moved);
    run_.view.SetValue(done_);
    moved_.clear();
    std::size_t together = 0;  // the first move of those that only make sense together
    for (std::size_t i = 0; i < plan.moves.size();) {
      run_.platform.desktop.DoEvents();
      if (run_.flags.StopRequested && together == i) return End::Stopped;
      std::vector<Movers::Leg> legs;
      std::size_t end = i;
      do {
        const plan::PlannedMove& move = plan.moves[end];
        legs.push_back({move.from, move.to, move.length});
      } while (plan.moves[end++].joined);
      const plan::PlannedMove& last = plan.moves[end - 1];
      const auto result = CarryOut(last.file, legs, together != i || last.unfinished);
      if (result != Movers::Planned::Done) {
        const bool back = GoBack(plan.moves, together, i);
        return AfterFailure(last.file, back ? result : Movers::Planned::Changed);
      }
      for (const Movers::Leg& leg : legs) done_ += leg.length;
      run_.view.SetValue(done_);
      if (run_.view.RedrawsAfterEachFile()) run_.view.RedrawMap(MapLayers::Volume);
      i = end;
      if (!last.unfinished) together = i;
    }
    for (const plan::Staying& staying : plan.staying) {
      if (!run_.trace.On()) break;
      run_.trace.Line("THR:stays: " + entries_[Index(staying.file)].path + ", pieces: " +
                      std::to_string(staying.pieces) + ", " + TextOf(staying.obstacle));
    }
    return End::Done;
  }

  // Clusters that may still be moved.
  std::int64_t Allowed() const {
    FreeSpace space;
    if (!run_.flags.MaxMove) return plan::Limits().clusters;
    if (run_.platform.volumes.FreeSpaceFigures(run_.target.Root(), space) != error::kSuccess) {
      return 0;
    }
    const auto bytes = static_cast<std::uint64_t>(
        std::max<std::int64_t>(space.sectors_per_cluster * space.bytes_per_sector, 1));
    constexpr auto most = static_cast<std::uint64_t>(plan::Limits().clusters);
    return static_cast<std::int64_t>(std::min(*run_.flags.MaxMove / bytes, most)) - done_;
  }

  Movers::Planned CarryOut(std::int32_t file, const std::vector<Movers::Leg>& legs,
                           bool must_finish) {
    moved_.insert(file);
    return run_.movers.MovePlanned(entries_[Index(file)].path, legs, must_finish);
  }

  // Takes back moves [first, end). False when that did not go either.
  bool GoBack(const std::vector<plan::PlannedMove>& moves, std::size_t first, std::size_t end) {
    while (end-- > first) {
      const plan::PlannedMove& move = moves[end];
      if (CarryOut(move.file, {{move.to, move.from, move.length}}, true) != Movers::Planned::Done) {
        return false;
      }
      done_ -= move.length;
    }
    return true;
  }

  End AfterFailure(std::int32_t file, Movers::Planned result) {
    if (run_.flags.StopRequested) return End::Stopped;
    if (result == Movers::Planned::Changed) return End::NewLook;
    stays_[Index(file)] = true;
    refused_.insert(entries_[Index(file)].path);
    for (const std::int32_t each : moved_) {
      CensusEntry& entry = entries_[Index(each)];
      entry.extents = run_.extents.ReadExtents(entry.path, false, false).extents;
    }
    return End::NewPlan;
  }

  const RunContext& run_;
  RunRecord& record_;
  Planner planner_;
  const char* doing_;
  std::vector<CensusEntry> entries_;
  std::vector<bool> stays_;        // entries that are not to be moved
  std::set<std::string> refused_;  // paths that the system would not move
  std::set<std::int32_t> moved_;   // entries since the last plan was made
  std::int64_t done_ = 0;          // clusters
};

}  // namespace

bool Passes::ThoroughDefrag() {
  const BusyWindow busy(run_.view);
  if (!PrepareFragmentLists()) return run_.flags.StopRequested != False;
  run_.flags.StopRequested = False;
  record_.Begin(Pass::Defrag);
  ThoroughRun(run_, record_, plan::PlanDefrag, "Defragmenting volume ").Run();
  EndThorough();
  return true;
}

bool Passes::ThoroughCompact() {
  const BusyWindow busy(run_.view);
  if (!PrepareClassLists()) return run_.flags.StopRequested != False;
  record_.Begin(Pass::Compact);
  ThoroughRun(run_, record_, plan::PlanCompact, "Compacting volume ").Run();
  EndThorough();
  return true;
}

void Passes::EndThorough() {
  run_.view.SetCurrentFile("");
  Redraw();
  record_.End();
  EndWithStaleLists();
}

}  // namespace vornalux
