// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>

#include "host/image/ntfs/ntfs_library.h"
#include "host/image/ntfs/ntfs_names.h"
#include "host/mounted/mounted_volume.h"

namespace vornalux {

// The names in a folder, in the order of its index, without "." and "..", DOS-only names and
// metafiles. 0 or an errno value, ECANCELED when out wants no more.
int ListIndex(ntfs_inode* folder, const UpcaseTable& upcase, FolderListing& out);

// Is every name of the inode a name in this folder (of this record number)?
bool HasNamesOnlyIn(ntfs_inode* inode, std::uint64_t folder);

}  // namespace vornalux
