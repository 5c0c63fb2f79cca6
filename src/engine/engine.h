// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "engine/analysis.h"
#include "engine/passes.h"
#include "engine/run_context.h"
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
        context{platform, flags, target, trace, view, geometry, extents, table, walk, movers},
        analysis(context),
        passes(context, analysis) {}

  VolumeGeometry geometry;
  ExtentReader extents;
  FileTable table;
  VolumeWalk walk;
  Movers movers;
  const RunContext context;
  Analysis analysis;
  Passes passes;
};

}  // namespace vornalux
