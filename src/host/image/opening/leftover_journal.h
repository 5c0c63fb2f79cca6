// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>
#include <string>

#include "host/image/opening/image_source.h"
#include "host/image/volume/image_volume.h"

namespace vornalux {

std::unique_ptr<ImageVolume> OpenFileSystem(const ImageSource& source, VolumeStore store);

// Deals with the journal at the volume's journal path, if there is one. When its run was
// interrupted on this very volume, the run's last commit is finished: on the volume, or in memory
// for a dry run and where the volume cannot be written. The report says so. A journal that does not
// fit, or is not ours to obey, changes nothing: a pass is refused (throws VolumeRefused), and a
// command that only looks gets an objection. source may come back opened anew, or with a scratch
// device.
void SettleLeftover(ImageSource& source, const std::string& path, const OpenOptions& options,
                    OpenReport& report);

}  // namespace vornalux
