// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "host/image/device/block_device.h"
#include "host/image/ntfs/ntfs_raw_record.h"
#include "host/image/volume/allocation_map.h"

namespace vornalux {

// Proves what moving relies on, by reading every file record: each cluster of each stream is that
// stream's alone and marked in use, records and attribute lists fit each other, no record in use
// can be handed out again, $MFTMirr is a copy. Returns what is wrong ("record 35: ..., and 3
// more"); empty when all is well. Clusters and records marked in use that nobody owns are no fault.
//
// in_use: $Bitmap. Takes one bit for each cluster of memory, and what files of several records
// need.
std::string FindUnsoundness(BlockDevice& device, const NtfsGeometry& geometry,
                            const AllocationMap& in_use);

}  // namespace vornalux
