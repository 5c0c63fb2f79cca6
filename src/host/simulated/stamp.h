// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>

namespace vornalux {

// The stamp that stands for the content of one cluster: different for every cluster of every
// stream, since the mixing is a bijection. Streams below 2^28, VCNs below 2^36.
constexpr std::uint64_t Stamp(std::uint32_t stream, std::int64_t vcn) {
  std::uint64_t x = (std::uint64_t{stream} << 36 | static_cast<std::uint64_t>(vcn)) + 1;
  x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9U;
  x = (x ^ (x >> 27)) * 0x94D049BB133111EBU;
  return x ^ (x >> 31);
}

}  // namespace vornalux
