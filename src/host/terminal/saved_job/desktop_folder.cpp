// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/saved_job/desktop_folder.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>

namespace vornalux {
namespace {

// An absolute path from the environment; empty for anything else.
std::string PathFromEnvironment(const char* variable) {
  const char* const text = std::getenv(variable);
  return text != nullptr && text[0] == '/' ? text : "";
}

std::string_view WithoutBlanksBefore(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
  return text;
}

// Takes what is expected off the front of text.
bool Take(std::string_view& text, std::string_view expected) {
  text = WithoutBlanksBefore(text);
  if (!text.starts_with(expected)) return false;
  text.remove_prefix(expected.size());
  return true;
}

// Up to the closing quote, without the backslashes that protect characters.
std::string Unquoted(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size() && text[i] != '"'; ++i) {
    if (text[i] == '\\' && i + 1 < text.size()) ++i;
    out += text[i];
  }
  while (out.ends_with('/')) out.pop_back();
  return out;
}

}  // namespace

std::string DesktopOf(const std::string& user_dirs, const std::string& home) {
  std::string found;
  std::istringstream lines(user_dirs);
  for (std::string line; std::getline(lines, line);) {
    std::string_view rest = line;
    if (!Take(rest, "XDG_DESKTOP_DIR") || !Take(rest, "=") || !Take(rest, "\"")) continue;
    const bool below_home = rest.starts_with("$HOME/") || rest.starts_with("$HOME\"");
    if (below_home) {
      rest.remove_prefix(std::string_view("$HOME").size());
      found = home + Unquoted(rest);
    } else if (rest.starts_with('/')) {
      found = Unquoted(rest);
    }
  }
  return found;
}

std::string DesktopFolder() {
  const std::string home = PathFromEnvironment("HOME");
  if (home.empty()) return {};
  std::string settings = PathFromEnvironment("XDG_CONFIG_HOME");
  if (settings.empty()) settings = home + "/.config";
  std::ifstream file(settings + "/user-dirs.dirs", std::ios::binary);
  const std::string user_dirs{std::istreambuf_iterator<char>(file), {}};
  const std::string desktop = DesktopOf(user_dirs, home);
  return desktop.empty() ? home + "/Desktop" : desktop;
}

}  // namespace vornalux
