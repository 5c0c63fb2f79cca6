// SPDX-License-Identifier: GPL-2.0-or-later
// Names: folder indexes against the names that files have, and paths from the root.
#pragma once

#include <string>
#include <vector>

#include "check/ntfs_files.h"

namespace vornalux::checking {

// One way to a file.
struct NtfsPath {
  const NtfsFile* file = nullptr;
  std::string path;
  bool metafile = false;  // one of the volume's own, or under $Extend
};

// Checks every index and every name both ways. The paths are those of all names but DOS-only ones;
// the root is "/".
std::vector<NtfsPath> CheckNtfsFolders(const RawNtfsVolume& volume, const NtfsFiles& files,
                                       Problems& problems);

}  // namespace vornalux::checking
