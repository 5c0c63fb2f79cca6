// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <vector>

#include "engine/plan/plan.h"

namespace vornalux::plan {

std::int64_t ClustersOf(const MoveList& moves);

// The plan that these moves make of the volume.
Plan PlanOf(const Volume& volume, MoveList moves);

// The files in pieces, in their order, and why: as far as can be said without a limit.
std::vector<Staying> StayingIn(const ClusterSpace& space);

// A limit is the obstacle only of files that stay in no plan without one: `anyway`.
void TellLimited(Plan& plan, const std::vector<Staying>& anyway);

}  // namespace vornalux::plan
