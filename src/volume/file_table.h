// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vornalux {

// Full paths with a separate count. A finished list holds one empty slot behind its entries; the
// layout list may leave more. Readers skip empty paths.
struct PathList {
  std::vector<std::string> paths;
  std::int32_t count = 0;

  void Clear() {
    paths.clear();
    count = 0;
  }
  void Add(const std::string& path) {
    paths.push_back(path);
    ++count;
  }
  void Trim() { paths.resize(static_cast<std::size_t>(count) + 1); }
  // Index of the last slot; -1 when there is none.
  std::int64_t UpperBound() const { return static_cast<std::int64_t>(paths.size()) - 1; }
  std::int64_t Entries() const {
    std::int64_t entries = 0;
    for (const std::string& path : paths) entries += path.empty() ? 0 : 1;
    return entries;
  }
};

// What the last walk found.
struct FileTable {
  PathList MultiExtentPaths;  // every file or directory with more than one extent
  PathList MoveOutFiles;      // in the reserved front area or the MFT zone; twice when in both
  PathList OptimizeFiles;     // files that begin beyond the optimize area
  PathList DirsToMove;        // directories with clusters
  PathList PrefetchFiles;     // files under the prefetch folder, then the layout list's
  std::vector<std::string>
      LeftOutFolders;  // with a dot in front, which no list has, nor what is in them
  std::int32_t TotalFiles = 0;
  std::int32_t TotalDirs = 0;

  void Clear() { *this = {}; }
  void Trim() {
    for (PathList* list :
         {&MultiExtentPaths, &MoveOutFiles, &OptimizeFiles, &DirsToMove, &PrefetchFiles}) {
      list->Trim();
    }
  }
};

}  // namespace vornalux
