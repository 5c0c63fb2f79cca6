// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <functional>

#include "host/terminal/command_line/options.h"
#include "host/terminal/output/outputs.h"
#include "host/terminal/session/outcome.h"
#include "host/terminal/user/terminal_desktop.h"

namespace vornalux {

// Of two ends of volumes the one that the command as a whole ends with: failed, refused, bad
// command line, stopped, in pieces, done.
ExitCode Worse(ExitCode a, ExitCode b);

// Carries the command out on one volume after the other, a result each and one of all in the end.
// One that fails does not keep the others from their turn; a stop does. carry_out: on the only
// volume of its options. charset: of the results.
ExitCode RunSeries(const Options& options, TerminalDesktop& desktop, Charset charset,
                   Outputs& outputs, const std::function<Outcome(const Options&)>& carry_out);

}  // namespace vornalux
