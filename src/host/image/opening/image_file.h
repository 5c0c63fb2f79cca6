// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>
#include <string>

#include "host/image/opening/open_options.h"
#include "host/image/volume/refused.h"
#include "host/mounted/mounted_volume.h"

namespace vornalux {

// Opens the NTFS or FAT volume in an image file, block device or partitioned disk image, and
// recovers it first when an earlier run was interrupted: for a dry run in memory, with image and
// journal left as they are. Throws VolumeRefused, with the volume untouched, when it must not or
// cannot be worked on.
std::unique_ptr<MountedVolume> OpenImage(const std::string& path, const OpenOptions& options,
                                         OpenReport& report);

}  // namespace vornalux
