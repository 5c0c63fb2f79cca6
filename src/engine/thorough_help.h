// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <optional>

#include "engine/run_context.h"
#include "engine/run_summary.h"

namespace vornalux {

// What a planned Defrag of the same target would make of what the run has left in pieces: a real
// plan, of another walk over the volume as it is now. Nothing where it would help nothing, where
// the run was stopped or planned itself, and where a stop ends the walk, which then counts as none.
std::optional<ThoroughHelp> FindThoroughHelp(const RunContext& run, const RunSummary& summary);

}  // namespace vornalux
