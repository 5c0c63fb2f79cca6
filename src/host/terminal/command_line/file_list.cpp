// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/command_line/file_list.h"

#include <algorithm>
#include <istream>
#include <stdexcept>

#include "text/windows_path.h"

namespace vornalux {

std::vector<std::string> SplitPathList(std::string_view list) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";  // as editors on Windows write it
  if (list.starts_with(kByteOrderMark)) list.remove_prefix(kByteOrderMark.size());
  const char end = list.find('\0') == std::string_view::npos ? '\n' : '\0';
  std::vector<std::string> paths;
  while (!list.empty()) {
    const std::size_t length = std::min(list.find(end), list.size());
    std::string_view path = list.substr(0, length);
    list.remove_prefix(std::min(length + 1, list.size()));
    if (end == '\n' && path.ends_with('\r')) path.remove_suffix(1);
    if (!path.empty()) paths.emplace_back(path);
  }
  return paths;
}

std::string PathOnDrive(std::string_view text, char letter) {
  std::string rest(text);
  std::replace(rest.begin(), rest.end(), '/', '\\');
  if (rest.size() >= 2 && rest[1] == ':' && DriveLetter(rest[0]) != 0) {
    if (DriveLetter(rest[0]) != letter) {
      throw std::invalid_argument(std::string(text) + " is not on drive " + std::string(1, letter) +
                                  ":");
    }
    rest.erase(0, 2);
  }
  std::string path = {letter, ':'};
  for (std::size_t at = 0; at < rest.size();) {
    const std::size_t end = std::min(rest.find('\\', at), rest.size());
    const std::string_view name = std::string_view(rest).substr(at, end - at);
    if (!name.empty() && name != ".") path.append("\\").append(name);
    at = end + 1;
  }
  if (path.size() == 2) throw std::invalid_argument("\"" + std::string(text) + "\" names no file");
  return path;
}

std::vector<std::string> WithListFrom(std::istream& input, const std::vector<std::string>& paths) {
  std::vector<std::string> all;
  for (const std::string& path : paths) {
    if (path != "-") {
      all.push_back(path);
      continue;
    }
    std::string list;
    for (char c = 0; input.get(c);) list += c;
    if (input.bad()) throw std::invalid_argument("the list in standard input cannot be read");
    for (std::string& each : SplitPathList(list)) all.push_back(std::move(each));
  }
  return all;
}

}  // namespace vornalux
