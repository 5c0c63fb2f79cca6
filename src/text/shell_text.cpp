// SPDX-License-Identifier: GPL-2.0-or-later
#include "text/shell_text.h"

#include <algorithm>

namespace vornalux {

std::string WithBackslashBefore(std::string_view characters, std::string_view text) {
  std::string out;
  for (const char c : text) {
    if (characters.find(c) != std::string_view::npos) out += '\\';
    out += c;
  }
  return out;
}

std::string InSingleQuotes(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text) quoted += c == '\'' ? "'\\''" : std::string(1, c);
  return quoted + "'";
}

std::string ShellQuoted(std::string_view text) {
  const auto plain = [](char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           std::string_view("_@%+=:,./-").find(c) != std::string_view::npos;
  };
  return !text.empty() && std::ranges::all_of(text, plain) ? std::string(text)
                                                           : InSingleQuotes(text);
}

}  // namespace vornalux
