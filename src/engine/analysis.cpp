// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/analysis.h"

#include <algorithm>

#include "engine/layout_list.h"
#include "text/ascii_case.h"

namespace vornalux {
namespace {

std::string InBrackets(std::int64_t number) { return "[" + std::to_string(number) + "]"; }

}  // namespace

std::int64_t CountFragments(const std::vector<Extent>& extents, bool ntfs) {
  const auto count = static_cast<std::int64_t>(extents.size());
  if (!ntfs || count <= 1) return count;
  const auto length = [&](std::size_t i) {
    return extents[i].NextVcn - (i == 0 ? 0 : extents[i - 1].NextVcn);
  };
  std::int64_t fragments = 1;
  std::size_t current = 0;
  for (;;) {
    const std::int64_t end = extents[current].Lcn + length(current);
    std::size_t next = current + 1;
    if (next < extents.size() && extents[next].Lcn == -1) ++next;
    if (next >= extents.size()) return fragments;
    if (extents[next].Lcn != end) ++fragments;
    current = next;
  }
}

bool IncludedBy(const std::string& exclude, const std::string& path) {
  if (exclude.empty()) return true;
  const std::size_t dot = path.rfind('.');
  if (dot == std::string::npos) return true;
  return UpperCase(exclude).find("*" + UpperCase(path.substr(dot))) == std::string::npos;
}

bool Analysis::Analyze_This() {
  // The redraw brings fresh constants and a map without the last run's colours.
  if (!run_.view.RedrawMap(MapLayers::Volume)) {
    run_.flags.AnalysisValid = False;
    return false;
  }
  ReportConstants();
  const bool there = AnalyzeVolume() && IsThere();
  run_.flags.AnalysisValid = ToBoolean(there);
  if (!there) run_.flags.ClassListsValid = False;
  if (!run_.flags.StopRequested) return there;
  run_.view.SetCaption("Volume " + run_.target.drive);
  run_.flags.AnalysisValid = False;
  return false;
}

// A drive that has gone shows few files, or none. The redraw tells so.
bool Analysis::IsThere() {
  FreeSpace space;
  return run_.platform.volumes.FreeSpaceFigures(run_.target.Root(), space) == error::kSuccess ||
         run_.view.RedrawMap(MapLayers::Volume);
}

void Analysis::ReportConstants() {
  const VolumeConstants& constants = run_.geometry.constants;
  run_.trace.Line("Volume constants for drive: " + run_.target.drive);
  run_.trace.Line("total clusters: " + std::to_string(constants.TotalClusters));
  run_.trace.Line("free clusters : " + std::to_string(constants.FreeClusters));
  run_.trace.Line("mftreserved  : " + std::to_string(constants.MftZoneStart) + "-" +
                  std::to_string(constants.MftZoneEnd));
  run_.trace.Line("end reserved  : " + std::to_string(constants.ReservedFront));
  run_.trace.Line("optimize area : " + std::to_string(constants.OptimizeArea));
  run_.view.SetCaption("Volume " + run_.target.drive);
}

bool Analysis::AnalyzeVolume() {
  run_.view.SetRange(0, 1);
  run_.view.SetValue(0);
  run_.extents.LockedCount = 0;
  run_.flags.AnalysisValid = False;
  run_.flags.ClassListsValid = False;
  lists.Clear();
  summary = {};
  summary.reserved_front = run_.geometry.constants.ReservedFront;

  run_.view.SetCaption("Enumerating files on volume " + run_.target.Root());
  run_.platform.desktop.DoEvents();
  // It may be back by the end.
  if (!IsThere()) {
    run_.view.SetCaption("Volume " + run_.target.drive);
    return false;
  }
  const std::vector<ExtentRecord> records =
      run_.target.files.empty() ? run_.walk.WalkVolume(run_.target.Folder(), run_.view)
                                : run_.walk.LookAt(run_.target.files, run_.view);
  if (run_.flags.StopRequested) {
    run_.view.SetValue(0);
    return true;
  }
  run_.view.SetRange(0, static_cast<std::int64_t>(records.size()));
  run_.view.SetValue(0);
  run_.view.SetCaption("Analyzing files on volume " + run_.target.Root());
  if (!ExamineEntries(records)) return true;

  // The trailing empty element takes part, and so comes first.
  lists.Quicksort(run_.platform, 0, std::ssize(lists.FragExtents) - 1);
  if (run_.flags.OptimizeMode) {
    ReadLayoutList(run_.platform.files, run_.extents, run_.walk.PrefetchDir, run_.target.drive,
                   run_.table.PrefetchFiles);
  }
  ShowResults();
  run_.view.SetCaption("Volume " + run_.target.drive);
  ReportResults();
  return true;
}

bool Analysis::ExamineEntries(const std::vector<ExtentRecord>& records) {
  for (std::size_t i = 0; i < records.size(); ++i) {
    if (run_.flags.StopRequested) {
      run_.view.SetValue(0);
      return false;
    }
    const auto index = static_cast<std::int64_t>(i);
    if (run_.view.Value() < index) run_.view.SetValue(index);
    run_.platform.desktop.DoEvents();
    Examine(run_.table.MultiExtentPaths.paths[i], records[i]);
  }
  return true;
}

void Analysis::Examine(const std::string& path, const ExtentRecord& record) {
  if (path.empty() || !IncludedBy(run_.target.exclude, path)) return;
  const std::int64_t fragments = CountFragments(record.extents, run_.target.Ntfs());
  if (fragments <= 1) return;
  summary.fragments += fragments;
  summary.max_per_file = std::max(summary.max_per_file, fragments);
  if (!record.opened) return;
  ++summary.fragmented;
  if (!run_.flags.OptimizeMode) {
    std::int64_t vcn = 0;
    for (const Extent& extent : record.extents) {
      if (extent.Lcn != -1) {
        run_.view.PaintExtent(extent.Lcn, extent.NextVcn - vcn, map_colour::kDefrag);
      }
      vcn = extent.NextVcn;
    }
    run_.view.RefreshMap();
  }
  lists.Add(path, record.Count(), {fragments, record.SizeInClusters()});
  if (run_.trace.On()) {
    run_.trace.Line("fragged: " + path + ", fragments: " + std::to_string(fragments));
  }
}

RunFigures Analysis::Figures() const {
  return {.files = run_.table.TotalFiles,
          .dirs = run_.table.TotalDirs,
          .free_clusters = run_.geometry.constants.FreeClusters,
          .total_clusters = run_.geometry.constants.TotalClusters,
          .fragmented = summary.fragmented,
          .fragments = summary.fragments,
          .max_per_file = summary.max_per_file};
}

void Analysis::ShowResults() {
  ShowFigures(run_.view, Figures());
  const bool classes = run_.flags.ClassListsValid != False;
  run_.view.SetDetailsCounts(
      InBrackets(summary.fragmented),
      classes ? InBrackets(run_.table.DirsToMove.Entries() + run_.table.PrefetchFiles.Entries())
              : "N/A",
      classes ? InBrackets(run_.table.OptimizeFiles.Entries()) : "N/A");
}

void Analysis::ReportResults() {
  const auto line = [this](const char* label, std::int64_t value) {
    run_.trace.Line(label + std::to_string(value));
  };
  line("total files   : ", run_.table.TotalFiles);
  line("total dirs    : ", run_.table.TotalDirs);
  line("fragged       : ", summary.fragmented);
  line("move_out_files: ", run_.table.MoveOutFiles.count);
  line("optimize_files: ", run_.table.OptimizeFiles.count);
  line("dirs_to_move  : ", run_.table.DirsToMove.count);
  line("prefetch_files: ", run_.table.PrefetchFiles.count);
  line("locked  _files: ", run_.extents.LockedCount);
  run_.trace.Line("**********************************************");
}

}  // namespace vornalux
