// SPDX-License-Identifier: GPL-2.0-or-later
#include "check/fat_check.h"

#include <algorithm>
#include <tuple>

#include "check/content.h"
#include "check/fat_folder.h"
#include "check/fat_volume.h"

namespace vornalux {
namespace checking {
namespace {

constexpr std::uint64_t kFolderLimit = std::uint64_t{65536} * 32;  // bytes

class FatJudge {
 public:
  FatJudge(const ByteSource& source, const CheckOptions& options, const RawFatGeometry& geometry,
           CheckReport& report, Problems& problems)
      : source_(source),
        options_(options),
        geometry_(geometry),
        report_(report),
        problems_(problems),
        table_(source, options.offset, geometry, problems) {}

  void Run();

 private:
  struct Folder {
    std::string path;           // with a slash at its end
    std::uint32_t cluster = 0;  // 0: the root
    std::uint32_t parent = 0;
    std::vector<CheckedExtent> extents;
  };

  void StartAtRoot();
  void Enter(const Folder& folder);
  void CheckDots(const Folder& folder, const std::vector<FatEntry>& entries);
  void AddFile(const Folder& folder, const FatEntry& entry);
  void AddFolder(const Folder& folder, const FatEntry& entry);
  void AddItem(CheckedItem item);
  void CheckInfoSector();
  std::vector<std::uint8_t> FolderBytes(const Folder& folder);
  std::string Hash(const CheckedItem& item);
  std::uint64_t ByteOf(std::int64_t lcn) const {
    return options_.offset + geometry_.data_start +
           static_cast<std::uint64_t>(lcn) * geometry_.cluster;
  }

  const ByteSource& source_;
  const CheckOptions& options_;
  const RawFatGeometry& geometry_;
  CheckReport& report_;
  Problems& problems_;
  RawFatTable table_;
  std::vector<Folder> to_enter_;
};

std::uint64_t AllocatedBytes(const std::vector<CheckedExtent>& extents, std::uint32_t cluster) {
  return extents.empty()
             ? 0
             : static_cast<std::uint64_t>(extents.back().vcn + extents.back().count) * cluster;
}

void FatJudge::Run() {
  if (!table_.Loaded()) return;
  report_.dirty = geometry_.dirty || table_.Dirty();
  StartAtRoot();
  while (!to_enter_.empty()) {
    const Folder folder = std::move(to_enter_.back());
    to_enter_.pop_back();
    Enter(folder);
  }
  table_.CheckLost(report_.clusters_used, report_.clusters_bad);
  if (geometry_.bits == 32) CheckInfoSector();
  std::sort(report_.items.begin(), report_.items.end(),
            [](const CheckedItem& a, const CheckedItem& b) { return a.path < b.path; });
}

void FatJudge::StartAtRoot() {
  Folder root{"/", 0, 0, {}};
  if (geometry_.bits == 32) {
    root.extents = table_.Claim(geometry_.root_cluster, "/");
    CheckedItem item;
    item.path = "/";
    item.is_folder = true;
    item.size = AllocatedBytes(root.extents, geometry_.cluster);
    item.extents = root.extents;
    report_.metafiles.push_back(std::move(item));
  }
  to_enter_.push_back(std::move(root));
}

std::vector<std::uint8_t> FatJudge::FolderBytes(const Folder& folder) {
  std::vector<std::uint8_t> bytes;
  if (folder.cluster == 0 && geometry_.bits != 32) {
    bytes.resize(static_cast<std::size_t>(geometry_.root_size));
    if (!source_.Read(options_.offset + geometry_.root_start, bytes)) bytes.clear();
    return bytes;
  }
  const std::uint64_t size = AllocatedBytes(folder.extents, geometry_.cluster);
  if (size > kFolderLimit) problems_.Add(folder.path, ": has ", size, " bytes");
  for (const CheckedExtent& extent : folder.extents) {
    const std::size_t old = bytes.size();
    if (old > kFolderLimit) break;
    bytes.resize(old + static_cast<std::size_t>(extent.count) * geometry_.cluster);
    if (!source_.Read(ByteOf(extent.lcn), std::span(bytes).subspan(old))) {
      problems_.Add(folder.path, ": cannot be read");
      bytes.resize(old);
      break;
    }
  }
  return bytes;
}

void FatJudge::Enter(const Folder& folder) {
  const std::vector<std::uint8_t> bytes = FolderBytes(folder);
  const std::vector<FatEntry> entries =
      ReadFatFolder(bytes, geometry_.bits == 32, folder.path, problems_);
  CheckDots(folder, entries);
  for (const FatEntry& entry : entries) {
    if (entry.IsDot()) continue;
    if (entry.IsLabel()) {
      if (folder.cluster != 0) problems_.Add(folder.path, ": has a volume label");
    } else if (entry.IsFolder()) {
      AddFolder(folder, entry);
    } else {
      AddFile(folder, entry);
    }
  }
}

void FatJudge::CheckDots(const Folder& folder, const std::vector<FatEntry>& entries) {
  static constexpr std::array<std::uint8_t, 11> kDot = {'.', ' ', ' ', ' ', ' ', ' ',
                                                        ' ', ' ', ' ', ' ', ' '};
  static constexpr std::array<std::uint8_t, 11> kDotDot = {'.', '.', ' ', ' ', ' ', ' ',
                                                           ' ', ' ', ' ', ' ', ' '};
  const bool is_root = folder.cluster == 0;
  for (std::size_t i = is_root ? 0 : 2; i < entries.size(); ++i) {
    if (entries[i].IsDot())
      problems_.Add(folder.path, ": a \"", entries[i].name, "\" out of place");
  }
  if (is_root) return;
  if (entries.size() < 2 || entries[0].short_name != kDot || entries[1].short_name != kDotDot ||
      !entries[0].IsFolder() || !entries[1].IsFolder()) {
    problems_.Add(folder.path, ": does not begin with \".\" and \"..\"");
    return;
  }
  if (entries[0].cluster != folder.cluster) {
    problems_.Add(folder.path, ": \".\" names cluster ", entries[0].cluster, " instead of ",
                  folder.cluster);
  }
  if (entries[1].cluster != folder.parent) {
    problems_.Add(folder.path, ": \"..\" names cluster ", entries[1].cluster, " instead of ",
                  folder.parent);
  }
}

void FatJudge::AddFolder(const Folder& folder, const FatEntry& entry) {
  Folder child;
  CheckedItem item;
  item.path = folder.path + entry.name;
  item.is_folder = true;
  item.attributes = entry.attributes;
  if (entry.size != 0) problems_.Add(item.path, ": a folder of size ", entry.size);
  item.extents = table_.Claim(entry.cluster, item.path);
  item.size = AllocatedBytes(item.extents, geometry_.cluster);
  if (!item.extents.empty()) {
    to_enter_.push_back({item.path + "/", entry.cluster, folder.cluster, item.extents});
  }
  ++report_.folders;
  AddItem(std::move(item));
}

void FatJudge::AddFile(const Folder& folder, const FatEntry& entry) {
  CheckedItem item;
  item.path = folder.path + entry.name;
  item.attributes = entry.attributes;
  item.size = entry.size;
  if (entry.cluster != 0) item.extents = table_.Claim(entry.cluster, item.path);
  const std::uint64_t allocated = AllocatedBytes(item.extents, geometry_.cluster);
  const std::uint64_t needed =
      (std::uint64_t{entry.size} + geometry_.cluster - 1) / geometry_.cluster * geometry_.cluster;
  if (allocated != needed) {
    problems_.Add(item.path, ": size ", entry.size, ", but its chain has ", allocated, " bytes");
  }
  if (options_.hash) item.sha256 = Hash(item);
  ++report_.files;
  AddItem(std::move(item));
}

void FatJudge::AddItem(CheckedItem item) {
  const std::size_t fragments = item.Fragments();
  report_.fragments += static_cast<std::int64_t>(fragments);
  report_.fragmented_streams += fragments > 1;
  report_.items.push_back(std::move(item));
}

std::string FatJudge::Hash(const CheckedItem& item) {
  std::vector<std::uint8_t> buffer(1U << 20);
  ContentHash hash;
  std::uint64_t left = item.size;
  for (const CheckedExtent& extent : item.extents) {
    const std::uint64_t bytes =
        std::min(left, static_cast<std::uint64_t>(extent.count) * geometry_.cluster);
    for (std::uint64_t done = 0; done < bytes;) {
      const std::span<std::uint8_t> part(
          buffer.data(),
          static_cast<std::size_t>(std::min<std::uint64_t>(bytes - done, buffer.size())));
      if (!source_.Read(ByteOf(extent.lcn) + done, part)) {
        problems_.Add(item.path, ": content cannot be read");
        return {};
      }
      hash.Add(part);
      done += part.size();
    }
    left -= bytes;
  }
  return left == 0 ? hash.Finish() : std::string();
}

void FatJudge::CheckInfoSector() {
  if (geometry_.info_sector == 0) return;
  std::vector<std::uint8_t> info(512);
  if (!source_.Read(options_.offset + std::uint64_t{geometry_.info_sector} * geometry_.sector,
                    info) ||
      Load32(info, 0) != 0x41615252 || Load32(info, 484) != 0x61417272 ||
      Load32(info, 508) != 0xAA550000) {
    problems_.Add("information sector: missing or without its marks");
    return;
  }
  const std::uint32_t free = Load32(info, 488);
  const std::uint32_t hint = Load32(info, 492);
  if (free != 0xFFFFFFFF && free != table_.FreeClusters()) {
    problems_.Add("information sector: says ", free, " free clusters, there are ",
                  table_.FreeClusters());
  }
  if (hint != 0xFFFFFFFF && (hint < 2 || hint >= geometry_.EndCluster())) {
    problems_.Add("information sector: next free cluster ", hint, " is outside the volume");
  }
}

}  // namespace
}  // namespace checking

using namespace checking;

CheckReport CheckFat(const ByteSource& source, const CheckOptions& options) {
  CheckReport report;
  Problems problems(report.problems, options.max_problems);
  const auto geometry = ReadFatBoot(source, options.offset, problems);
  if (!geometry) return report;
  report.file_system = "FAT" + std::to_string(geometry->bits);
  report.cluster_size = geometry->cluster;
  report.clusters = geometry->clusters;
  FatJudge(source, options, *geometry, report, problems).Run();
  return report;
}

CheckReport CheckFat(const std::string& image_path, const CheckOptions& options) {
  return CheckFat(FileSource(image_path), options);
}

}  // namespace vornalux
