// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/mounted/mounted_volume.h"

namespace vornalux {

// The items of one folder in the volume's order, searchable by name. Compact, since every folder of
// a volume with millions of files may be held at once.
class FolderListing {
 public:
  FolderListing(const MountedVolume& volume, const std::vector<FolderItem>& items);

  std::size_t Size() const { return entries_.size(); }
  std::string_view Name(std::size_t index) const;
  std::uint32_t Attributes(std::size_t index) const { return entries_[index].attributes; }
  ItemId Id(std::size_t index) const { return entries_[index].id; }

  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);
  // The item with exactly this name, else the first one whose name folds to the same; or kNone.
  std::size_t Find(const MountedVolume& volume, std::string_view name) const;

 private:
  struct Entry {
    ItemId id = 0;
    std::size_t name_at = 0;
    std::uint32_t name_size = 0;
    std::uint32_t attributes = 0;
    std::uint32_t hash = 0;  // of the folded name
  };

  std::string names_;
  std::vector<Entry> entries_;
  std::vector<std::uint32_t> slots_;  // open addressing; index into entries_ plus 1, 0 = empty
};

// The folders of one volume by path. Each folder is listed once: the volume is ours alone while it
// is open and moves change no names.
class FolderTree {
 public:
  // volume is not owned.
  explicit FolderTree(MountedVolume& volume) : volume_(&volume) {}

  ErrorCode Listing(ItemId folder, std::shared_ptr<const FolderListing>& out);

  // One name in one folder, hidden items included. kFileNotFound when there is none.
  ErrorCode Find(ItemId folder, std::string_view name, FolderItem& out);

  // A folder by its path from the root ("dir\sub"). kPathNotFound when there is none, kInvalidName
  // when a name on the way is empty.
  ErrorCode FindFolder(std::string_view path, ItemId& out);

 private:
  MountedVolume* volume_;
  std::unordered_map<ItemId, std::shared_ptr<const FolderListing>> listings_;
  // A folder on the way that last_path_ is.
  struct Step {
    std::size_t end = 0;  // of its path, which last_path_ begins with
    ItemId folder = 0;
  };
  // The step of the way that path is; null when it is none.
  const Step* StepTo(std::string_view path) const;
  void DropStepsNotTo(std::string_view path);

  // Callers go through a folder item by item, and from there to the next one down or back up: in a
  // deep tree the way from the root is most of the work.
  std::string last_path_;
  std::vector<Step> way_;
};

}  // namespace vornalux
