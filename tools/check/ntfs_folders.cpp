// SPDX-License-Identifier: GPL-2.0-or-later
#include "check/ntfs_folders.h"

#include <algorithm>
#include <set>

#include "check/ntfs_index.h"

namespace vornalux::checking {
namespace {

constexpr std::uint64_t kFirstFile = 16;  // records below are the volume's own

class FolderJudge {
 public:
  FolderJudge(const RawNtfsVolume& volume, const NtfsFiles& files, Problems& problems)
      : volume_(volume), files_(files), problems_(problems), upcase_(volume, files, problems) {}

  std::vector<NtfsPath> Run();

 private:
  std::size_t IndexOf(const NtfsFile& file) const {
    return static_cast<std::size_t>(&file - files_.All().data());
  }
  void CheckIndexes(const NtfsFile& file);
  void CheckEntry(const NtfsFile& folder, const NtfsIndexEntry& entry);
  void CheckEveryNameIndexed();
  std::vector<NtfsPath> Paths();

  const RawNtfsVolume& volume_;
  const NtfsFiles& files_;
  Problems& problems_;
  NtfsUpcase upcase_;
  std::vector<std::vector<bool>> indexed_;  // by file, by its names
  struct Child {
    std::size_t file;
    std::size_t name;
  };
  std::vector<std::vector<Child>> children_;  // by file, of folders
};

std::vector<NtfsPath> FolderJudge::Run() {
  const std::vector<NtfsFile>& all = files_.All();
  indexed_.resize(all.size());
  children_.resize(all.size());
  for (std::size_t i = 0; i < all.size(); ++i) indexed_[i].resize(all[i].names.size());
  for (const NtfsFile& file : all) CheckIndexes(file);
  CheckEveryNameIndexed();
  return Paths();
}

void FolderJudge::CheckIndexes(const NtfsFile& file) {
  std::set<std::u16string> names;
  for (const NtfsStream& stream : file.streams) {
    if (stream.type == ntfs::kIndexRoot || stream.type == ntfs::kIndexAllocation) {
      names.insert(stream.name);
    }
  }
  if (file.is_folder) names.insert(u"$I30");
  if (!file.is_folder && names.contains(u"$I30")) {
    problems_.Add("record ", file.number, ": has a folder's index but is not marked a folder");
  }
  for (const std::u16string& name : names) {
    for (const NtfsIndexEntry& entry : WalkNtfsIndex(volume_, file, name, upcase_, problems_)) {
      CheckEntry(file, entry);
    }
  }
}

void FolderJudge::CheckEntry(const NtfsFile& folder, const NtfsIndexEntry& entry) {
  const auto fault = [&](const auto&... parts) {
    problems_.Add("folder ", folder.number, ", \"", ToUtf8(entry.name.name), "\": ", parts...);
  };
  const std::uint64_t record = ntfs::RecordOf(entry.reference);
  const NtfsFile* file = files_.Find(record);
  if (file == nullptr) return fault("leads to record ", record, ", which is not a file in use");
  if (file->sequence != ntfs::SequenceOf(entry.reference)) {
    return fault("leads to record ", record, " of sequence ", ntfs::SequenceOf(entry.reference),
                 " instead of ", file->sequence);
  }
  if (ntfs::RecordOf(entry.name.parent) != folder.number ||
      ntfs::SequenceOf(entry.name.parent) != folder.sequence) {
    return fault("names record ", ntfs::RecordOf(entry.name.parent), " as its folder");
  }
  const auto name = std::find(file->names.begin(), file->names.end(), entry.name);
  if (name == file->names.end()) return fault("record ", record, " has no such name");
  const std::size_t index = IndexOf(*file);
  const auto number = static_cast<std::size_t>(name - file->names.begin());
  if (indexed_[index][number]) return fault("stands there twice");
  indexed_[index][number] = true;
  children_[IndexOf(folder)].push_back({index, number});
}

void FolderJudge::CheckEveryNameIndexed() {
  for (const NtfsFile& file : files_.All()) {
    const std::vector<bool>& indexed = indexed_[IndexOf(file)];
    for (std::size_t i = 0; i < indexed.size(); ++i) {
      if (indexed[i]) continue;
      problems_.Add("record ", file.number, ": its name \"", ToUtf8(file.names[i].name),
                    "\" is not in folder ", ntfs::RecordOf(file.names[i].parent));
    }
    if (file.names.empty() && file.number >= ntfs::kFirstUser) {
      problems_.Add("record ", file.number, ": has no name");
    }
  }
}

std::vector<NtfsPath> FolderJudge::Paths() {
  const std::vector<NtfsFile>& all = files_.All();
  std::vector<NtfsPath> paths;
  std::vector<bool> entered(all.size());
  std::vector<std::size_t> next;  // indexes into paths of folders to enter
  const auto add = [&](std::size_t file, std::string path, bool metafile) {
    if (all[file].is_folder && entered[file]) {
      problems_.Add("folder ", all[file].number, ": is reached a second time as ", path);
      return;
    }
    if (all[file].is_folder) {
      entered[file] = true;
      next.push_back(paths.size());
    }
    paths.push_back({&all[file], std::move(path), metafile});
  };
  const NtfsFile* root = files_.Find(ntfs::kRootRecord);
  if (root == nullptr || !root->is_folder) {
    problems_.Add("root folder: missing");
    return paths;
  }
  add(IndexOf(*root), "/", true);
  while (!next.empty()) {
    const NtfsPath folder = paths[next.back()];  // a copy: paths grows
    next.pop_back();
    const bool is_root = folder.file == root;
    for (const Child& child : children_[IndexOf(*folder.file)]) {
      const NtfsFile& file = all[child.file];
      const NtfsName& name = file.names[child.name];
      if (&file == root || name.name_space == NtfsName::kDos) continue;
      add(child.file, (is_root ? "/" : folder.path + "/") + ToUtf8(name.name),
          (folder.metafile && !is_root) || file.number < kFirstFile);
    }
  }
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (all[i].is_folder && !entered[i] && all[i].number >= kFirstFile) {
      problems_.Add("folder ", all[i].number, ": cannot be reached from the root");
    }
  }
  return paths;
}

}  // namespace

std::vector<NtfsPath> CheckNtfsFolders(const RawNtfsVolume& volume, const NtfsFiles& files,
                                       Problems& problems) {
  return FolderJudge(volume, files, problems).Run();
}

}  // namespace vornalux::checking
