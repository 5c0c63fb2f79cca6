// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "host/terminal/command_line/exit_code.h"
#include "host/terminal/command_line/options.h"
#include "host/terminal/output/outputs.h"
#include "host/terminal/user/terminal_desktop.h"

namespace vornalux {

// Gives the free space of the options' volume back. Throws VolumeRefused.
ExitCode TrimCommand(const Options& options, TerminalDesktop& desktop, Charset charset,
                     Outputs& outputs);

}  // namespace vornalux
