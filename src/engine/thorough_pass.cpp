// SPDX-License-Identifier: GPL-2.0-or-later
#include <algorithm>
#include <ranges>
#include <set>
#include <string>
#include <vector>

#include "engine/busy_window.h"
#include "engine/passes.h"
#include "engine/plan/plan.h"
#include "engine/plan_rules.h"
#include "engine/plan_source.h"
#include "volume/volume_census.h"

namespace vornalux {
namespace {

// A volume that others work on changes under a plan; one that changes faster than it is planned
// must not keep the run going for ever.
constexpr int kNewLooks = 5;
constexpr int kNewPlans = 100;
// A new plan makes the best of a file that the system refuses to move. Where many are refused, what
// does not depend on them goes on first.
constexpr int kPlansAtOnce = 10;

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

using Moves = std::ranges::subrange<plan::PlannedMoves::const_iterator>;

// The moves from `first` on that only make sense together.
Moves Group(const plan::PlannedMoves& moves, std::size_t first) {
  const auto begin = moves.begin() + static_cast<std::ptrdiff_t>(first);
  auto end = begin;
  while (end != moves.end() && (end->joined || end->unfinished)) ++end;
  return {begin, end == moves.end() ? end : end + 1};
}

// Carries out one plan after the other until one has been carried out to its end.
class ThoroughRun {
 public:
  // doing: the caption while files move, without the volume.
  ThoroughRun(const RunContext& run, RunRecord& record, Pass pass, const char* doing)
      : run_(run),
        record_(record),
        pass_(pass),
        planner_(pass == Pass::Compact ? plan::PlanCompact : plan::PlanDefrag),
        doing_(doing) {
    record.Begin(pass);
  }

  void Run() {
    bool given_up = false;
    for (int look = 0; look < kNewLooks && Look(); ++look) {
      End end = End::NewPlan;
      for (int plan = 0; plan < kNewPlans && end == End::NewPlan; ++plan) {
        end = CarryOutPlan(plan < kPlansAtOnce);
      }
      given_up = end == End::NewPlan || end == End::NewLook;
      if (end != End::NewLook) break;
    }
    if (given_up) record_.NoteGivenUp(entries_);
    if (run_.flags.StopRequested) run_.view.SetValue(0);
  }

 private:
  enum class End { Done, Stopped, NewPlan, NewLook };

  bool Look() {
    // How much there is to move is not known before there is a plan.
    run_.view.SetRange(0, 1);
    run_.view.SetValue(0);
    run_.view.SetCaption("Enumerating files on volume " + run_.target.Root());
    entries_ = TakeCensus(run_.platform, run_.extents, run_.flags, run_.target.Folder(),
                          run_.target.Ntfs());
    wanted_ = WantedOf(run_.target, entries_);
    const PlanRules rules(run_, pass_);
    alignment_ = rules.Alignment();
    stays_.clear();
    for (const CensusEntry& entry : entries_) {
      stays_.push_back(rules.Stays(entry) || refused_.contains(entry.path));
    }
    return !run_.flags.StopRequested;
  }

  // at_once: a refusal ends this plan.
  End CarryOutPlan(bool at_once) {
    run_.view.SetCaption("Planning volume " + run_.target.Root());
    run_.view.SetCurrentFile("");
    run_.platform.desktop.DoEvents();
    if (run_.flags.StopRequested) return End::Stopped;
    const FreeRunList gaps = run_.geometry.LookAtAllGaps().List();
    PlanSource source(entries_, stays_, run_.target.Ntfs(), gaps,
                      run_.geometry.bitmap.TotalClusters(), wanted_);
    source.volume.alignment = alignment_;
    const auto planned = PlanWhileHeard(run_, planner_, source.volume, {.clusters = Allowed()});
    if (!planned) return End::Stopped;
    const plan::Plan& plan = *planned;
    record_.NotePlan(plan, source, entries_);
    run_.view.SetCaption(doing_ + run_.target.Root());
    run_.view.SetRange(0, done_ + plan.clusters_moved);
    run_.view.SetValue(done_);
    moved_.clear();
    std::size_t together = 0;        // the first move of those that only make sense together
    std::set<std::int32_t> skipped;  // files that do not go where the plan has them
    const auto skips = [&](const plan::PlannedMove& move) { return skipped.contains(move.file); };
    std::size_t i = 0;
    Moves group;  // from `together` on
    const auto skip_group = [&] {
      for (const plan::PlannedMove& move : group) skipped.insert(move.file);
      i = together += static_cast<std::size_t>(group.size());
    };
    while (i < plan.moves.size()) {
      if (together == i) group = Group(plan.moves, i);
      if (together == i && std::ranges::any_of(group, skips)) {
        skip_group();
        continue;
      }
      run_.platform.desktop.DoEvents();
      if (run_.flags.StopRequested && together == i) return End::Stopped;
      std::vector<Movers::Leg> legs;
      std::size_t end = i;
      do {
        const plan::PlannedMove& move = plan.moves[end];
        legs.push_back({move.from, move.to, move.length});
      } while (plan.moves[end++].joined);
      const plan::PlannedMove& last = plan.moves[end - 1];
      const std::size_t entry = source.EntryOf(last.file);
      const auto result = CarryOut(entry, legs, together != i || last.unfinished);
      if (result != Movers::Planned::Done) {
        const bool back = GoBack(plan.moves, together, i, source);
        if (run_.flags.StopRequested) return End::Stopped;
        const bool changed = result == Movers::Planned::Changed;
        if (!back || (changed && skipped.empty())) return End::NewLook;
        if (!changed) LeaveAlone(entry, result, source.planned_as);
        skip_group();
        if (!at_once) continue;
        break;
      }
      for (const Movers::Leg& leg : legs) done_ += leg.length;
      run_.view.SetValue(done_);
      if (run_.view.RedrawsAfterEachFile()) run_.view.RedrawMap(MapLayers::Volume);
      i = end;
      if (!last.unfinished) together = i;
    }
    if (!skipped.empty()) {
      ReadMoved(source.planned_as);
      return End::NewPlan;
    }
    for (const plan::Staying& staying : plan.staying) {
      if (!run_.trace.On()) break;
      run_.trace.Line("THR:stays: " + entries_[source.EntryOf(staying.file)].path + ", pieces: " +
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

  Movers::Planned CarryOut(std::size_t entry, const std::vector<Movers::Leg>& legs,
                           bool must_finish) {
    moved_.insert(entry);
    return run_.movers.MovePlanned(entries_[entry].path, legs, must_finish);
  }

  // Takes back moves [first, end). False when that did not go either.
  bool GoBack(const plan::PlannedMoves& moves, std::size_t first, std::size_t end,
              const PlanSource& source) {
    while (end-- > first) {
      const plan::PlannedMove& move = moves[end];
      const std::vector<Movers::Leg> leg = {{move.to, move.from, move.length}};
      if (CarryOut(source.EntryOf(move.file), leg, true) != Movers::Planned::Done) return false;
      done_ -= move.length;
    }
    return true;
  }

  // What cannot be opened by this name may be by another; what is refused is so by all.
  void LeaveAlone(std::size_t file, Movers::Planned result,
                  const std::vector<std::size_t>& planned_as) {
    std::vector<MoveFailure>& failures = run_.movers.statistics.failures;
    for (std::size_t i = 0; i < entries_.size(); ++i) {
      if (i != file && (planned_as[i] != file || result != Movers::Planned::Refused)) continue;
      stays_[i] = true;
      refused_.insert(entries_[i].path);
      if (i == file) continue;
      failures.push_back(failures.back());
      failures.back().path = entries_[i].path;
    }
  }

  void ReadMoved(const std::vector<std::size_t>& planned_as) {
    for (std::size_t i = 0; i < entries_.size(); ++i) {
      if (!moved_.contains(planned_as[i])) continue;
      entries_[i].extents = run_.extents.ReadExtents(entries_[i].path, false, false).extents;
    }
  }

  const RunContext& run_;
  RunRecord& record_;
  Pass pass_;
  Planner planner_;
  const char* doing_;
  std::vector<CensusEntry> entries_;
  std::vector<bool> stays_;        // entries that are not to be moved
  std::int32_t alignment_ = 1;     // clusters
  std::set<std::string> refused_;  // paths that the system would not move
  std::vector<bool> wanted_;       // entries that the run is about; empty: all
  std::set<std::size_t> moved_;    // entries since the last plan was made
  std::int64_t done_ = 0;          // clusters
};

}  // namespace

bool Passes::ThoroughDefrag() {
  const BusyWindow busy(run_.view);
  if (!PrepareFragmentLists()) return run_.flags.StopRequested != False;
  run_.flags.StopRequested = False;
  ThoroughRun(run_, record_, Pass::Defrag, "Defragmenting volume ").Run();
  EndThorough();
  return true;
}

bool Passes::ThoroughCompact() {
  const BusyWindow busy(run_.view);
  if (!PrepareClassLists()) return run_.flags.StopRequested != False;
  ThoroughRun(run_, record_, Pass::Compact, "Compacting volume ").Run();
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
