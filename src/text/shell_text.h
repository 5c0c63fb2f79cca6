// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>
#include <string_view>

namespace vornalux {

std::string WithBackslashBefore(std::string_view characters, std::string_view text);

// As POSIX shells take it for one word: always in quotes, or where it needs them.
std::string InSingleQuotes(std::string_view text);
std::string ShellQuoted(std::string_view text);

}  // namespace vornalux
