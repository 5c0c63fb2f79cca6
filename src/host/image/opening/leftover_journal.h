// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>
#include <string>

#include "host/image/opening/image_source.h"
#include "host/image/volume/image_volume.h"

namespace vornalux {

std::unique_ptr<ImageVolume> OpenFileSystem(const ImageSource& source, VolumeStore store);

// Deals with the journal under the volume's journal path, if there is one. One whose run was
// interrupted on this very volume is finished, on the volume, or in memory for a dry run and where
// it cannot be written; the report says so. One that does not fit, or is not ours to obey, changes
// nothing: it refuses the volume to a pass (throws VolumeRefused) and becomes an objection for who
// only looks. source may come back opened anew, or with a scratch device.
void SettleLeftover(ImageSource& source, const std::string& path, const OpenOptions& options,
                    OpenReport& report);

}  // namespace vornalux
