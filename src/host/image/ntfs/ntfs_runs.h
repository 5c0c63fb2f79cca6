// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>
#include <vector>

#include "host/image/ntfs/ntfs_library.h"
#include "host/image/ntfs/ntfs_names.h"
#include "host/image/volume/move_plan.h"

namespace vornalux {

class NtfsMount;

using RunlistHandle = std::unique_ptr<runlist_element, FreeMemory>;

// All runs of an attribute as its records say, none when it is resident. 0 or an errno value: EIO
// when they are not sound, ENOENT when there is no such attribute.
int ReadRuns(ntfs_inode* inode, const AttributeName& name, std::vector<ClusterRun>& out);

// The runs as an attribute's run list, which the library may grow in place. Null without memory.
RunlistHandle MakeRunlist(const std::vector<ClusterRun>& runs);

// Makes the attribute lie where plan.after says, allocation bits included, and writes everything
// that this changes. 0 or an errno value; on failure the library's memory and what it wrote are
// half changed. EACCES: $MFT's own record has no room for it.
int RewriteRuns(NtfsMount& mount, ntfs_inode* inode, const AttributeName& name,
                const MovePlan& plan);

}  // namespace vornalux
