// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/layout_list.h"

#include <algorithm>
#include <string_view>

namespace vornalux {
namespace {

constexpr std::size_t kRoom = 1000;
constexpr std::size_t kMoreRoom = 100;

// The next line of text without its line break; false at the end.
bool NextLine(std::string_view& text, std::string_view& line) {
  if (text.empty()) return false;
  const std::size_t end = std::min(text.find('\n'), text.size());
  line = text.substr(0, end);
  text.remove_prefix(std::min(end + 1, text.size()));
  if (line.ends_with('\r')) line.remove_suffix(1);
  return true;
}

}  // namespace

void ReadLayoutList(Files& files, ExtentReader& extents, const std::string& prefetch_dir,
                    const std::string& drive, PathList& prefetch_files) {
  const std::string_view prefix = std::string_view(prefetch_dir).substr(0, 2);
  if (prefix.size() < 2 || prefix != std::string_view(drive).substr(0, 2)) return;

  std::vector<std::string>& paths = prefetch_files.paths;
  if (paths.empty()) paths.emplace_back();
  std::size_t next = paths.size() - 1;
  paths.resize(paths.size() + kRoom);

  std::string content;
  if (files.ReadBytes(LongPath(prefetch_dir + "\\layout.ini"), content) != error::kSuccess) return;
  std::string_view rest = content;
  for (std::string_view line; NextLine(rest, line);) {
    if (!line.starts_with(prefix)) continue;
    const std::string path = files.FromCodePage(std::string(line.substr(0, line.find('\0'))));
    if (!extents.ReadExtents(path, false, false).opened) continue;
    if (extents.FirstAllocatedLcn(path) <= 0) continue;
    if (next >= paths.size()) paths.resize(paths.size() + kMoreRoom);
    paths[next++] = path;
  }
  paths.resize(next + 1);
}

}  // namespace vornalux
