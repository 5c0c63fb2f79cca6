// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "engine/run_target.h"
#include "platform/types.h"

namespace vornalux {

// The job being run. What it works on is in target; VssSafe, DebugLog, VolumeDirty and
// StopRequested live with the other program-wide switches in RunFlags.
struct JobSettings {
  RunTarget target;
  Boolean shutdownWhenDone = False;
  Boolean closeWhenDone = False;
};

}  // namespace vornalux
