// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/fat/fat_volume.h"

#include <algorithm>
#include <array>
#include <new>

#include "host/image/device/in_memory.h"
#include "host/image/device/little_endian.h"
#include "host/image/fat/directory_entry.h"
#include "host/image/fat/fat_names.h"
#include "host/image/volume/refused.h"
#include "host/image/volume/unclean_text.h"

namespace vornalux {
namespace {

constexpr char kDataStream[] = "::$DATA";

std::uint32_t ClusterAt(std::int64_t lcn) { return static_cast<std::uint32_t>(lcn + 2); }
std::int64_t LcnOf(std::uint32_t cluster) { return std::int64_t{cluster} - 2; }

std::int64_t LcnAt(const std::vector<ClusterRun>& runs, std::int64_t vcn) {
  const auto run = std::partition_point(
      runs.begin(), runs.end(), [vcn](const ClusterRun& r) { return r.vcn + r.count <= vcn; });
  return run->lcn + (vcn - run->vcn);
}

}  // namespace

FatVolume::FatVolume(VolumeStore store, bool accept_dirty, bool recovering)
    : ImageVolume(std::move(store)),
      geometry_(ReadFatGeometry(Device())),
      dirty_flag_(ReadDirtyFlag(accept_dirty, recovering)),
      table_(Device(), geometry_),
      tree_(Device(), geometry_, table_) {
  facts_.file_system = geometry_.type == FatType::Fat32 ? "FAT32" : "FAT";
  facts_.label = tree_.Label();
  facts_.serial = geometry_.serial;
  facts_.bytes_per_sector = geometry_.bytes_per_sector;
  facts_.sectors_per_cluster = geometry_.sectors_per_cluster;
  facts_.total_clusters = geometry_.clusters;

  SetClusters(geometry_.clusters, geometry_.cluster_size, geometry_.data_offset);
  std::vector<std::uint8_t> bitmap((geometry_.clusters + 7) / 8);
  for (std::size_t i = 0; i < bitmap.size(); ++i) {
    bitmap[i] = table_.BitmapByte(static_cast<std::int64_t>(i) * 8);
  }
  Clusters().Load(0, bitmap);
}

DirtyFlag FatVolume::ReadDirtyFlag(bool accept_dirty, bool recovering) {
  DirtyFlag flag(Device(), geometry_, recovering);
  if (flag.Dirty() && !accept_dirty) {
    Object(UncleanText("The FAT volume", "is marked dirty", false));
  }
  return flag;
}

ErrorCode FatVolume::Check(const StreamRef& stream) const {
  if (stream.item >= tree_.Size()) return error::kFileNotFound;
  if (stream.stream.empty()) return error::kSuccess;
  const bool file = !tree_.IsFolder(static_cast<std::uint32_t>(stream.item));
  return file && stream.stream == kDataStream ? error::kSuccess : error::kFileNotFound;
}

ErrorCode FatVolume::List(ItemId folder, FolderListing& out) {
  const auto node = static_cast<std::uint32_t>(folder);
  if (folder >= tree_.Size() || !tree_.IsFolder(node)) return error::kPathNotFound;
  for (std::uint32_t i = 0; i < tree_[node].children; ++i) {
    const std::uint32_t child = tree_[node].first_child + i;
    if (!out.Add(tree_.Name(child), tree_[child].attributes, child)) {
      return error::kOperationAborted;
    }
  }
  return error::kSuccess;
}

std::string FatVolume::FoldName(std::string_view name) const { return FoldFatName(name); }

std::optional<FolderItem> FatVolume::HiddenItem(ItemId /*folder*/, std::string_view /*name*/) {
  return std::nullopt;
}

ErrorCode FatVolume::StreamNames(ItemId item, std::vector<std::string>& out) {
  out.clear();
  if (item >= tree_.Size()) return error::kFileNotFound;
  if (!tree_.IsFolder(static_cast<std::uint32_t>(item))) out.emplace_back(kDataStream);
  return error::kSuccess;
}

const std::vector<ClusterRun>& FatVolume::RunsOf(std::uint32_t node) {
  if (runs_node_ == node) return runs_;
  runs_.clear();
  runs_node_ = node;
  std::int64_t vcn = 0;
  for (std::uint32_t cluster = tree_[node].first_cluster; geometry_.IsCluster(cluster);
       cluster = table_.Get(cluster), ++vcn) {
    const std::int64_t lcn = LcnOf(cluster);
    if (!runs_.empty() && runs_.back().lcn + runs_.back().count == lcn) {
      ++runs_.back().count;
    } else {
      runs_.push_back({vcn, lcn, 1});
    }
  }
  return runs_;
}

ErrorCode FatVolume::Runs(const StreamRef& stream, std::vector<ClusterRun>& out) {
  out.clear();
  if (lost_) return error::kFileCorrupt;
  if (const ErrorCode error = Check(stream)) return error;
  out = RunsOf(static_cast<std::uint32_t>(stream.item));
  return error::kSuccess;
}

ErrorCode FatVolume::Read(const StreamRef& stream, std::uint64_t offset,
                          std::span<std::uint8_t> out, std::size_t& done) {
  done = 0;
  if (lost_) return error::kFileCorrupt;
  if (const ErrorCode error = Check(stream)) return error;
  const auto node = static_cast<std::uint32_t>(stream.item);
  if (tree_.IsFolder(node)) return error::kAccessDenied;
  const std::uint64_t end = std::min<std::uint64_t>(
      tree_[node].size, offset + std::min<std::uint64_t>(out.size(), tree_[node].size));
  const std::vector<ClusterRun>& runs = RunsOf(node);
  while (offset < end) {
    const auto vcn = static_cast<std::int64_t>(offset / geometry_.cluster_size);
    const auto run = std::partition_point(
        runs.begin(), runs.end(), [vcn](const ClusterRun& r) { return r.vcn + r.count <= vcn; });
    const std::uint64_t run_start = static_cast<std::uint64_t>(run->vcn) * geometry_.cluster_size;
    const std::uint64_t run_size = static_cast<std::uint64_t>(run->count) * geometry_.cluster_size;
    const std::size_t length =
        AtMost(out.size() - done, std::min(end, run_start + run_size) - offset);
    if (const std::error_code error = Device().Read(ClusterOffset(run->lcn) + (offset - run_start),
                                                    out.subspan(done, length))) {
      return FromDevice(error);
    }
    offset += length;
    done += length;
  }
  return error::kSuccess;
}

ErrorCode FatVolume::MayMove(const StreamRef& stream, std::int64_t /*vcn*/,
                             std::int64_t /*count*/) {
  if (lost_) return error::kFileCorrupt;
  if (const ErrorCode error = Check(stream)) return error;
  const auto node = static_cast<std::uint32_t>(stream.item);
  const bool fixed = node == FatTree::kRoot || tree_[node].used_behind_end;
  return fixed ? error::kAccessDenied : error::kSuccess;
}

ErrorCode FatVolume::Rewrite(const StreamRef& stream, const MovePlan& plan) {
  if (plan.sources.empty()) return error::kSuccess;
  const auto node = static_cast<std::uint32_t>(stream.item);
  runs_node_.reset();
  if (const ErrorCode error = LinkTarget(plan)) return error;
  if (const ErrorCode error = LinkStart(node, plan)) return error;
  if (const ErrorCode error = FreeSources(plan)) return error;
  runs_node_ = node;
  runs_ = plan.after;
  return error::kSuccess;
}

// The new clusters as a chain that goes on where the old ones did.
ErrorCode FatVolume::LinkTarget(const MovePlan& plan) {
  const ClusterRun& last = plan.sources.back();
  const std::uint32_t goes_on = table_.Get(ClusterAt(last.lcn + last.count - 1));
  const std::uint32_t first = ClusterAt(plan.target_lcn);
  const auto count = static_cast<std::uint32_t>(plan.target_count);
  for (std::uint32_t i = 1; i < count; ++i) table_.Set(first + i - 1, first + i);
  table_.Set(first + count - 1, goes_on);
  Clusters().Use(plan.target_lcn, plan.target_count);
  return FromDevice(table_.Write(Device(), first, count));
}

ErrorCode FatVolume::FreeSources(const MovePlan& plan) {
  for (const ClusterRun& source : plan.sources) {
    const std::uint32_t first = ClusterAt(source.lcn);
    const auto count = static_cast<std::uint32_t>(source.count);
    for (std::uint32_t i = 0; i < count; ++i) table_.Set(first + i, 0);
    Clusters().Free(source.lcn, source.count);
    if (const std::error_code error = table_.Write(Device(), first, count)) {
      return FromDevice(error);
    }
  }
  return error::kSuccess;
}

// Whatever led to the first cluster that moved: the cluster before it, or the folder entry.
ErrorCode FatVolume::LinkStart(std::uint32_t node, const MovePlan& plan) {
  const ClusterRun& first = plan.sources.front();
  const std::uint32_t target = ClusterAt(plan.target_lcn);
  if (first.vcn > 0) {
    const std::uint32_t before = ClusterAt(LcnAt(plan.before, first.vcn - 1));
    if (table_.Get(before) != ClusterAt(first.lcn)) return error::kFileCorrupt;
    table_.Set(before, target);
    return FromDevice(table_.Write(Device(), before, 1));
  }
  if (tree_[node].first_cluster != ClusterAt(first.lcn)) return error::kFileCorrupt;
  tree_[node].first_cluster = target;
  if (const ErrorCode error = WriteFirstCluster(EntryOffset(node), target)) return error;
  return tree_.IsFolder(node) ? RelinkFolder(node) : error::kSuccess;
}

// "." of a folder that has a new first cluster, and ".." of the folders in it.
ErrorCode FatVolume::RelinkFolder(std::uint32_t folder) {
  const FatNode& moved = tree_[folder];
  const std::uint64_t own = geometry_.ClusterOffset(moved.first_cluster);
  if (const ErrorCode error = WriteFirstCluster(own, moved.first_cluster)) return error;
  for (std::uint32_t i = 0; i < moved.children; ++i) {
    const std::uint32_t child = moved.first_child + i;
    if (!tree_.IsFolder(child)) continue;
    const std::uint64_t parent_entry =
        geometry_.ClusterOffset(tree_[child].first_cluster) + fat_entry::kSize;
    if (const ErrorCode error = WriteFirstCluster(parent_entry, moved.first_cluster)) return error;
  }
  return error::kSuccess;
}

std::uint64_t FatVolume::EntryOffset(std::uint32_t node) const {
  std::uint64_t at = std::uint64_t{tree_[node].entry} * fat_entry::kSize;
  std::uint32_t cluster = tree_[tree_[node].parent].first_cluster;
  if (cluster == 0) return geometry_.root_offset + at;
  for (; at >= geometry_.cluster_size; at -= geometry_.cluster_size) cluster = table_.Get(cluster);
  return geometry_.ClusterOffset(cluster) + at;
}

ErrorCode FatVolume::WriteFirstCluster(std::uint64_t entry_offset, std::uint32_t cluster) {
  std::array<std::uint8_t, 2> word;
  StoreLittle(word, 0, static_cast<std::uint16_t>(cluster));
  std::error_code error = Device().Write(entry_offset + fat_entry::kClusterLow, word);
  // Elsewhere the high word means something else.
  if (!error && geometry_.type == FatType::Fat32) {
    StoreLittle(word, 0, static_cast<std::uint16_t>(cluster >> 16));
    error = Device().Write(entry_offset + fat_entry::kClusterHigh, word);
  }
  return FromDevice(error);
}

ErrorCode FatVolume::Reload() {
  runs_node_.reset();
  lost_ = true;
  try {
    FatTable table(Device(), geometry_);
    FatTree tree(Device(), geometry_, table);
    if (tree.Size() != tree_.Size()) return error::kFileCorrupt;
    table_ = std::move(table);
    tree_ = std::move(tree);
  } catch (const VolumeRefused&) {
    return error::kFileCorrupt;
  } catch (const std::bad_alloc&) {
    return error::kNotEnoughMemory;
  }
  for (std::int64_t lcn = 0; lcn < facts_.total_clusters; lcn += 8) {
    Clusters().SetByte(lcn, table_.BitmapByte(lcn));
  }
  lost_ = false;
  return error::kSuccess;
}

// Such a program makes tables of another size, and rounds to so many bytes.
std::optional<SmallestSize> FatVolume::Smallest() {
  constexpr std::uint64_t kRoomForTables = 3000000, kRounding = 1000000;
  constexpr std::uint64_t kLeastFat16 = 34000000;  // no such program makes a smaller one
  constexpr std::uint32_t kLeastCluster32 = 4096;  // such programs know no smaller ones on FAT32
  if (lost_ || geometry_.type == FatType::Fat12) return std::nullopt;
  if (geometry_.type == FatType::Fat32 && geometry_.cluster_size < kLeastCluster32) {
    return std::nullopt;
  }
  std::int64_t end = facts_.total_clusters;
  while (end > 0 && !Clusters().Used(end - 1)) --end;
  // With fewer it would be another kind of FAT.
  end = std::max<std::int64_t>(end, geometry_.type == FatType::Fat16 ? 4085 : 65525);
  const std::uint64_t least = std::max(ClusterOffset(end) + kRoomForTables,
                                       geometry_.type == FatType::Fat16 ? kLeastFat16 : 0);
  const std::uint64_t bytes = (least + kRounding - 1) / kRounding * kRounding;
  if (bytes >= ClusterOffset(facts_.total_clusters)) return std::nullopt;
  return SmallestSize{.bytes = bytes};
}

ErrorCode FatVolume::WriteDirtyFlag(bool dirty) {
  return FromDevice(dirty_flag_.Write(Device(), dirty));
}

std::unique_ptr<ImageVolume> OpenFatVolume(VolumeStore store) {
  const bool recovering = store.recovering;
  const bool accept_dirty = recovering || store.allow_dirty;
  try {
    return std::make_unique<FatVolume>(std::move(store), accept_dirty, recovering);
  } catch (const std::bad_alloc&) {
    throw VolumeRefused(
        "There is not enough memory for the file allocation table and the folders.");
  }
}

}  // namespace vornalux
