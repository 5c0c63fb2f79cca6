// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/mounted/folder_listing.h"
#include "host/mounted/mounted_volume.h"

namespace vornalux {

// The folders of one volume by path. Each folder is listed once: the volume is ours alone while it
// is open and moves change no names.
class FolderTree {
 public:
  // volume is not owned.
  explicit FolderTree(MountedVolume& volume) : volume_(&volume) {}

  // go_on as for FolderListing; kOperationAborted when it says no. What it does may come here
  // again.
  ErrorCode Listing(ItemId folder, std::shared_ptr<const FolderListing>& out,
                    const std::function<bool()>& go_on = {});

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
