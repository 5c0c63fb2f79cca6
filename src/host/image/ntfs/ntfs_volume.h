// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "host/image/ntfs/ntfs_device.h"
#include "host/image/ntfs/ntfs_mount.h"
#include "host/image/ntfs/ntfs_names.h"
#include "host/image/ntfs/ntfs_raw_record.h"
#include "host/image/ntfs/snapshot_catalog.h"
#include "host/image/volume/image_volume.h"

namespace vornalux {

// An NTFS volume through libntfs-3g, which does all reading and writing of NTFS structures. An
// ItemId is a file reference: record number and sequence number.
class NtfsVolume final : public ImageVolume {
 public:
  // How far a volume that is not clean may be opened.
  struct Opening {
    bool recovering = false;
    bool allow_dirty = false;
    bool drop_restore_points = false;
  };

  // Throws VolumeRefused.
  NtfsVolume(VolumeStore store, Opening opening);
  ~NtfsVolume() override;

  const VolumeFacts& Facts() const override { return facts_; }
  std::optional<NtfsVolumeData> NtfsData() const override;
  ItemId Root() const override { return root_; }
  ErrorCode List(ItemId folder, FolderListing& out) override;
  std::string FoldName(std::string_view name) const override;
  std::optional<FolderItem> HiddenItem(ItemId folder, std::string_view name) override;
  ErrorCode StreamNames(ItemId item, std::vector<std::string>& out) override;
  ErrorCode Read(const StreamRef& stream, std::uint64_t offset, std::span<std::uint8_t> out,
                 std::size_t& done) override;
  std::vector<std::string> Remarks() const override;
  std::optional<SmallestSize> Smallest() override;
  bool Dirty() const override { return dirty_; }

 protected:
  ErrorCode Runs(const StreamRef& stream, std::vector<ClusterRun>& out) override;
  ErrorCode MayMove(const StreamRef& stream, std::int64_t vcn, std::int64_t count) override;
  ErrorCode Rewrite(const StreamRef& stream, const MovePlan& plan) override;
  ErrorCode Reload() override;
  ErrorCode WriteDirtyFlag(bool dirty) override;
  std::vector<ByteRange> StillRanges() override;
  ErrorCode PrepareForMoves() override;
  bool HasToDropRestorePoints() const override {
    return opening_.drop_restore_points && snapshots_.Any() && !snapshots_dropped_;
  }

 private:
  struct Place {
    ntfs_inode* inode = nullptr;
    AttributeName attribute;
  };

  void CheckBootSector();
  void Mount();
  void MountForLooking(int error);
  void CheckDirtyFlag();
  void CheckSnapshots();
  void PinSnapshotFiles();
  void LearnFacts();
  int LoadBitmap();
  std::string Name() const;
  void CheckSoundness();
  NtfsGeometry RawGeometry() const;
  [[noreturn]] void Refuse(const std::string& reason, const std::string& remedy) const;
  [[noreturn]] void RefuseMount(int error);

  ErrorCode Verify(const StreamRef& stream, const MovePlan& plan, bool had_list);
  ErrorCode Find(const StreamRef& stream, Place& out);
  ErrorCode Failure(int error);

  Opening opening_;
  NtfsDevice device_;
  std::unique_ptr<NtfsMount> mount_;  // null after a failed Reload(): then nothing works any more
  UpcaseTable upcase_;
  VolumeFacts facts_;
  NtfsVolumeData zone_;
  ItemId root_ = 0;
  bool dirty_ = false;
  int listing_ = 0;       // folders that are being listed, one inside the other
  bool unclean_ = false;  // opened past the library's checks, as far as looking goes
  SnapshotCatalog snapshots_;
  bool snapshots_dropped_ = false;
  std::unordered_set<std::uint64_t> pinned_;  // record numbers of files that never move
  std::unordered_map<std::uint64_t, std::uint64_t> parents_;  // record numbers of listed folders
};

}  // namespace vornalux
