// SPDX-License-Identifier: GPL-2.0-or-later
// What the manual page says of the command line, as roff; the rest of it is written by hand
// (vornalux.8.in).
#pragma once

#include <iosfwd>

#include "host/terminal/command_line/grammar.h"

namespace vornalux {

// Each is what stands below the heading of that name.
void WriteSynopsis(const Grammar& grammar, std::ostream& out);
void WriteNotes(const Grammar& grammar, std::ostream& out);
void WriteCommands(const Grammar& grammar, std::ostream& out);
void WriteOptions(const Grammar& grammar, std::ostream& out);
void WriteExitCodes(const Grammar& grammar, std::ostream& out);

}  // namespace vornalux
