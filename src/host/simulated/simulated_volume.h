// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "host/mounted/mounted_volume.h"
#include "host/simulated/cluster_bits.h"
#include "host/simulated/run_pool.h"

namespace vornalux {

struct SimulatedGeometry {
  std::int64_t total_clusters = 1024;
  std::uint32_t sectors_per_cluster = 8;
  std::uint32_t bytes_per_sector = 512;
  std::string file_system = "NTFS";
  std::string label = "SIMULATED";
  NtfsVolumeData mft_zone = {};  // reported when file_system is "NTFS"
  bool dirty = false;
};

// A volume in memory. Every cluster of every stream carries a 64-bit stamp of its own in place of
// content, so that after any moves it can be proved that each stream still holds what it held.
//
// Built by the Add functions, which throw std::invalid_argument for what no volume could hold
// (taken clusters, a name twice, a path through a file). Paths are "dir\name", with or without a
// drive in front; folders on the way are made as needed, without clusters.
class SimulatedVolume final : public MountedVolume {
 public:
  explicit SimulatedVolume(SimulatedGeometry geometry = {});

  ItemId AddFolder(std::string_view path, const std::vector<SimulatedRun>& runs = {});
  ItemId AddFile(std::string_view path, const std::vector<SimulatedRun>& runs = {},
                 std::uint32_t attributes = attribute::kArchive);
  // As the above for a folder at hand, without looking for an equal name: for big volumes.
  ItemId AddItem(ItemId folder, std::string_view name, std::span<const SimulatedRun> runs,
                 std::uint32_t attributes);
  // name without colons.
  void AddStream(ItemId item, std::string_view name, std::span<const SimulatedRun> runs);
  // "$MFT": a path, but no entry in the root, and first clusters that stay where they are.
  ItemId AddMft(const std::vector<SimulatedRun>& runs);

  // Deletes a file; what it is mounted on has to be told, see MountedPlatform::Relist().
  void Remove(ItemId file);
  void SetDirty(bool dirty) { geometry_.dirty = dirty; }

  // The bytes that reading a file gives in place of stamps, whatever clusters it has.
  void SetContent(ItemId file, std::string bytes);
  void SetAttributes(ItemId item, std::uint32_t attributes);
  // Clusters below vcn, of every stream of the item, refuse to move; all of them by default.
  void MakeImmovable(ItemId item, std::int64_t below_vcn = INT64_MAX);
  // Opening a locked item fails with kSharingViolation.
  void Lock(ItemId item, bool locked = true);
  bool Locked(ItemId item) const { return locked_.contains(item); }

  // Somebody else takes the free clusters of the range, or gives those he has back.
  void TakeClusters(std::int64_t lcn, std::int64_t count);
  void ReleaseClusters(std::int64_t lcn, std::int64_t count);
  // Damage, for ranges inside the volume: content is lost; the bitmap says what is not so.
  void Overwrite(std::int64_t lcn, std::int64_t count);
  void MisstateBitmap(std::int64_t lcn, std::int64_t count, bool used);

  // The item at a path, nothing when there is none.
  std::optional<ItemId> Find(std::string_view path) const;
  std::string PathOf(ItemId item) const;
  // The runs of a file's default stream or a folder. Throws std::invalid_argument without one.
  std::vector<SimulatedRun> RunsOf(std::string_view path) const;
  std::size_t ItemCount() const { return items_.size(); }
  std::int64_t ClustersMoved() const override { return clusters_moved_; }

  // One line for each fault found, at most ten: a cluster with two owners or outside the volume, a
  // bitmap that is not the union of what is owned.
  std::vector<std::string> ConsistencyProblems() const;
  // One line for each stream, at most ten, that no longer holds its stamps.
  std::vector<std::string> DamagedContent() const;
  bool ContentIntact() const { return DamagedContent().empty(); }

  // The disk that it lies on; not owned.
  void SetDrive(SmartDrive& drive) { drive_ = &drive; }

  // Nobody else writes to it: it can tell where its bitmap has changed.
  void TellChanges() { tells_changes_ = true; }

  // Undoes Close().
  void Reopen() { closed_ = false; }

  const VolumeFacts& Facts() const override { return facts_; }
  std::int64_t FreeClusters() const override { return bits_.FreeClusters(); }
  std::optional<NtfsVolumeData> NtfsData() const override;
  void CopyBitmap(std::int64_t first_lcn, std::span<std::uint8_t> out) const override;
  bool BitmapChanges(std::uint64_t& mark, std::vector<std::int64_t>& lcns) override;
  ItemId Root() const override { return 0; }
  ErrorCode List(ItemId folder, FolderListing& out) override;
  std::string FoldName(std::string_view name) const override;
  std::optional<FolderItem> HiddenItem(ItemId folder, std::string_view name) override;
  ErrorCode Extents(const StreamRef& stream, std::vector<Extent>& out) override;
  ErrorCode StreamNames(ItemId item, std::vector<std::string>& out) override;
  ErrorCode Read(const StreamRef& stream, std::uint64_t offset, std::span<std::uint8_t> out,
                 std::size_t& done) override;
  SmartDrive* Drive() override { return drive_; }
  // A first sector that says which file system it is, and nothing else.
  ErrorCode ReadDevice(std::uint64_t offset, std::span<std::uint8_t> out) override;
  ErrorCode Move(const StreamRef& stream, std::int64_t vcn, std::int64_t lcn, std::int64_t count,
                 const MoveCheckpoint& checkpoint = {}) override;
  ErrorCode Commit() override;
  ErrorCode Close() override;
  bool Dirty() const override { return geometry_.dirty; }

 private:
  static constexpr std::uint32_t kNone = UINT32_MAX;

  // Siblings are chained in the order of creation.
  struct Item {
    std::uint32_t name_at = 0;
    std::uint32_t name_size = 0;
    std::uint32_t attributes = 0;
    std::uint32_t parent = kNone;
    std::uint32_t first_child = kNone;
    std::uint32_t last_child = kNone;
    std::uint32_t next_sibling = kNone;
    std::uint32_t first_stream = kNone;
  };
  struct Stream {
    std::uint32_t item = 0;
    std::uint32_t next = kNone;
    std::uint32_t name = 0;  // index into stream_names_, 0 = the default stream
    RunList runs = {};
    std::uint64_t shape = 0;  // see Shape()
  };

  ItemId CheckedFolder(std::string_view path);
  ItemId AddByPath(std::string_view path, std::span<const SimulatedRun> runs,
                   std::uint32_t attributes);
  std::uint32_t NewItem(std::string_view name, std::uint32_t attributes, std::uint32_t parent);
  void CheckFree(std::span<const SimulatedRun> runs) const;
  std::uint32_t NewStream(std::uint32_t item, std::string_view name,
                          std::span<const SimulatedRun> runs);
  Item& At(ItemId item) { return items_[static_cast<std::size_t>(item)]; }
  const Item& At(ItemId item) const { return items_[static_cast<std::size_t>(item)]; }
  std::string_view NameOf(std::uint32_t item) const;
  std::uint32_t FindChild(std::uint32_t folder, std::string_view name) const;
  std::uint32_t FindStream(const StreamRef& stream) const;
  bool GivenUp(std::int64_t count, const MoveCheckpoint& checkpoint);
  ErrorCode CheckTarget(std::uint32_t stream, std::int64_t vcn, std::int64_t lcn,
                        std::int64_t count) const;
  std::int64_t VcnCount(std::uint32_t stream) const;
  void MoveRun(const SimulatedRun& source, std::int64_t target);
  bool StreamIntact(std::uint32_t stream) const;

  SimulatedGeometry geometry_;
  VolumeFacts facts_;
  ClusterBits bits_;
  ClusterBits foreign_;  // used by somebody else
  std::vector<std::uint64_t> stamps_;
  std::string names_;
  std::vector<Item> items_;
  std::vector<Stream> streams_;
  std::vector<std::string> stream_names_;
  RunPool runs_;
  std::vector<std::uint32_t> hidden_;
  std::unordered_map<ItemId, std::int64_t> immovable_below_;
  std::unordered_set<ItemId> locked_;
  std::map<ItemId, std::string> contents_;
  SmartDrive* drive_ = nullptr;
  std::int64_t clusters_moved_ = 0;
  bool tells_changes_ = false;
  bool moving_ = false;
  bool closed_ = false;
};

}  // namespace vornalux
