// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "engine/analysis.h"
#include "engine/plan_source.h"
#include "engine/run_context.h"
#include "engine/run_summary.h"
#include "volume/volume_census.h"

namespace vornalux {

// Writes down what a pass finds, does and leaves behind. All outlive it.
class RunRecord {
 public:
  RunRecord(const RunContext& run, const Analysis& analysis) : run_(run), analysis_(analysis) {}

  // Of the last run that got as far as to move something, or to find nothing to move.
  const std::optional<RunSummary>& Summary() const { return summary_; }
  // It was of another volume, or another run begins.
  void Forget() { summary_.reset(); }

  // The analysis is valid, and the pass begins to move. The user has no word in it.
  void Begin(Pass pass);
  // The pass has made a plan of these entries, its files in their order: the first one, or a new
  // one.
  void NotePlan(const plan::Plan& plan, const PlanSource& source,
                const std::vector<CensusEntry>& entries);
  // The pass carries out no plan to its end: what is in pieces would need one.
  void NoteGivenUp(const std::vector<CensusEntry>& entries);
  // The pass has ended, stopped or not. Reads the gaps and, instead of walking the volume once
  // more, the files that were in more than one extent or refused to move: moves put no other file
  // into pieces. Shows the figures. A program that ends gets no summary.
  void End();

 private:
  using Clock = std::chrono::steady_clock;
  class Reading;

  const RunContext& run_;
  const Analysis& analysis_;
  std::optional<RunSummary> summary_;
  RunSummary begun_;
  std::vector<LeftByPlan> left_;
  Clock::time_point started_;
};

}  // namespace vornalux
