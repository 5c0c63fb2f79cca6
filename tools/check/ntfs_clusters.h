// SPDX-License-Identifier: GPL-2.0-or-later
// Who owns which cluster, against $Bitmap.
#pragma once

#include "check/ntfs_files.h"

namespace vornalux::checking {

struct ClusterCount {
  std::int64_t used = 0;  // bad ones included
  std::int64_t bad = 0;
};

ClusterCount CheckNtfsClusters(const RawNtfsVolume& volume, const NtfsFiles& files,
                               Problems& problems);

}  // namespace vornalux::checking
