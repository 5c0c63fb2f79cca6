// SPDX-License-Identifier: GPL-2.0-or-later
// The one way to libntfs-3g. Its headers are C, want an autoconf config.h, and define min and max.
// Include this after the standard library and nowhere outside this folder (and its tests).
#pragma once

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#define HAVE_STDARG_H 1
#define HAVE_STDDEF_H 1
#define HAVE_STDINT_H 1
#define HAVE_STDIO_H 1
#define HAVE_SYS_STAT_H 1
#define HAVE_SYS_TYPES_H 1
#define HAVE_TIME_H 1

// The headers rely on these being there.
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

extern "C" {
#include <ntfs-3g/types.h>
// types.h comes first: the others do not include it everywhere.
#include <ntfs-3g/attrib.h>
#include <ntfs-3g/bitmap.h>
#include <ntfs-3g/device.h>
#include <ntfs-3g/dir.h>
#include <ntfs-3g/inode.h>
#include <ntfs-3g/layout.h>
#include <ntfs-3g/logging.h>
#include <ntfs-3g/mft.h>
#include <ntfs-3g/runlist.h>
#include <ntfs-3g/unistr.h>
#include <ntfs-3g/volume.h>
}
#undef min
#undef max

namespace vornalux {

struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }
};

struct PutSearchContext {
  void operator()(ntfs_attr_search_ctx* context) const { ntfs_attr_put_search_ctx(context); }
};
using SearchContext = std::unique_ptr<ntfs_attr_search_ctx, PutSearchContext>;

// The library's state bits, whose macros mix signed and unsigned numbers.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"
inline void SetOpen(ntfs_device* device, bool open) {
  if (open) {
    NDevSetOpen(device);
  } else {
    NDevClearOpen(device);
  }
}
inline void LetWrite(ntfs_volume* volume) { NVolClearReadOnly(volume); }
inline void SetSynced(ntfs_device* device) { NDevClearDirty(device); }
inline bool NeedsSync(const ntfs_inode* inode) {
  return NInoDirty(inode) || NInoAttrListDirty(inode);
}
inline void ForgetNameChange(ntfs_inode* inode) { NInoFileNameClearDirty(inode); }
// So that closing it writes nothing.
inline void ForgetChanges(ntfs_inode* inode) {
  NInoClearDirty(inode);
  NInoAttrListClearDirty(inode);
  ForgetNameChange(inode);
  for (int i = 0; i < inode->nr_extents; ++i) NInoClearDirty(inode->extent_nis[i]);
}
inline bool HasAttributeList(const ntfs_inode* inode) { return NInoAttrList(inode); }
inline bool IsNonResident(const ntfs_attr* attribute) { return NAttrNonResident(attribute); }
inline void SetFullyMapped(ntfs_attr* attribute) { NAttrSetFullyMapped(attribute); }
#pragma GCC diagnostic pop

// The errno value of a library call that has just failed; never 0.
inline int LibraryError() { return errno != 0 ? errno : EIO; }

// From here on the library's messages are collected instead of going to standard error.
void CollectLibraryMessages();

// What this thread's library calls had to say since the last time; empty when nothing.
std::string TakeLibraryMessages();

}  // namespace vornalux
