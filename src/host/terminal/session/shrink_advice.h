// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "host/image/opening/open_options.h"
#include "host/mounted/mounted_volume.h"
#include "host/terminal/result/results.h"

namespace vornalux {

// The lines for a shell that make the volume in the image or device so small, by ntfsresize or
// fatresize, and what is to be done then.
ShrinkAdvice AdviseShrink(const std::string& image, const VolumePlace& place,
                          const SmallestSize& smallest, bool ntfs);

}  // namespace vornalux
