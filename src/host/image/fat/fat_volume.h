// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/image/fat/dirty_flag.h"
#include "host/image/fat/fat_geometry.h"
#include "host/image/fat/fat_table.h"
#include "host/image/fat/fat_tree.h"
#include "host/image/volume/image_volume.h"

namespace vornalux {

// A FAT12, FAT16 or FAT32 volume. LCN 0 is cluster 2, the start of the data area: what lies before
// it has no cluster number. An ItemId is the number of a node of the tree.
class FatVolume final : public ImageVolume {
 public:
  // Throws VolumeRefused.
  FatVolume(VolumeStore store, bool accept_dirty, bool recovering);

  const VolumeFacts& Facts() const override { return facts_; }
  std::optional<NtfsVolumeData> NtfsData() const override { return std::nullopt; }
  ItemId Root() const override { return FatTree::kRoot; }
  ErrorCode List(ItemId folder, FolderListing& out) override;
  std::string FoldName(std::string_view name) const override;
  std::optional<FolderItem> HiddenItem(ItemId folder, std::string_view name) override;
  ErrorCode StreamNames(ItemId item, std::vector<std::string>& out) override;
  ErrorCode Read(const StreamRef& stream, std::uint64_t offset, std::span<std::uint8_t> out,
                 std::size_t& done) override;
  std::optional<SmallestSize> Smallest() override;
  bool Dirty() const override { return dirty_flag_.Dirty(); }

 protected:
  ErrorCode Runs(const StreamRef& stream, std::vector<ClusterRun>& out) override;
  ErrorCode MayMove(const StreamRef& stream, std::int64_t vcn, std::int64_t count) override;
  ErrorCode Rewrite(const StreamRef& stream, const MovePlan& plan) override;
  ErrorCode Reload() override;
  ErrorCode WriteDirtyFlag(bool dirty) override;
  std::vector<ByteRange> StillRanges() override { return {{0, geometry_.data_offset}}; }

 private:
  DirtyFlag ReadDirtyFlag(bool accept_dirty, bool recovering);
  ErrorCode Check(const StreamRef& stream) const;
  const std::vector<ClusterRun>& RunsOf(std::uint32_t node);

  ErrorCode LinkTarget(const MovePlan& plan);
  ErrorCode FreeSources(const MovePlan& plan);
  ErrorCode LinkStart(std::uint32_t node, const MovePlan& plan);
  ErrorCode RelinkFolder(std::uint32_t folder);
  std::uint64_t EntryOffset(std::uint32_t node) const;
  ErrorCode WriteFirstCluster(std::uint64_t entry_offset, std::uint32_t cluster);

  FatGeometry geometry_;
  DirtyFlag dirty_flag_;
  FatTable table_;
  FatTree tree_;
  VolumeFacts facts_;
  bool lost_ = false;  // memory could not be brought back to what the device says

  // The runs of the item asked for last: a file moved in pieces is not walked for each.
  std::optional<std::uint32_t> runs_node_;
  std::vector<ClusterRun> runs_;
};

// Checks the volume's structure as far as moving relies on it. Throws VolumeRefused; a dirty volume
// is refused unless store.recovering or store.allow_dirty.
std::unique_ptr<ImageVolume> OpenFatVolume(VolumeStore store);

}  // namespace vornalux
