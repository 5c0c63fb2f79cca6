// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <optional>

#include "platform/types.h"

namespace vornalux {

// Program-wide switches that a run and its windows share.
struct RunFlags {
  Boolean DebugLog = False;              // trace lines go to the debug window
  Boolean VssSafe = False;               // keep moves aligned for volume shadow copies
  Boolean Thorough = False;              // a pass that can plans the whole volume first
  std::optional<std::uint64_t> MaxMove;  // bytes that such a run may move; none: what it takes
  Boolean StopRequested = False;         // every walk and pass ends at its next check
  Boolean OptimizeMode = False;          // the walk fills the class lists
  Boolean ClassListsValid = False;       // the class lists describe the volume as it is
  Boolean AnalysisValid = False;         // the fragmented-file lists describe it
  Boolean VolumeDirty = False;           // the disk check found the volume dirty
  Boolean ProgramEnded = False;  // the main window has gone: nothing begins or moves any more
};

}  // namespace vornalux
