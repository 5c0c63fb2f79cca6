// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string_view>

#include "host/simulated/seeded_random.h"

namespace vornalux::making {

// A number that stands for a seed and a text together.
constexpr std::uint64_t KeyOf(std::uint64_t seed, std::string_view text) {
  std::uint64_t key = Scramble(seed);
  for (const char c : text) key = Scramble(key ^ static_cast<std::uint8_t>(c));
  return key;
}

}  // namespace vornalux::making
