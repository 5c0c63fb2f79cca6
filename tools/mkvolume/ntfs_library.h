// SPDX-License-Identifier: GPL-2.0-or-later
// libntfs-3g's headers, which expect the results of its own configure script, and owners for what
// it hands out.
#pragma once

#define HAVE_STDARG_H 1
#define HAVE_STDIO_H 1
#define HAVE_TIME_H 1
#define HAVE_SYS_STAT_H 1
#define HAVE_SYS_TYPES_H 1
#define HAVE_STDINT_H 1
#define HAVE_STDDEF_H 1
#include <sys/stat.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "mkvolume/image.h"
#include "mkvolume/space.h"

extern "C" {
#include <ntfs-3g/types.h>
//
#include <ntfs-3g/attrib.h>
#include <ntfs-3g/bitmap.h>
#include <ntfs-3g/device.h>
#include <ntfs-3g/dir.h>
#include <ntfs-3g/inode.h>
#include <ntfs-3g/layout.h>
#include <ntfs-3g/reparse.h>
#include <ntfs-3g/runlist.h>
#include <ntfs-3g/volume.h>
}
#undef min
#undef max

namespace vornalux::making {

// An error of the library: what was tried, and errno. Throws std::runtime_error.
[[noreturn]] void NtfsFailed(const std::string& action);

// A file of the volume, kept open. Close() reports that it could not be written back.
class NtfsInode {
 public:
  explicit NtfsInode(ntfs_inode* inode) : inode_(inode) {}
  static NtfsInode Open(ntfs_volume* volume, std::uint64_t reference);
  NtfsInode(NtfsInode&& other) noexcept : inode_(other.Release()) {}
  NtfsInode& operator=(const NtfsInode&) = delete;
  ~NtfsInode();

  ntfs_inode* get() const { return inode_; }
  ntfs_inode* operator->() const { return inode_; }
  void Close();
  // As Close() for a file in this folder; needed while the folder is open, which must not be open
  // twice.
  void CloseIn(const NtfsInode& folder);
  // For library calls that close it themselves.
  ntfs_inode* Release() { return std::exchange(inode_, nullptr); }

 private:
  ntfs_inode* inode_;
};

struct AttributeCloser {
  void operator()(ntfs_attr* attribute) const { ntfs_attr_close(attribute); }
};
using NtfsAttributeHandle = std::unique_ptr<ntfs_attr, AttributeCloser>;

// Null when there is no such attribute.
NtfsAttributeHandle OpenAttribute(ntfs_inode* inode, ATTR_TYPES type, std::u16string_view name);

// A mounted volume over an image. The image outlives it.
class MountedNtfs {
 public:
  explicit MountedNtfs(Image& image);
  MountedNtfs(const MountedNtfs&) = delete;
  MountedNtfs& operator=(const MountedNtfs&) = delete;
  ~MountedNtfs();

  ntfs_volume* get() const { return volume_; }
  ntfs_volume* operator->() const { return volume_; }
  void Unmount();

  ClusterSet ReadBitmap();
  void WriteBitmap(const ClusterSet& clusters);

 private:
  ntfs_volume* volume_ = nullptr;
};

// The runs of a whole attribute, holes left out.
std::vector<PlacedRun> RunsOf(ntfs_attr* attribute);

// Makes the attribute's runs these, with holes between them up to end_vcn.
void SetRuns(ntfs_attr* attribute, const std::vector<PlacedRun>& runs, std::int64_t end_vcn);

}  // namespace vornalux::making
