// SPDX-License-Identifier: GPL-2.0-or-later
#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>

#include "mkvolume/fat_entries.h"
#include "mkvolume/image.h"
#include "mkvolume/key.h"
#include "mkvolume/names.h"
#include "mkvolume/space.h"
#include "mkvolume/tree.h"
#include "mkvolume/volume_makers.h"

namespace vornalux::making {
namespace {

constexpr std::size_t kFolderEntryLimit = 65536;

int BitsOf(VolumeKind kind) {
  return kind == VolumeKind::Fat12 ? 12 : kind == VolumeKind::Fat16 ? 16 : 32;
}

// The number of clusters decides what a volume is, so the cluster size must suit the volume's.
std::uint32_t PickCluster(const Recipe& recipe) {
  if (recipe.cluster != 0) return recipe.cluster;
  std::uint32_t cluster = recipe.sector;
  if (recipe.kind == VolumeKind::Fat32) {
    while (cluster < 4096 && recipe.size / cluster / 2 > 70'000) cluster *= 2;
    return cluster;
  }
  const std::uint64_t most = recipe.kind == VolumeKind::Fat12 ? 4000 : 65'000;
  while (recipe.size / cluster > most && cluster < (64U << 10)) cluster *= 2;
  return cluster;
}

std::uint32_t Number(std::span<const std::uint8_t> bytes, std::size_t at, std::size_t width) {
  std::uint32_t value = 0;
  for (std::size_t i = width; i-- > 0;) value = value << 8 | bytes[at + i];
  return value;
}

void PutNumber(std::span<std::uint8_t> bytes, std::size_t at, std::uint32_t value) {
  for (std::size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
}

// What mkfs.fat has laid out.
struct Layout {
  std::uint32_t cluster = 0;  // bytes, as the following
  std::uint64_t table = 0;
  std::uint64_t table_size = 0;
  std::uint32_t tables = 0;
  std::uint64_t root = 0;  // 0: in clusters
  std::uint32_t root_entries = 0;
  std::uint64_t data = 0;
  std::int64_t clusters = 0;
  std::uint64_t info = 0;

  static Layout Read(const Image& image);
};

Layout Layout::Read(const Image& image) {
  std::array<std::uint8_t, 512> boot{};
  image.Read(0, boot);
  Layout layout;
  const std::uint64_t sector = Number(boot, 11, 2);
  layout.cluster = static_cast<std::uint32_t>(sector) * boot[13];
  layout.tables = boot[16];
  layout.table = sector * Number(boot, 14, 2);
  const std::uint32_t small_table = Number(boot, 22, 2);
  layout.table_size = sector * (small_table != 0 ? small_table : Number(boot, 36, 4));
  layout.root_entries = Number(boot, 17, 2);
  layout.data = layout.table + layout.tables * layout.table_size;
  if (layout.root_entries != 0) {
    layout.root = layout.data;
    layout.data += (std::uint64_t{32} * layout.root_entries + sector - 1) / sector * sector;
  } else {
    layout.info = sector * Number(boot, 48, 2);
  }
  const std::uint32_t small_total = Number(boot, 19, 2);
  const std::uint64_t total = sector * (small_total != 0 ? small_total : Number(boot, 32, 4));
  layout.clusters = static_cast<std::int64_t>((total - layout.data) / layout.cluster);
  return layout;
}

class FatMaker {
 public:
  FatMaker(const Recipe& recipe, const std::string& path)
      : recipe_(recipe),
        image_(Format(recipe, path)),
        layout_(Layout::Read(image_)),
        clusters_(layout_.clusters),
        random_(KeyOf(recipe.seed, "fat")),
        next_(static_cast<std::size_t>(layout_.clusters)) {}

  Manifest Make();

 private:
  static Image Format(const Recipe& recipe, const std::string& path);
  void MarkBadClusters();
  void BuildFolders();
  std::int64_t FolderClusters(std::size_t folder) const;
  void ScaleFiles();
  void Place();
  void LinkChain(std::vector<PlacedRun> runs);
  void WriteFolders();
  void WriteFiles(Manifest& manifest);
  void WriteTables();
  void WriteInfo();
  std::uint32_t FirstCluster(std::size_t item) const;
  std::uint32_t BadMark() const { return BadMarkOf(BitsOf(recipe_.kind)); }
  static std::uint32_t BadMarkOf(int bits) {
    return bits == 12 ? 0xFF7 : bits == 16 ? 0xFFF7 : 0x0FFFFFF7;
  }
  bool RootInClusters() const { return layout_.root == 0; }

  const Recipe& recipe_;
  Image image_;
  Layout layout_;
  ClusterSet clusters_;  // LCN 0 is cluster 2
  SeededRandom random_;
  std::vector<std::uint32_t> next_;  // by LCN, as table entries
  Tree tree_;
  std::vector<FatFolderEntries> entries_;     // by item, of folders
  std::vector<std::size_t> entry_of_;         // by item, in its parent's entries
  std::vector<std::vector<PlacedRun>> runs_;  // by item
};

Image FatMaker::Format(const Recipe& recipe, const std::string& path) {
  Image image = Image::Create(path, recipe.size);
  std::array<char, 16> serial{};
  std::snprintf(serial.data(), serial.size(), "%08x",
                static_cast<unsigned>(KeyOf(recipe.seed, "serial") & 0xFFFFFFFF));
  const std::uint32_t cluster = PickCluster(recipe);
  RunTool({"mkfs.fat", "-F", std::to_string(BitsOf(recipe.kind)), "-S",
           std::to_string(recipe.sector), "-s", std::to_string(cluster / recipe.sector),
           "--invariant", "-i", serial.data(), path});  // the first of them has a number too
  return image;
}

Manifest FatMaker::Make() {
  tree_ = PlanTree(recipe_, layout_.cluster);
  runs_.resize(tree_.items.size());
  if (RootInClusters()) clusters_.Set(0, 1, true);  // the root begins in cluster 2
  MarkBadClusters();
  BuildFolders();
  ScaleFiles();
  Place();
  Manifest manifest;
  WriteFolders();
  WriteFiles(manifest);
  WriteTables();
  WriteInfo();
  return manifest;
}

void FatMaker::MarkBadClusters() {
  for (std::int64_t left = recipe_.bad; left > 0 && clusters_.Free() > 0;) {
    const std::int64_t lcn = random_.Between(0, layout_.clusters - 1);
    if (clusters_.Taken(lcn)) continue;
    clusters_.Set(lcn, 1, true);
    next_[static_cast<std::size_t>(lcn)] = BadMark();
    --left;
  }
}

// Sizes are not known yet: they are put in with the clusters.
void FatMaker::BuildFolders() {
  entries_.resize(tree_.items.size());
  entry_of_.resize(tree_.items.size());
  const auto children = tree_.Children();
  for (std::size_t folder = 0; folder < tree_.items.size(); ++folder) {
    if (!tree_.items[folder].is_folder) continue;
    FatFolderEntries& entries = entries_[folder];
    if (folder != 0) entries.AddDots();
    for (const std::size_t child : children[folder]) {
      if (random_.Chance(recipe_.deleted)) {
        entries.AddDeleted(Wide("deleted file " + std::to_string(child) + ".tmp"),
                           static_cast<std::uint32_t>(random_.Below(100'000)));
      }
      const PlannedItem& item = tree_.items[child];
      entry_of_[child] = entries.Add(item.name, item.is_folder);
    }
    const std::size_t limit =
        folder == 0 && !RootInClusters() ? layout_.root_entries : kFolderEntryLimit;
    if (entries.Count() > limit) {
      throw std::runtime_error(tree_.PathOf(folder) + ": " + std::to_string(entries.Count()) +
                               " entries, the folder takes " + std::to_string(limit));
    }
  }
}

std::int64_t FatMaker::FolderClusters(std::size_t folder) const {
  if (folder == 0 && !RootInClusters()) return 0;
  const std::size_t bytes = entries_[folder].Bytes().size();
  return std::max<std::int64_t>(
      1, static_cast<std::int64_t>((bytes + layout_.cluster - 1) / layout_.cluster));
}

void FatMaker::ScaleFiles() {
  std::int64_t taken = layout_.clusters - clusters_.Free();
  for (std::size_t i = 0; i < tree_.items.size(); ++i) {
    if (tree_.items[i].is_folder) taken += FolderClusters(i);
  }
  const double fill = recipe_.fill > 0 ? recipe_.fill : kRoomyFill;
  const auto wanted =
      static_cast<std::int64_t>(fill * static_cast<double>(layout_.clusters)) - taken;
  if (recipe_.fill > 0 || ClustersOf(tree_, layout_.cluster, 0) > wanted) {
    ScaleTree(tree_, layout_.cluster, 0, wanted);
  }
}

void FatMaker::Place() {
  std::vector<SpaceRequest> requests;
  std::vector<std::size_t> items;
  for (std::size_t i = 0; i < tree_.items.size(); ++i) {
    const PlannedItem& item = tree_.items[i];
    std::int64_t clusters = item.is_folder ? FolderClusters(i) : 0;
    std::int64_t pieces = 0;
    std::int64_t from = 0;
    if (i == 0 && RootInClusters()) {
      runs_[0].push_back({0, 0, 1});
      from = 1;
      pieces = std::max<std::int64_t>(
          1, PiecesFor(recipe_, KeyOf(recipe_.seed, "/"), true, clusters) - 1);
    } else if (item.is_folder) {
      pieces = PiecesFor(recipe_, KeyOf(recipe_.seed, tree_.PathOf(i)), true, clusters);
    } else {
      const PlannedStream& stream = item.streams[0];
      clusters = stream.Clusters(layout_.cluster);
      pieces = stream.exact_extents > 0 ? stream.exact_extents
                                        : PiecesFor(recipe_, stream.payload.key, false, clusters);
    }
    if (clusters <= from) continue;
    requests.push_back({{{from, clusters - from}}, pieces, {}});
    items.push_back(i);
  }
  PlaceAll(requests, clusters_, random_);
  for (std::size_t i = 0; i < items.size(); ++i) {
    std::vector<PlacedRun>& runs = runs_[items[i]];
    runs.insert(runs.end(), requests[i].runs.begin(), requests[i].runs.end());
  }
  for (const std::vector<PlacedRun>& runs : runs_) LinkChain(runs);
}

void FatMaker::LinkChain(std::vector<PlacedRun> runs) {
  for (std::size_t i = 0; i < runs.size(); ++i) {
    for (std::int64_t k = 0; k < runs[i].count; ++k) {
      const bool last = k + 1 == runs[i].count;
      std::uint32_t next = 0x0FFFFFFF;
      if (!last) {
        next = static_cast<std::uint32_t>(runs[i].lcn + k + 1 + 2);
      } else if (i + 1 < runs.size()) {
        next = static_cast<std::uint32_t>(runs[i + 1].lcn + 2);
      }
      next_[static_cast<std::size_t>(runs[i].lcn + k)] = next;
    }
  }
}

std::uint32_t FatMaker::FirstCluster(std::size_t item) const {
  return runs_[item].empty() ? 0 : static_cast<std::uint32_t>(runs_[item][0].lcn + 2);
}

void FatMaker::WriteFolders() {
  for (std::size_t i = 1; i < tree_.items.size(); ++i) {
    const PlannedItem& item = tree_.items[i];
    entries_[item.parent].SetCluster(entry_of_[i], FirstCluster(i));
    if (!item.is_folder) {
      entries_[item.parent].SetSize(entry_of_[i],
                                    static_cast<std::uint32_t>(item.streams[0].payload.size));
      continue;
    }
    entries_[i].SetCluster(FatFolderEntries::kDot, FirstCluster(i));
    // The root is called cluster 0, wherever it lies.
    entries_[i].SetCluster(FatFolderEntries::kDotDot,
                           item.parent == 0 ? 0 : FirstCluster(item.parent));
  }
  const ClusterPlaces places{layout_.data, layout_.cluster};
  for (std::size_t i = 0; i < tree_.items.size(); ++i) {
    if (!tree_.items[i].is_folder) continue;
    const auto bytes = entries_[i].Bytes();
    if (i == 0 && !RootInClusters()) {
      image_.Write(layout_.root, bytes);
      continue;
    }
    for (const PlacedRun& run : runs_[i]) {
      // The image is new: what follows the entries is zeros already.
      const auto at = static_cast<std::size_t>(run.vcn) * layout_.cluster;
      const auto count = static_cast<std::size_t>(run.count) * layout_.cluster;
      if (at >= bytes.size()) break;
      image_.Write(places.Of(run.lcn), bytes.subspan(at, std::min(count, bytes.size() - at)));
    }
  }
}

void FatMaker::WriteFiles(Manifest& manifest) {
  const ClusterPlaces places{layout_.data, layout_.cluster};
  for (std::size_t i = 1; i < tree_.items.size(); ++i) {
    const PlannedItem& item = tree_.items[i];
    if (item.is_folder) {
      manifest.entries[tree_.PathOf(i) + "/"] = {"-", 0};
      continue;
    }
    const std::string hash = WriteStream(image_, places, item.streams[0], runs_[i]);
    AddToManifest(tree_, i, item.streams[0], hash, manifest);
  }
}

void FatMaker::WriteTables() {
  std::vector<std::uint8_t> table(static_cast<std::size_t>(layout_.table_size));
  image_.Read(layout_.table, table);
  const int bits = BitsOf(recipe_.kind);
  for (std::size_t lcn = 0; lcn < next_.size(); ++lcn) {
    const std::size_t cluster = lcn + 2;
    const std::uint32_t value = next_[lcn];
    if (bits == 12) {
      const std::size_t at = cluster * 3 / 2;
      const std::uint32_t pair = Number(table, at, 2);
      const std::uint32_t merged = cluster % 2 == 0 ? (pair & 0xF000) | (value & 0xFFF)
                                                    : (pair & 0xF) | (value & 0xFFF) << 4;
      table[at] = static_cast<std::uint8_t>(merged);
      table[at + 1] = static_cast<std::uint8_t>(merged >> 8);
    } else if (bits == 16) {
      table[2 * cluster] = static_cast<std::uint8_t>(value);
      table[2 * cluster + 1] = static_cast<std::uint8_t>(value >> 8);
    } else {
      PutNumber(table, 4 * cluster, value);
    }
  }
  for (std::uint32_t copy = 0; copy < layout_.tables; ++copy) {
    image_.Write(layout_.table + copy * layout_.table_size, table);
  }
}

void FatMaker::WriteInfo() {
  if (layout_.info == 0) return;
  std::array<std::uint8_t, 512> info{};
  image_.Read(layout_.info, info);
  PutNumber(info, 488, static_cast<std::uint32_t>(clusters_.Free()));
  PutNumber(info, 492, 2);
  image_.Write(layout_.info, info);
}

}  // namespace

Manifest MakeFat(const Recipe& recipe, const std::string& image_path) {
  return FatMaker(recipe, image_path).Make();
}

}  // namespace vornalux::making
