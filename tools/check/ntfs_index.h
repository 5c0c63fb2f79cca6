// SPDX-License-Identifier: GPL-2.0-or-later
// Indexes of NTFS: the B-trees that folders and some metafiles have.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "check/ntfs_files.h"

namespace vornalux::checking {

// Upper case as this volume has it, by UTF-16 unit.
class NtfsUpcase {
 public:
  NtfsUpcase(const RawNtfsVolume& volume, const NtfsFiles& files, Problems& problems);

  // Below, equal or above 0, as names are ordered in folders.
  int Compare(const std::u16string& a, const std::u16string& b) const;

 private:
  std::vector<char16_t> table_;
};

struct NtfsIndexEntry {
  std::uint64_t reference = 0;
  NtfsName name;
};

// Walks the index of this name ("$I30" for a folder) and checks its blocks. Entries are returned,
// and their order checked, for folders only.
std::vector<NtfsIndexEntry> WalkNtfsIndex(const RawNtfsVolume& volume, const NtfsFile& file,
                                          const std::u16string& name, const NtfsUpcase& upcase,
                                          Problems& problems);

}  // namespace vornalux::checking
