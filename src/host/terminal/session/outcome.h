// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "host/image/opening/discard_free.h"
#include "host/terminal/command_line/exit_code.h"
#include "host/terminal/command_line/options.h"
#include "host/terminal/output/outputs.h"
#include "host/terminal/result/html_report.h"
#include "host/terminal/result/results.h"
#include "host/terminal/result/results_json.h"
#include "host/terminal/result/results_text.h"
#include "host/terminal/session/sleep_lock.h"
#include "host/terminal/user/terminal_desktop.h"

namespace vornalux {

// What counts when several volumes are summed up.
struct VolumeTally {
  std::int64_t fragmented_before = 0;
  std::optional<std::int64_t> fragmented_after = {};  // of a run
  std::int64_t moves = 0;
  std::int64_t bytes_moved = 0;
};

// How a command ended on its volume, and what it has to show once that is closed.
struct Outcome {
  ExitCode code = ExitCode::Done;
  std::string output;
  std::string log;  // the same for people
  // Makes the two, where they have to tell what came of giving free space back.
  std::function<void(Outcome&, const std::optional<DiscardResult>&)> compose;
  std::optional<ReportContent> report;     // also what the picture of the map is drawn from
  std::optional<AnalysisResult> analysis;  // still to be presented, with what it lacks
  std::optional<VolumeTally> tally;        // when it got as far as to have figures
  std::string error;                       // what ended it, where that was one thing
};

// Another program or a file gets names as they are; only a terminal has a character set.
Charset OutputCharset(Charset terminal);

template <typename Result>
void Present(const Result& result, const Options& options, Charset charset, Outcome& outcome) {
  outcome.output = options.json ? ToJson(result) : ToText(result, OutputCharset(charset));
  if (!options.log.empty()) outcome.log = ToText(result, Charset::Utf8);
}

template <typename Result>
auto Composer(Result result, const Options& options, Charset charset) {
  return [result = std::move(result), &options, charset](
             Outcome& outcome, const std::optional<DiscardResult>& discard) mutable {
    result.discard = discard;
    Present(result, options, charset, outcome);
  };
}

// False, and the user told, when not all of it could be written.
bool ShowResult(const Outcome& outcome, Outputs& outputs, TerminalDesktop& desktop);

// That the image's file system or the disk gives nothing back is no failure of the pass before.
ExitCode CodeOf(const std::optional<DiscardResult>& discard);

// A machine that sleeps or goes down in the middle loses nothing, but leaves a run to be finished.
// Nothing where nothing is written.
std::optional<SleepLock> StayAwake(const Options& options);

}  // namespace vornalux
