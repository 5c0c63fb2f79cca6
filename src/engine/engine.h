// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "engine/analysis.h"
#include "engine/passes.h"
#include "engine/run_target.h"
#include "volume/movers.h"
#include "volume/volume_walk.h"

namespace vornalux {

// The parts that work on one selected volume, put together. All references outlive it.
struct Engine {
  Engine(Platform& platform, RunFlags& flags, const RunTarget& target, const DebugTrace& trace,
         RunView& view)
      : geometry(platform, trace),
        extents(platform.files),
        walk(platform, extents, geometry.constants, flags, table),
        movers(platform, geometry, extents, flags, trace, view),
        analysis(platform, geometry, extents, table, walk, flags, target, trace, view),
        passes(platform, geometry, analysis, movers, table, flags, target, view) {}

  VolumeGeometry geometry;
  ExtentReader extents;
  FileTable table;
  VolumeWalk walk;
  Movers movers;
  Analysis analysis;
  Passes passes;
};

}  // namespace vornalux
