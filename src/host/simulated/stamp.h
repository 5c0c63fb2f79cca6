// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>

#include "host/simulated/seeded_random.h"

namespace vornalux {

// The stamp that stands for the content of one cluster: different for every cluster of every
// stream. Streams below 2^28, VCNs below 2^36.
constexpr std::uint64_t Stamp(std::uint32_t stream, std::int64_t vcn) {
  return Scramble(std::uint64_t{stream} << 36 | static_cast<std::uint64_t>(vcn));
}

}  // namespace vornalux
