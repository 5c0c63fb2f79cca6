// SPDX-License-Identifier: GPL-2.0-or-later
#include "volume/volume_walk.h"

#include "volume/tree_visit.h"

namespace vornalux {

bool VolumeWalk::UnderPrefetch(const std::string& path) const {
  return !PrefetchDir.empty() && path.starts_with(PrefetchDir);
}

std::int64_t VolumeWalk::Position(const std::string& path, const ExtentRecord& record) {
  const std::int64_t lcn = record.FirstLcn();
  return lcn < 2 ? extents_.FirstAllocatedLcn(path) : lcn;
}

void VolumeWalk::AddFolder(const std::string& path) {
  ++table_.TotalDirs;
  const ExtentRecord record = extents_.ReadExtents(path, true, true);
  if (record.Fragmented()) table_.MultiExtentPaths.Add(path);
  if (!flags_.OptimizeMode) return;
  const std::int64_t lcn = Position(path, record);
  if (lcn <= 0) return;
  table_.DirsToMove.Add(path);
  if (!UnderPrefetch(path) && lcn < constants_.ReservedFront) table_.MoveOutFiles.Add(path);
}

void VolumeWalk::ClassifyFile(const std::string& path, const ExtentRecord& record) {
  if (record.Fragmented()) table_.MultiExtentPaths.Add(path);
  if (!flags_.OptimizeMode || !record.opened) return;
  const std::int64_t lcn = Position(path, record);
  const bool prefetch = UnderPrefetch(path);
  // Both tests may hold: the file then stands in the list twice.
  if (0 < lcn && lcn < constants_.ReservedFront) table_.MoveOutFiles.Add(path);
  if (constants_.InMftZone(lcn)) table_.MoveOutFiles.Add(path);
  if (!prefetch && lcn >= 1 && lcn > constants_.OptimizeArea) table_.OptimizeFiles.Add(path);
  if (prefetch) table_.PrefetchFiles.Add(path);
}

void VolumeWalk::AddFile(const std::string& path) {
  ++table_.TotalFiles;
  const ExtentRecord record = extents_.ReadExtents(path, true, true);
  if (FileSeen) FileSeen(path, record);
  ClassifyFile(path, record);
  if (!flags_.OptimizeMode || !extents_.QueryStreams(path)) return;
  for (const std::string& stream : extents_.StreamList) {
    ClassifyFile(stream, extents_.ReadExtents(stream, true, true));
  }
}

void VolumeWalk::WalkFolder(const std::string& folder) {
  table_.Clear();
  VisitTree(platform_, flags_, folder, &table_.LeftOutFolders,
            [this](const std::string& path, bool is_folder) {
              is_folder ? AddFolder(path) : AddFile(path);
            });
  table_.Trim();
  if (flags_.OptimizeMode && !flags_.StopRequested) flags_.ClassListsValid = True;
}

std::vector<ExtentRecord> VolumeWalk::WalkVolume(const std::string& root, WorkView& view) {
  view.SetValue(0);
  view.SetWalking(true);
  WalkFolder(root);
  view.SetWalking(false);
  return ReadMultiExtent(view);
}

std::vector<ExtentRecord> VolumeWalk::LookAt(const std::vector<std::string>& paths,
                                             WorkView& view) {
  table_.Clear();
  for (const std::string& path : paths) {
    platform_.desktop.DoEvents();
    if (flags_.StopRequested) break;
    const bool folder = platform_.files.FindFirst(path + "\\*") != nullptr;
    folder ? AddFolder(path) : AddFile(path);
  }
  table_.Trim();
  return ReadMultiExtent(view);
}

std::vector<ExtentRecord> VolumeWalk::ReadMultiExtent(WorkView& view) {
  std::vector<ExtentRecord> records;
  if (flags_.StopRequested) return records;
  const auto let_input_run = [&] {
    if (platform_.desktop.InputPending()) platform_.desktop.DoEvents();
  };
  records.resize(table_.MultiExtentPaths.paths.size());
  view.SetRange(0, std::int64_t{table_.MultiExtentPaths.count} + 1);
  view.SetValue(0);
  for (std::size_t i = 0; i < records.size(); ++i) {
    let_input_run();
    if (flags_.StopRequested) return records;
    records[i] = extents_.ReadExtents(table_.MultiExtentPaths.paths[i], false, false);
    if (!flags_.StopRequested) {
      view.SetValue(view.Value() + 1);
      let_input_run();
    }
  }
  return records;
}

}  // namespace vornalux
