// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "engine/run_target.h"
#include "engine/run_view.h"
#include "platform/platform.h"
#include "volume/debug_trace.h"
#include "volume/extent_reader.h"
#include "volume/file_table.h"
#include "volume/movers.h"
#include "volume/run_flags.h"
#include "volume/volume_geometry.h"
#include "volume/volume_walk.h"

namespace vornalux {

// What analysis and passes work with. Nothing is owned here: the first five belong to the program,
// the others are the engine's parts.
struct RunContext {
  Platform& platform;
  RunFlags& flags;
  const RunTarget& target;
  const DebugTrace& trace;
  RunView& view;
  VolumeGeometry& geometry;
  ExtentReader& extents;
  FileTable& table;
  VolumeWalk& walk;
  Movers& movers;
};

}  // namespace vornalux
