// SPDX-License-Identifier: GPL-2.0-or-later
#include "check/ntfs_check.h"

#include <algorithm>
#include <map>
#include <tuple>
#include <utility>

#include "check/ntfs_clusters.h"
#include "check/ntfs_folders.h"
#include "check/ntfs_stream.h"

namespace vornalux {
namespace checking {
namespace {

void ReadDirtyFlag(const NtfsFiles& files, CheckReport& report, Problems& problems) {
  const NtfsFile* file = files.Find(ntfs::kVolumeRecord);
  const NtfsStream* information = file == nullptr ? nullptr : file->Find(ntfs::kVolumeInformation);
  if (information == nullptr || information->value.size() < 12) {
    problems.Add("$Volume: no volume information");
    return;
  }
  report.dirty = (Load16(information->value, 10) & 1) != 0;
}

// Turns files into items, reading each content once however many names it has.
class ItemList {
 public:
  ItemList(const RawNtfsVolume& volume, const CheckOptions& options, CheckReport& report,
           Problems& problems)
      : options_(options), report_(report), hasher_(volume, problems) {}

  void Add(const NtfsPath& path) {
    const NtfsFile& file = *path.file;
    if (!path.metafile) ++(file.is_folder ? report_.folders : report_.files);
    bool main_stream = false;
    for (const NtfsStream& stream : file.streams) {
      const bool folder_index = stream.type == ntfs::kIndexAllocation && stream.name == u"$I30";
      if (stream.type != ntfs::kData && !folder_index) continue;
      main_stream = main_stream || folder_index || stream.name.empty();
      AddStream(path, stream);
    }
    // A small folder's index lies in its record; the folder is an item all the same.
    if (!main_stream) {
      NtfsStream empty;
      empty.type = file.is_folder ? ntfs::kIndexRoot : ntfs::kData;
      AddStream(path, empty);
    }
  }

 private:
  void AddStream(const NtfsPath& path, const NtfsStream& stream) {
    CheckedItem item;
    item.path = path.path;
    if (stream.type == ntfs::kData) item.stream = ToUtf8(stream.name);
    item.is_folder = path.file->is_folder;
    item.compressed = stream.Compressed();
    item.sparse = stream.Sparse();
    item.resident = stream.resident;
    item.id = path.file->number;
    item.size = stream.type == ntfs::kIndexAllocation ? stream.allocated : stream.size;
    item.attributes = path.file->attributes;
    item.extents = stream.extents;
    if (options_.hash && Hashable(path, stream)) item.sha256 = HashOnce(*path.file, stream);
    if (!path.metafile) {
      const std::size_t fragments = item.Fragments();
      report_.fragments += static_cast<std::int64_t>(fragments);
      report_.fragmented_streams += fragments > 1;
    }
    (path.metafile ? report_.metafiles : report_.items).push_back(std::move(item));
  }

  // The holes of $BadClus have the size of the volume and say nothing.
  static bool Hashable(const NtfsPath& path, const NtfsStream& stream) {
    return stream.type == ntfs::kData && path.file->number != ntfs::kBadClusterRecord;
  }

  std::string HashOnce(const NtfsFile& file, const NtfsStream& stream) {
    if (file.names.size() < 2) return hasher_.Hash(file.number, stream);
    const auto [known, added] = hashes_.try_emplace({file.number, stream.name});
    if (added) known->second = hasher_.Hash(file.number, stream);
    return known->second;
  }

  const CheckOptions& options_;
  CheckReport& report_;
  NtfsHasher hasher_;
  std::map<std::pair<std::uint64_t, std::u16string>, std::string> hashes_;
};

void SortItems(std::vector<CheckedItem>& items) {
  std::sort(items.begin(), items.end(), [](const CheckedItem& a, const CheckedItem& b) {
    return std::tie(a.path, a.stream) < std::tie(b.path, b.stream);
  });
}

}  // namespace
}  // namespace checking

using namespace checking;

CheckReport CheckNtfs(const ByteSource& source, const CheckOptions& options) {
  CheckReport report;
  Problems problems(report.problems, options.max_problems);
  report.file_system = "NTFS";
  const auto geometry = ReadNtfsBoot(source, options.offset, problems);
  if (!geometry) return report;
  report.cluster_size = geometry->cluster;
  report.clusters = geometry->clusters;
  const RawNtfsVolume volume{&source, options.offset, *geometry};
  const NtfsFiles files(volume, problems);
  if (files.All().empty()) return report;
  const ClusterCount count = CheckNtfsClusters(volume, files, problems);
  report.clusters_used = count.used;
  report.clusters_bad = count.bad;
  ReadDirtyFlag(files, report, problems);
  ItemList items(volume, options, report, problems);
  for (const NtfsPath& path : CheckNtfsFolders(volume, files, problems)) items.Add(path);
  SortItems(report.items);
  SortItems(report.metafiles);
  return report;
}

CheckReport CheckNtfs(const std::string& image_path, const CheckOptions& options) {
  return CheckNtfs(FileSource(image_path), options);
}

}  // namespace vornalux
