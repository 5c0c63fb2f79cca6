// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/fragment_lists.h"
#include "engine/run_target.h"
#include "platform/platform.h"
#include "volume/debug_trace.h"
#include "volume/run_flags.h"
#include "volume/run_view.h"
#include "volume/volume_geometry.h"
#include "volume/volume_walk.h"

namespace vornalux {

// Numbers of the last analysis.
struct AnalysisSummary {
  std::int64_t fragmented = 0;    // files counted as fragmented
  std::int64_t fragments = 0;     // of all included items with more than one
  std::int64_t max_per_file = 0;  // largest fragment count
};

// The fragments of one item. On NTFS runs that lie back to back, or with one hole between them,
// count as one; elsewhere every extent counts.
std::int64_t CountFragments(const std::vector<Extent>& extents, bool ntfs);

// False for a path whose extension, written "*.EXT", occurs anywhere in the exclusion text, in any
// case of letters.
bool IncludedBy(const std::string& exclude, const std::string& path);

// Walks the volume, counts fragments, collects and sorts the fragmented files, reports.
class Analysis {
 public:
  Analysis(Platform& platform, VolumeGeometry& geometry, ExtentReader& extents, FileTable& table,
           VolumeWalk& walk, RunFlags& flags, const RunTarget& target, const DebugTrace& trace,
           RunView& view)
      : platform_(platform),
        geometry_(geometry),
        extents_(extents),
        table_(table),
        walk_(walk),
        flags_(flags),
        target_(target),
        trace_(trace),
        view_(view) {}

  FragmentLists lists;
  AnalysisSummary summary;

  // The analysis step of a run: fresh constants and map, their report, AnalyzeVolume. False when
  // the volume's figures could not be read or a stop was requested; AnalysisValid is then False.
  bool Analyze_This();

  void AnalyzeVolume();

 private:
  void ReportConstants();
  // False when a stop was requested before the last entry was reached.
  bool ExamineEntries(const std::vector<ExtentRecord>& records);
  void Examine(const std::string& path, const ExtentRecord& record);
  void ShowResults();
  void ReportResults();

  Platform& platform_;
  VolumeGeometry& geometry_;
  ExtentReader& extents_;
  FileTable& table_;
  VolumeWalk& walk_;
  RunFlags& flags_;
  const RunTarget& target_;
  const DebugTrace& trace_;
  RunView& view_;
};

}  // namespace vornalux
