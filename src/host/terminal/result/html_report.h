// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <chrono>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/terminal/picture/map_image.h"
#include "host/terminal/result/results.h"

namespace vornalux {

// What a report tells. Parts that a command has no answer to stay empty.
struct ReportContent {
  std::string action;                 // "Defrag"
  std::string when;                   // it began; empty: not known
  std::chrono::milliseconds took{0};  // all of it, analyses included
  VolumeDescription volume;
  std::optional<AnalysisFigures> before;
  std::optional<AnalysisFigures> after;
  MapColumns map_before;
  MapColumns map_after;
  Legend legend;
  std::vector<FragmentedFile> fragmented;  // of an analysis
  AnalysisDetails details;                 // likewise
  std::optional<RunSummary> summary;
  std::optional<MoveStatistics> moved;
  std::vector<std::string> remarks;  // what was done besides moving
  std::vector<ReadFailure> unreadable;
  std::optional<ShrinkAdvice> shrink;
  std::optional<DiscardResult> discard;
  bool stopped = false;
  bool dry_run = false;
};

// One self-contained page, of one volume or of one after the other. There is at least one.
std::string ToHtml(std::span<const ReportContent> reports);

}  // namespace vornalux
