// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "user/deed.h"

namespace vornalux::testing {

// Plays a sequence and gives the fault that ended it. The seed makes the volumes, and as many steps
// at random; those given are taken as they come, without the ones that are not possible then. Each
// step is told when it begins.
using Taken = std::function<void(const Step&)>;
std::optional<Fault> PlayAtRandom(std::uint64_t seed, std::size_t steps, const Taken& taken);
std::optional<Fault> Replay(std::uint64_t seed, const std::vector<Step>& steps, const Taken& taken);

}  // namespace vornalux::testing
