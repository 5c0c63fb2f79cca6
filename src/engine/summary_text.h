// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "engine/run_summary.h"
#include "volume/movers.h"

namespace vornalux {

// A summary in words, the same on every host. Paths are left as they are.

// The system's text for an error code; empty where it has none.
using SystemText = std::function<std::string(ErrorCode)>;

// "Access is denied. (error 5)", on one line; "error 5" where the system has no text.
std::string CodeText(ErrorCode code, const SystemText& system);

// Why a file was left where it was, and why one is still in pieces.
std::string ReasonText(const MoveFailure& failure, const SystemText& system);
std::string ReasonText(const StillFragmented& file, const RunSummary& summary,
                       const SystemText& system);
// What files with this reason have in common.
const char* ReasonText(WhyFragmented why);

// What a planned run would do for what is still fragmented; empty where it would not help or nobody
// asked. name: of such a run.
std::string HelpText(const RunSummary& summary, const std::string& name);

// What was planned, as label, before and after: fragmented files, pieces, gaps, the largest gap.
struct PlanRow {
  const char* label;
  std::string before;
  std::string after;
};
std::vector<PlanRow> PlanRows(const PlanFigures& plan, std::int64_t cluster_bytes);
// "1,204 moves, 343 MiB; 2 new plans on the way".
std::string PlanText(const PlanFigures& plan, std::int64_t cluster_bytes);

// "95 MiB, 80 MiB"; empty when there is no gap.
std::string SizesText(const FreeRegions& regions, std::int64_t cluster_bytes);

// "400 ms", "7.3 s" below a minute, "1:20" above.
std::string DurationText(std::chrono::milliseconds duration);

// "7.3 s, 49 MiB/s"; without the rate where there is none.
std::string PaceText(const RunSummary& summary);

// What was done, on one line.
std::string ResultLine(const RunSummary& summary);

// All of it as a text of its own, lines ending in CR LF. volume: as it is to be called there.
std::string ReportText(const std::string& volume, const RunSummary& summary,
                       const MoveStatistics& moved, const SystemText& system);

}  // namespace vornalux
