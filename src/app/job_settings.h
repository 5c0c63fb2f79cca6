// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "platform/types.h"

namespace vornalux {

// What is left of a job once it runs. Its drive and directory are the chosen volume's; VssSafe,
// DebugLog, VolumeDirty and StopRequested live with the other program-wide switches in RunFlags.
struct JobSettings {
  Boolean shutdownWhenDone = False;
  Boolean closeWhenDone = False;
};

}  // namespace vornalux
