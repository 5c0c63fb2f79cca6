// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/image/volume/refused.h"
#include "host/mounted/mounted_volume.h"

namespace vornalux {

struct OpenOptions {
  bool writable = false;
  bool dry_run = false;                 // keep what is written in memory; the image is only read
  bool allow_dirty = false;             // open a volume that is marked dirty, though not to move
  bool drop_restore_points = false;     // work on a volume with snapshots, which are lost then
  std::optional<int> partition;         // 1-based, of a partitioned disk image
  std::optional<std::uint64_t> offset;  // bytes
};

// What opening found out besides the volume itself.
struct OpenReport {
  bool recovered = false;  // an interrupted run of ours was finished first
  std::string recovery;    // one line about it for the user
  // Opened for looking or a dry run: what a pass would refuse the volume for, with the remedies.
  std::vector<std::string> objections;
};

// Opens the NTFS or FAT volume in an image file, block device or partitioned disk image, and
// recovers it first when an earlier run was interrupted: for a dry run in memory, with image and
// journal left as they are. Throws VolumeRefused, with the volume untouched, when it must not or
// cannot be worked on.
std::unique_ptr<MountedVolume> OpenImage(const std::string& path, const OpenOptions& options,
                                         OpenReport& report);

}  // namespace vornalux
