// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <span>
#include <string>

namespace CLI {
class App;
}

namespace vornalux {

// The parser's words for a mistake, as a plain sentence.
std::string PlainMistake(std::string text);

// An option that was left without its value takes the next one for it, and that one's meaning is
// lost: the volume is written to although "--exclude --dry-run" says not to. Throws a
// CLI::ValidationError for that. arguments: those of the command, its name first.
void RefuseSwallowedOptions(const CLI::App& command, std::span<const std::string> arguments);

}  // namespace vornalux
