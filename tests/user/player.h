// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "user/deed.h"

namespace vornalux::testing {

// What came of a sequence: the steps that were taken, and the fault that ended it.
struct Played {
  std::vector<Step> steps;
  std::optional<Fault> fault;
};

// The seed makes the volumes, and the steps where none are given. Of those given, the ones that are
// not possible when their turn comes are left out.
Played PlayAtRandom(std::uint64_t seed, std::size_t steps);
Played Replay(std::uint64_t seed, const std::vector<Step>& steps);

}  // namespace vornalux::testing
