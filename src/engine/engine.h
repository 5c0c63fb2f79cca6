// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "engine/analysis.h"
#include "engine/chosen_volume.h"
#include "engine/passes.h"
#include "engine/run_context.h"
#include "engine/run_record.h"
#include "volume/movers.h"
#include "volume/volume_walk.h"

namespace vornalux {

// The chosen volume and the parts that work on it, put together. All references outlive it.
struct Engine {
  Engine(Platform& platform, RunFlags& flags, const DebugTrace& trace, RunView& view)
      : volume(platform, flags, geometry, table, analysis),
        geometry(platform, trace),
        extents(platform.files),
        walk(platform, extents, geometry.constants, flags, table),
        movers(platform, geometry, extents, flags, trace, view),
        context{platform, flags,   volume.Target(), trace, view,
                geometry, extents, table,           walk,  movers},
        analysis(context),
        record(context, analysis),
        passes(context, analysis, record) {}

  ChosenVolume volume;
  VolumeGeometry geometry;
  ExtentReader extents;
  FileTable table;
  VolumeWalk walk;
  Movers movers;
  const RunContext context;
  Analysis analysis;
  RunRecord record;
  Passes passes;
};

}  // namespace vornalux
