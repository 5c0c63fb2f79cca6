// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "host/terminal/command_line/exit_code.h"
#include "host/terminal/command_line/options.h"
#include "host/terminal/output/outputs.h"
#include "host/terminal/user/terminal_desktop.h"

namespace vornalux {

// Prints what there is to work on: the volumes of this machine, or those of the images that the
// options name. Refused when one of these cannot be looked at; the others are listed all the same.
ExitCode ListCommand(const Options& options, TerminalDesktop& desktop, Charset charset,
                     StandardOutput& output);

}  // namespace vornalux
