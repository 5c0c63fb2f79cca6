// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>

#include "host/image/volume/image_volume.h"

namespace vornalux {

// Apart from NtfsVolume, whose header brings the library's along.
// Checks the volume's structure as far as moving relies on it. Throws VolumeRefused; a dirty volume
// is refused unless store.recovering or store.allow_dirty.
std::unique_ptr<ImageVolume> OpenNtfsVolume(VolumeStore store);

}  // namespace vornalux
