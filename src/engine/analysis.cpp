// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/analysis.h"

#include <algorithm>

#include "engine/layout_list.h"

namespace vornalux {
namespace {

std::string UpperCase(std::string text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return text;
}

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
  if (!geometry_.ShowVolumeBitmap(target_.Drive(), view_)) {
    flags_.AnalysisValid = False;
    return false;
  }
  ReportConstants();
  AnalyzeVolume();
  flags_.AnalysisValid = True;
  if (!flags_.StopRequested) return true;
  view_.SetCaption("Volume " + target_.drive);
  flags_.AnalysisValid = False;
  return false;
}

void Analysis::ReportConstants() {
  const VolumeConstants& constants = geometry_.constants;
  trace_.Line("Volume constants for drive: " + target_.drive);
  trace_.Line("total clusters: " + std::to_string(constants.TotalClusters));
  trace_.Line("free clusters : " + std::to_string(constants.FreeClusters));
  trace_.Line("mftreserved  : " + std::to_string(constants.MftZoneStart) + "-" +
              std::to_string(constants.MftZoneEnd));
  trace_.Line("end reserved  : " + std::to_string(constants.ReservedFront));
  trace_.Line("optimize area : " + std::to_string(constants.OptimizeArea));
  view_.SetCaption("Volume " + target_.drive);
}

void Analysis::AnalyzeVolume() {
  view_.SetRange(0, 1);
  view_.SetValue(0);
  extents_.LockedCount = 0;
  flags_.AnalysisValid = False;
  flags_.ClassListsValid = False;
  lists.Clear();
  summary = {};
  summary.reserved_front = geometry_.constants.ReservedFront;

  view_.SetCaption("Enumerating files on volume " + target_.Root());
  platform_.desktop.DoEvents();
  const std::string root = target_.directory.empty()
                               ? target_.Root()
                               : target_.Drive() + "\\" + target_.directory + "\\";
  const std::vector<ExtentRecord> records = walk_.WalkVolume(root, view_);
  if (flags_.StopRequested) {
    view_.SetValue(0);
    return;
  }
  view_.SetRange(0, static_cast<std::int64_t>(records.size()));
  view_.SetValue(0);
  view_.SetCaption("Analyzing files on volume " + target_.Root());
  if (!ExamineEntries(records)) return;

  // The trailing empty element takes part, and so comes first.
  lists.Quicksort(platform_, 0, std::ssize(lists.FragExtents) - 1);
  if (flags_.OptimizeMode) {
    ReadLayoutList(platform_.files, extents_, walk_.PrefetchDir, target_.drive,
                   table_.PrefetchFiles);
  }
  ShowResults();
  view_.SetCaption("Volume " + target_.drive);
  ReportResults();
}

bool Analysis::ExamineEntries(const std::vector<ExtentRecord>& records) {
  for (std::size_t i = 0; i < records.size(); ++i) {
    if (flags_.StopRequested) {
      view_.SetValue(0);
      return false;
    }
    const auto index = static_cast<std::int64_t>(i);
    if (view_.Value() < index) view_.SetValue(index);
    platform_.desktop.DoEvents();
    Examine(table_.MultiExtentPaths.paths[i], records[i]);
  }
  return true;
}

void Analysis::Examine(const std::string& path, const ExtentRecord& record) {
  if (path.empty() || !IncludedBy(target_.exclude, path)) return;
  const std::int64_t fragments = CountFragments(record.extents, target_.Ntfs());
  if (fragments <= 1) return;
  summary.fragments += fragments;
  summary.max_per_file = std::max(summary.max_per_file, fragments);
  if (!record.opened) return;
  ++summary.fragmented;
  if (!flags_.OptimizeMode) {
    for (const Extent& extent : record.extents) {
      if (extent.Lcn != -1) view_.PaintCluster(extent.Lcn, map_colour::kDefrag);
    }
    view_.RefreshMap();
  }
  lists.Add(path, record.Count());
  if (trace_.On()) {
    trace_.Line("fragged: " + path + ", fragments: " + std::to_string(fragments));
  }
}

void Analysis::ShowResults() {
  const VolumeConstants& constants = geometry_.constants;
  const std::int64_t percent = PercentFree(constants.FreeClusters, constants.TotalClusters);
  const std::string panels[] = {
      "files: " + std::to_string(table_.TotalFiles),
      "dirs: " + std::to_string(table_.TotalDirs),
      "free: " + std::to_string(constants.FreeClusters) + " (" + std::to_string(percent) + "%)",
      "fragmented: " + std::to_string(summary.fragmented),
      "fragments: " + std::to_string(summary.fragments),
      "max/file: " + std::to_string(summary.max_per_file),
  };
  int index = 0;
  for (const std::string& panel : panels) view_.SetStatusPanel(index++, panel);

  const bool classes = flags_.ClassListsValid != False;
  view_.SetDetailsCounts(
      InBrackets(summary.fragmented),
      classes ? InBrackets(table_.DirsToMove.Entries() + table_.PrefetchFiles.Entries()) : "N/A",
      classes ? InBrackets(table_.OptimizeFiles.Entries()) : "N/A");
}

void Analysis::ReportResults() {
  const auto line = [this](const char* label, std::int64_t value) {
    trace_.Line(label + std::to_string(value));
  };
  line("total files   : ", table_.TotalFiles);
  line("total dirs    : ", table_.TotalDirs);
  line("fragged       : ", summary.fragmented);
  line("move_out_files: ", table_.MoveOutFiles.count);
  line("optimize_files: ", table_.OptimizeFiles.count);
  line("dirs_to_move  : ", table_.DirsToMove.count);
  line("prefetch_files: ", table_.PrefetchFiles.count);
  line("locked  _files: ", extents_.LockedCount);
  trace_.Line("**********************************************");
}

}  // namespace vornalux
