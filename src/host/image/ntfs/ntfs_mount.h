// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>
#include <utility>

#include "host/image/ntfs/ntfs_device.h"
#include "host/image/ntfs/ntfs_library.h"
#include "host/image/ntfs/ntfs_names.h"
#include "host/mounted/mounted_volume.h"

namespace vornalux {

// Closes attributes that were opened for us; the library's own stay open.
struct CloseAttribute {
  bool borrowed = false;
  void operator()(ntfs_attr* attribute) const {
    if (!borrowed) ntfs_attr_close(attribute);
  }
};
using AttributeHandle = std::unique_ptr<ntfs_attr, CloseAttribute>;

// The library's view of the volume, from mounting to unmounting. An inode that was opened twice
// would write its stale copy of the file record back, so all inodes come from here: one of ours at
// a time, and the library's own for the files that it keeps open.
//
// Functions that return int return 0 or an errno value; those that return a pointer return null
// with errno set.
class NtfsMount {
 public:
  // device is not owned. Null with errno set as ntfs_device_mount() does. unclean: without the
  // library's checks of whether Windows is done with the volume.
  static std::unique_ptr<NtfsMount> Open(NtfsDevice& device, bool unclean);

  NtfsMount(const NtfsMount&) = delete;
  NtfsMount& operator=(const NtfsMount&) = delete;
  // Unmounts without writing: what was not synced is forgotten.
  ~NtfsMount();

  ntfs_volume* Volume() const { return volume_; }
  NtfsDevice& Device() const { return device_; }

  // The item's inode, valid until another one is asked for. Whoever changes it also syncs it, so
  // that it is clean whenever another one may be asked for.
  ntfs_inode* Inode(ItemId item);

  // Closes our inode, so that the next Inode() reads what has been written.
  void CloseInode();

  // The inode that Inode() gave, to be kept while others are asked for, and only read; null when it
  // is one of the library's own, which stay.
  struct CloseTaken {
    void operator()(ntfs_inode* inode) const { ntfs_inode_close(inode); }
  };
  using InodeHandle = std::unique_ptr<ntfs_inode, CloseTaken>;
  InodeHandle TakeInode() { return InodeHandle(std::exchange(inode_, nullptr)); }

  // The attribute of inode with exactly this name, which must be closed before the inode is.
  AttributeHandle OpenAttribute(ntfs_inode* inode, const AttributeName& name);

  // Writes the files that the library keeps open, which changes to other files change too.
  int SyncSystemFiles();

  int WriteDirtyFlag(bool dirty);

 private:
  NtfsMount(NtfsDevice& device, ntfs_volume* volume) : device_(device), volume_(volume) {}

  ntfs_inode* LibraryInode(std::uint64_t record) const;
  ntfs_attr* LibraryAttribute(const ntfs_inode* inode, const AttributeName& name) const;

  NtfsDevice& device_;
  ntfs_volume* volume_;
  ntfs_inode* inode_ = nullptr;  // ours, the one at a time
};

// Finds the first (or from lowest_vcn on, the covering) record of an attribute.
int FindAttribute(const AttributeName& name, s64 lowest_vcn, ntfs_attr_search_ctx* context);

// Can every data stream be found by its name? In damaged records, where names are out of order,
// some are found only by going through all of them.
bool EveryStreamIsFound(ntfs_inode* inode);

}  // namespace vornalux
