// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>
#include <vector>

#include "host/terminal/command_line/exit_code.h"
#include "host/terminal/command_line/options.h"
#include "host/terminal/output/outputs.h"
#include "host/terminal/user/terminal_desktop.h"

namespace vornalux {

// Why the job line of options is not carried out: nobody is there to look at what is wrong with it,
// or doubtful, and to stop the rest of it. Empty for a line that names no drive.
std::vector<std::string> JobLineObjections(const Options& options);

// Writes a launcher of the job that options describe onto the user's desktop, in place of one of
// the same name, and prints its path. Makes the desktop's folder where there is none. When
// something prevents that, says what, and writes nothing.
ExitCode SaveJob(const Options& options, TerminalDesktop& desktop, StandardOutput& output);

}  // namespace vornalux
