// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "platform/check_library.h"
#include "platform/machine.h"
#include "platform/volumes.h"

namespace vornalux {

// Runs the system's check of the volume with this root ("C:\") and tells the sink what it says.
// Where there is no such check, or the volume does not say what it is, the sink hears nothing.
void CheckVolumeBy(CheckLibrary& library, Volumes& volumes, const std::string& root,
                   CheckOptions options, DiskCheckSink& sink);

}  // namespace vornalux
