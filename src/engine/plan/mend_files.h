// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>

#include "engine/plan/cluster_space.h"

namespace vornalux::plan {

// In which order files are mended: which is best depends on the volume.
enum class MendingOrder { LargestFirst, SmallestFirst, MostPiecesPerCluster };

// Brings as many files into one piece as go, with no more than `limit` clusters moved in the space
// in all.
void MendFiles(ClusterSpace& space, MendingOrder order, std::int64_t limit);

}  // namespace vornalux::plan
