// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/saved_job/desktop_entry.h"

#include <optional>

#include "text/shell_text.h"
#include "text/wtf8.h"

namespace vornalux {
namespace {

constexpr char32_t kDelete = 0x7F;

// An argument as a command has it: always in quotes, which what stands for something in there loses
// its meaning by a backslash, and a percent sign by a second one.
std::string Quoted(const std::string& argument) {
  std::string out;
  for (const char c : WithBackslashBefore("\"`$\\", argument)) {
    out += c;
    if (c == '%') out += c;
  }
  return '"' + out + '"';
}

// Values have backslashes of their own, over those of a command.
std::string Value(std::string_view text) { return WithBackslashBefore("\\", text); }

}  // namespace

bool FitsDesktopEntry(std::string_view text) {
  while (!text.empty()) {
    const std::optional<char32_t> code = TakeCodePoint(text);
    if (!code || *code < U' ' || *code == kDelete || (*code >= 0xD800 && *code < 0xE000)) {
      return false;
    }
  }
  return true;
}

std::string DesktopEntry(const std::string& name, const std::vector<std::string>& command) {
  std::string line;
  for (const std::string& argument : command) {
    line += (line.empty() ? "" : " ") + Quoted(argument);
  }
  return "[Desktop Entry]\nType=Application\nName=" + Value(name) + "\nExec=" + Value(line) +
         "\nIcon=drive-harddisk\nTerminal=true\n";
}

}  // namespace vornalux
