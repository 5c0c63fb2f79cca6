// SPDX-License-Identifier: GPL-2.0-or-later
// Scripts by which shells complete command lines of the program.
#pragma once

#include <iosfwd>

#include "host/terminal/command_line/grammar.h"

namespace vornalux {

void WriteBash(const Grammar& grammar, std::ostream& out);
void WriteZsh(const Grammar& grammar, std::ostream& out);
void WriteFish(const Grammar& grammar, std::ostream& out);

}  // namespace vornalux
