// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/run_record.h"

#include <algorithm>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "engine/pass_table.h"

namespace vornalux {
namespace {

// How many files are read before a window that has been covered may paint itself.
constexpr std::size_t kFilesUnheard = 64;

// One run, were it not for holes.
bool InOnePiece(const std::vector<Extent>& extents) {
  std::int64_t vcn = 0;
  std::int64_t end = -1;
  for (const Extent& extent : extents) {
    const std::int64_t length = extent.NextVcn - std::exchange(vcn, extent.NextVcn);
    if (extent.Lcn == -1) continue;
    if (end != -1 && extent.Lcn != end) return false;
    end = extent.Lcn + length;
  }
  return true;
}

bool IsGone(ErrorCode code) { return code == error::kFileNotFound || code == error::kPathNotFound; }

}  // namespace

// The volume after a run, file by file.
class RunRecord::Reading {
 public:
  Reading(const RunContext& run, const Analysis& analysis, const std::vector<LeftByPlan>& left,
          RunSummary& summary, RunEnd end)
      : run_(run), analysis_(analysis), summary_(summary), end_(std::move(end)) {
    for (const MoveFailure& failure : run.movers.statistics.failures) {
      stories_[failure.path].failure = &failure;
    }
    for (const MovedInPieces& pieces : run.movers.statistics.in_pieces) {
      stories_[pieces.path].in_pieces = &pieces;
    }
    for (const LeftByPlan& file : left) stories_[file.path].left = &file;
  }

  void ReadAll() {
    const std::vector<std::string>& paths = run_.table.MultiExtentPaths.paths;
    for (const std::string& path : paths) Read(path);
    // Others that were to make room for the files that the run is about are none of its results.
    if (!run_.target.files.empty()) return SortByFragments(summary_.still_fragmented);
    std::unordered_set<std::string_view> seen;
    for (const MoveFailure& failure : run_.movers.statistics.failures) {
      if (failure.reason != NotMoved::Refused || failure.path == run_.target.MasterFileTable()) {
        continue;
      }
      if (seen.empty()) seen.insert(paths.begin(), paths.end());
      if (seen.insert(failure.path).second) Read(failure.path);
    }
    SortByFragments(summary_.still_fragmented);
  }

 private:
  void Read(const std::string& path) {
    if (path.empty() || run_.flags.ProgramEnded) return;
    LetInputRun();
    const ExtentRecord record = run_.extents.ReadExtents(path, false, false);
    if (!record.opened) return ReadLocked(path);
    Note({.path = path,
          .fragments = CountFragments(record.extents, run_.target.Ntfs()),
          .clusters = record.SizeInClusters()},
         InOnePiece(record.extents));
  }

  // What was fragmented and cannot be opened now is as it was, as far as anybody knows.
  void ReadLocked(const std::string& path) {
    const OpenedFile again = run_.platform.files.OpenPath(LongPath(path), FileAccess::GenericRead,
                                                          FileFlags::BackupSemantics);
    if (OwnedFile(run_.platform.files, again.handle) || IsGone(again.error)) return;
    if (known_.empty()) {
      const FragmentLists& lists = analysis_.lists;
      for (std::size_t i = 0; i < lists.FragNames.size(); ++i) {
        known_.emplace(lists.FragNames[i], lists.SizeAt(i));
      }
    }
    const auto known = known_.find(path);
    if (known == known_.end()) return;
    StillFragmented file = {.path = path,
                            .fragments = known->second.fragments,
                            .clusters = known->second.clusters,
                            .why = WhyFragmented::Locked,
                            .code = again.error};
    summary_.still_fragmented.push_back(std::move(file));
  }

  void Note(StillFragmented file, bool one_piece) {
    if (file.fragments <= 1) return;
    FileStory story;
    if (const auto known = stories_.find(file.path); known != stories_.end()) {
      story = known->second;
    }
    story.one_piece = one_piece;
    story.excluded = !IncludedBy(run_.target.exclude, file.path);
    if (!story.excluded) {
      RunFigures& figures = *summary_.after;
      ++figures.fragmented;
      figures.fragments += file.fragments;
      figures.max_per_file = std::max(figures.max_per_file, file.fragments);
    }
    Explain(file, story, end_);
    summary_.still_fragmented.push_back(std::move(file));
  }

  void LetInputRun() {
    Desktop& desktop = run_.platform.desktop;
    if (desktop.InputPending() || ++files_ % kFilesUnheard == 0) desktop.DoEvents();
  }

  const RunContext& run_;
  const Analysis& analysis_;
  RunSummary& summary_;
  const RunEnd end_;
  std::unordered_map<std::string_view, FileStory> stories_;
  std::unordered_map<std::string_view, FragmentedSize> known_;  // of the analysis, when needed
  std::size_t files_ = 0;
};

void RunRecord::Begin(Pass pass) {
  summary_.reset();
  run_.movers.statistics.Reset();
  begun_ = {};
  left_.clear();
  begun_.pass = pass;
  begun_.before = analysis_.Figures();
  FreeSpace space;
  if (run_.platform.volumes.FreeSpaceFigures(run_.target.Root(), space) == error::kSuccess) {
    begun_.cluster_bytes = space.sectors_per_cluster * space.bytes_per_sector;
  }
  started_ = Clock::now();
}

void RunRecord::NotePlan(const plan::Plan& plan, const PlanSource& source,
                         const std::vector<CensusEntry>& entries) {
  if (begun_.plan) {
    ++begun_.plan->new_plans;
  } else {
    begun_.plan = {.moves = std::ranges::count(plan.moves, false, &plan::PlannedMove::joined),
                   .clusters_moved = plan.clusters_moved,
                   .least_to_move = plan.least_to_move,
                   .before = plan.before,
                   .after = plan.after};
  }
  left_.clear();
  std::unordered_map<std::size_t, const plan::Staying*> staying;
  for (const plan::Staying& file : plan.staying) {
    staying.emplace(static_cast<std::size_t>(file.file), &file);
  }
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const std::size_t planned = source.planned_as[i];
    if (const auto known = staying.find(planned); known != staying.end()) {
      const plan::Staying& file = *known->second;
      left_.push_back({entries[i].path, file.obstacle, file.size, plan.longest_unblocked});
    } else if (source.volume.files[planned].runs.empty() && !InOnePiece(entries[i].extents)) {
      // What the plan did not know where to find.
      left_.push_back({.path = entries[i].path});
    }
  }
}

void RunRecord::NoteGivenUp(const std::vector<CensusEntry>& entries) {
  std::vector<LeftByPlan> left;
  for (const CensusEntry& entry : entries) left.push_back({.path = entry.path});
  left.insert(left.end(), left_.begin(), left_.end());  // what the last plan knew has precedence
  left_ = std::move(left);
}

void RunRecord::End() {
  RunSummary summary = std::exchange(begun_, {});
  summary.duration = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started_);
  if (run_.flags.ProgramEnded) return;
  summary.stopped = run_.flags.StopRequested != False;
  MoveStatistics& statistics = run_.movers.statistics;
  summary.moves = statistics.moves;
  summary.clusters_moved = statistics.clusters_moved;
  FreeSpace space;
  if (run_.platform.volumes.FreeSpaceFigures(run_.target.Root(), space) != error::kSuccess) {
    summary_ = std::move(summary);
    return;
  }
  summary.regions_after = run_.geometry.ReadFreeRegions();
  // Where no mover had to look, nothing has moved.
  summary.regions_before = statistics.at_first ? statistics.at_first : summary.regions_after;
  const RunEnd end = {.joins_all = RowOf(summary.pass).joins_all || summary.plan,
                      .stopped = summary.stopped,
                      .largest_gap = summary.regions_after
                                         ? std::optional(summary.regions_after->Largest())
                                         : std::nullopt,
                      .free = summary.regions_after ? summary.regions_after->clusters
                                                    : run_.geometry.constants.FreeClusters};
  for (MoveFailure& failure : statistics.failures) {
    if (failure.reason == NotMoved::NoGap && end.largest_gap &&
        failure.clusters <= *end.largest_gap) {
      failure.reason = NotMoved::NoGapThen;
    }
  }
  summary.after = RunFigures{.files = summary.before.files,
                             .dirs = summary.before.dirs,
                             .free_clusters = run_.geometry.constants.FreeClusters,
                             .total_clusters = run_.geometry.constants.TotalClusters};
  Reading(run_, analysis_, left_, summary, end).ReadAll();
  if (run_.flags.ProgramEnded) return;
  ShowFigures(run_.view, *summary.after);
  summary_ = std::move(summary);
}

}  // namespace vornalux
