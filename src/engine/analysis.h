// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/fragment_lists.h"
#include "engine/run_context.h"
#include "engine/run_summary.h"

namespace vornalux {

// Numbers of the last analysis.
struct AnalysisSummary {
  std::int64_t fragmented = 0;      // files counted as fragmented
  std::int64_t fragments = 0;       // of all included items with more than one
  std::int64_t max_per_file = 0;    // largest fragment count
  std::int64_t reserved_front = 0;  // end of the front area by which files were sorted
};

// The fragments of one item. On NTFS runs that lie back to back, or with one hole between them,
// count as one; elsewhere every extent counts.
std::int64_t CountFragments(const std::vector<Extent>& extents, bool ntfs);

// False for a path whose extension, written "*.EXT", occurs anywhere in the exclusion text, in any
// case of letters.
bool IncludedBy(const std::string& exclude, const std::string& path);

// Walks the volume, counts fragments, collects and sorts the fragmented files, reports. The context
// outlives it.
class Analysis {
 public:
  explicit Analysis(const RunContext& run) : run_(run) {}

  FragmentLists lists;
  AnalysisSummary summary;

  // The analysis step of a run: fresh constants and map, their report, AnalyzeVolume. False when
  // the volume's figures could not be read or a stop was requested; AnalysisValid is then False.
  bool Analyze_This();

  // What it found, with the volume's figures as they were read last.
  RunFigures Figures() const;

 private:
  // False, and the user told, when the drive had gone before the walk began.
  bool AnalyzeVolume();
  bool IsThere();
  void ReportConstants();
  // False when a stop was requested before the last entry was reached.
  bool ExamineEntries(const std::vector<ExtentRecord>& records);
  void Examine(const std::string& path, const ExtentRecord& record);
  void ShowResults();
  void ReportResults();

  const RunContext& run_;
};

}  // namespace vornalux
