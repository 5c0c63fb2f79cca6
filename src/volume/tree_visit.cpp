// SPDX-License-Identifier: GPL-2.0-or-later
#include "volume/tree_visit.h"

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace vornalux {
namespace {

// Windows' limit of 32,767 UTF-16 units, each at most three bytes here. Also what ends a walk
// through a folder that contains itself.
constexpr std::size_t kLongestPath = std::size_t{3} * 32767;

// Folders let events happen each; one with a million files must not keep the user waiting either.
constexpr std::uint64_t kFilesBetweenEvents = 256;

}  // namespace

void VisitTree(Platform& platform, const RunFlags& flags, const std::string& folder,
               std::vector<std::string>* left_out,
               const std::function<void(const std::string& path, bool is_folder)>& visit) {
  // The folders being enumerated, outermost first: the depth of a tree must not cost call stack.
  struct Level {
    std::string path;
    std::unique_ptr<FolderSearch> search;
  };
  std::vector<Level> levels;
  const auto let_events_happen = [&] {
    platform.desktop.DoEvents();
    return !flags.StopRequested;
  };
  const auto enter = [&](std::string path) {
    if (path.size() > kLongestPath) return;
    if (auto search = platform.files.FindFirst(path + "*", let_events_happen)) {
      levels.push_back({std::move(path), std::move(search)});
    }
  };
  enter(folder);
  FolderEntry entry;
  std::uint64_t files = 0;
  while (!levels.empty() && !flags.StopRequested) {
    if (!levels.back().search->Next(entry)) {
      levels.pop_back();
      continue;
    }
    if (entry.attributes & attribute::kReparsePoint) continue;
    std::string path = levels.back().path + entry.name;
    if (!(entry.attributes & attribute::kDirectory)) {
      visit(path, false);
      if (++files % kFilesBetweenEvents == 0) platform.desktop.DoEvents();
    } else if (entry.name == "." || entry.name == "..") {
      continue;
    } else if (left_out != nullptr && entry.name.starts_with('.')) {
      left_out->push_back(std::move(path));
    } else {
      visit(path, true);
      platform.desktop.DoEvents();
      enter(std::move(path) + "\\");
    }
  }
}

}  // namespace vornalux
