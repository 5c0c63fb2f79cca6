// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/image/image_volume.h"
#include "host/image/ntfs/ntfs_device.h"
#include "host/image/ntfs/ntfs_mount.h"
#include "host/image/ntfs/ntfs_names.h"

namespace vornalux {

// An NTFS volume through libntfs-3g, which does all reading and writing of NTFS structures. An
// ItemId is a file reference: record number and sequence number.
class NtfsVolume final : public ImageVolume {
 public:
  // How far a volume that is not clean may be opened.
  struct Opening {
    bool writable = false;
    bool recovering = false;
    bool allow_dirty = false;
  };

  // Throws VolumeRefused.
  NtfsVolume(VolumeStore store, Opening opening);
  ~NtfsVolume() override;

  const VolumeFacts& Facts() const override { return facts_; }
  std::optional<NtfsVolumeData> NtfsData() const override;
  ItemId Root() const override { return root_; }
  ErrorCode ListFolder(ItemId folder, std::vector<FolderItem>& out) override;
  std::string FoldName(std::string_view name) const override;
  std::optional<FolderItem> HiddenItem(ItemId folder, std::string_view name) override;
  ErrorCode StreamNames(ItemId item, std::vector<std::string>& out) override;
  ErrorCode Read(const StreamRef& stream, std::uint64_t offset, std::span<std::uint8_t> out,
                 std::size_t& done) override;
  bool Dirty() const override { return dirty_; }

 protected:
  ErrorCode Runs(const StreamRef& stream, std::vector<ClusterRun>& out) override;
  ErrorCode MayMove(const StreamRef& stream, std::int64_t vcn, std::int64_t count) override;
  ErrorCode Rewrite(const StreamRef& stream, const MovePlan& plan) override;
  ErrorCode Reload() override;
  ErrorCode WriteDirtyFlag(bool dirty) override;

 private:
  struct Place {
    ntfs_inode* inode = nullptr;
    AttributeName attribute;
  };

  void CheckBootSector();
  void Mount();
  void LearnFacts();
  int LoadBitmap();
  void CheckSoundness();
  std::string Sentence(const std::string& reason, const std::string& remedy) const;
  [[noreturn]] void Refuse(const std::string& reason, const std::string& remedy) const;
  [[noreturn]] void RefuseMount(int error) const;

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
  std::unordered_map<std::uint64_t, std::uint64_t> parents_;  // record numbers of listed folders
};

}  // namespace vornalux
