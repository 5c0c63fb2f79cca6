// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "volume/extent_reader.h"
#include "volume/file_table.h"
#include "volume/run_flags.h"
#include "volume/volume_geometry.h"
#include "volume/work_view.h"

namespace vornalux {

// Walks a folder tree once and sorts what it finds into the file table.
class VolumeWalk {
 public:
  VolumeWalk(Platform& platform, ExtentReader& extents, const VolumeConstants& constants,
             RunFlags& flags, FileTable& table)
      : platform_(platform),
        extents_(extents),
        constants_(constants),
        flags_(flags),
        table_(table) {}

  // The Windows folder followed by "\Prefetch"; empty when there is none.
  std::string PrefetchDir;

  // Told of each file with its first extents, when somebody wants to know.
  std::function<void(const std::string& path, const ExtentRecord& record)> FileSeen;

  // Fills the table from the folder (ending in "\") and all below it. Reparse points are not
  // entered. Ends early, the table as far as it got, when a stop is requested.
  void WalkFolder(const std::string& folder);

  // WalkFolder, then the complete extents of every entry of MultiExtentPaths, at the same index.
  std::vector<ExtentRecord> WalkVolume(const std::string& root, WorkView& view);

  // The same for these files and folders alone, of which nothing below is looked at.
  std::vector<ExtentRecord> LookAt(const std::vector<std::string>& paths, WorkView& view);

  // The path begins with the prefetch folder's, case included.
  bool UnderPrefetch(const std::string& path) const;

 private:
  std::vector<ExtentRecord> ReadMultiExtent(WorkView& view);
  void AddFolder(const std::string& path);
  void AddFile(const std::string& path);
  void ClassifyFile(const std::string& path, const ExtentRecord& record);
  std::int64_t Position(const std::string& path, const ExtentRecord& record);

  Platform& platform_;
  ExtentReader& extents_;
  const VolumeConstants& constants_;
  RunFlags& flags_;
  FileTable& table_;
};

}  // namespace vornalux
