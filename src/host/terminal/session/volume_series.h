// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/image/opening/discard_free.h"
#include "host/terminal/command_line/options.h"
#include "host/terminal/output/outputs.h"
#include "host/terminal/result/html_report.h"
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

// Of two ends of volumes the one that the command as a whole ends with: failed, refused, bad
// command line, stopped, in pieces, done.
ExitCode Worse(ExitCode a, ExitCode b);

// Carries the command out on one volume after the other, a result each and one of all in the end.
// One that fails does not keep the others from their turn; a stop does. carry_out: on the only
// volume of its options. charset: of the results.
ExitCode RunSeries(const Options& options, TerminalDesktop& desktop, Charset charset,
                   Outputs& outputs, const std::function<Outcome(const Options&)>& carry_out);

}  // namespace vornalux
