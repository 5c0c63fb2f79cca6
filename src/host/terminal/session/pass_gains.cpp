// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/session/pass_gains.h"

#include <algorithm>
#include <exception>
#include <string_view>
#include <thread>

#include "host/terminal/live/pending_events.h"
#include "host/terminal/session/session.h"

namespace vornalux {
namespace {

using Clock = std::chrono::steady_clock;

// Says nothing to anybody, and asks nobody.
class SilentConsole final : public Console {
 public:
  bool CanAsk() const override { return false; }
  Charset Characters() const override { return Charset::Utf8; }
  void Print(std::string_view) override {}
  void PrintIfReady(std::string_view) override {}
  Reply ReadLine(const PendingEvents&, unsigned, std::string&) override { return Reply::Closed; }
  void Wait(std::chrono::milliseconds time) override { std::this_thread::sleep_for(time); }
};

std::optional<RunSummary> DryRun(const Options& options, const std::vector<std::string>& files,
                                 Clock::time_point end, const std::function<bool()>& stop,
                                 GainsTrouble& trouble) try {
  SilentConsole console;
  PendingEvents events = 0;
  Outputs outputs;
  TerminalDesktop desktop(console, nullptr, events, Clock::now, true);
  // Its time may be over, or it may be no more wanted.
  const Ticker limit(std::chrono::milliseconds(20), [&events, end, &stop] {
    if (Clock::now() >= end || stop()) events.fetch_or(pending::kTerminate);
  });
  Session session(options, desktop, Charset::Utf8, outputs);
  DefragWindow& window = session.program().main_window;
  window.engine.volume.Choose(std::string{options.volumes.front().letter, ':', '\\'},
                              options.directory, "");
  window.engine.volume.SetFiles(files);
  window.OpenMenu();
  window.PassItem(options.pass).Click();
  std::optional<RunSummary> summary = window.engine.record.Summary();
  const bool good = session.Close() && !window.last_run_failed;
  trouble.unreadable = session.platform().Unreadable();
  if (!good) trouble.refused = "a dry run of it failed";
  return summary;
} catch (const std::exception& error) {
  trouble.refused = error.what();
  return std::nullopt;
}

// What a run has come to, or what it had planned when its time was over.
std::optional<GainFigures> FiguresOf(const RunSummary& summary) {
  if (!summary.stopped && summary.regions_after && summary.after) {
    return GainFigures{.fragmented = summary.after->fragmented,
                       .free_regions = summary.regions_after->count,
                       .largest_gap = summary.regions_after->Largest(),
                       .clusters_moved = summary.clusters_moved};
  }
  if (!summary.plan) return std::nullopt;
  // The plan knows only of what may be moved.
  const PlanFigures& plan = *summary.plan;
  const std::int64_t cured = plan.before.fragmented - plan.after.fragmented;
  return GainFigures{.fragmented = std::max<std::int64_t>(summary.before.fragmented - cured, 0),
                     .free_regions = plan.after.gaps,
                     .largest_gap = plan.after.largest_gap,
                     .clusters_moved = plan.clusters_moved};
}

}  // namespace

GainsTrouble WorkOutGains(const Options& options, const std::vector<std::string>& files,
                          std::chrono::milliseconds time, const std::function<bool()>& stop,
                          AnalysisDetails& details) {
  Options dry = options;
  dry.command = Command::Pass;
  dry.dry_run = true;
  dry.debug_log.clear();
  for (const PassRow& row : kPasses) {
    // Only Defrag knows files by their names.
    if (!files.empty() && row.pass != Pass::Defrag) continue;
    for (const bool thorough : {false, true}) {
      if (thorough && row.thorough == nullptr) continue;
      details.gains.push_back({.pass = row.pass, .thorough = thorough, .figures = {}});
    }
  }
  const Clock::time_point end = Clock::now() + time;
  std::ptrdiff_t left = std::ssize(details.gains);
  for (PassGain& gain : details.gains) {
    const Clock::time_point now = Clock::now();
    // Half of what is left: where it does not do for all, it does for the first ones.
    const Clock::time_point turn = --left == 0 ? end : now + (end - now) / 2;
    if (now >= end || stop()) continue;
    dry.pass = gain.pass;
    dry.thorough = gain.thorough;
    GainsTrouble trouble;
    const std::optional<RunSummary> summary = DryRun(dry, files, turn, stop, trouble);
    if (!trouble.unreadable.empty() || !trouble.refused.empty()) return trouble;
    if (!summary) continue;
    gain.figures = FiguresOf(*summary);
    if (summary->regions_before) details.largest_gap = summary->regions_before->Largest();
  }
  return {};
}

}  // namespace vornalux
