// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/image/device/block_device.h"

namespace vornalux {

// Part of the name of every file in which Windows keeps a volume's snapshots, and of their catalog.
inline constexpr std::string_view kSnapshotFileMark = "{3808876b-c176-4e48-b7ae-04046e6cc752}";

// The snapshots (volume shadow copies) on a volume: what Windows makes restore points and previous
// versions of. They refer to clusters of the live volume by place.
struct SnapshotCatalog {
  std::vector<std::uint64_t> times;  // one for each, ascending, as FILETIME; 0: not told
  std::string damage;                // what is wrong and where, when it cannot be read to its end

  bool Any() const { return !times.empty() || !damage.empty(); }
};

// Reads header and catalog. Nothing in them is trusted: reading ends whatever they say.
SnapshotCatalog ReadSnapshotCatalog(BlockDevice& volume);

// Clears the header that leads to the catalog: afterwards there are no snapshots any more.
std::error_code ForgetSnapshots(BlockDevice& volume);

// Of a catalog with Any(): "2 restore points (volume shadow copies)"; and the same with their
// times.
std::string SnapshotCount(const SnapshotCatalog& catalog);
std::string SnapshotText(const SnapshotCatalog& catalog);

}  // namespace vornalux
