// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <optional>

#include "host/image/device/block_device.h"
#include "host/image/ntfs/ntfs_raw_record.h"
#include "host/image/volume/allocation_map.h"
#include "host/mounted/mounted_volume.h"

namespace vornalux {

// How small ntfsresize can make the volume without moving a file's data, a folder or $MFT: of files
// with several records it spoils some. What it still has to move itself are system files of a few
// runs, which lie where formatting has put them, and attribute lists, which nothing else can move.
// Reads every file record; nothing when one cannot be read, is damaged, or no cluster is to be
// gained.
std::optional<SmallestSize> FindSmallestNtfs(BlockDevice& device, const NtfsGeometry& geometry,
                                             const AllocationMap& in_use,
                                             std::uint32_t bytes_per_sector);

}  // namespace vornalux
