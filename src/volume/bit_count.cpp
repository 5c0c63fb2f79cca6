// SPDX-License-Identifier: GPL-2.0-or-later
#include "volume/bit_count.h"

#include <array>
#include <bit>
#include <cstring>

namespace vornalux {
namespace {

// A full adder over 64 columns of bits: high and low become the two digits of a + b + c. Sixteen
// words need one population count this way, which matters where the processor has no instruction
// for it that the program may count on.
void AddBits(std::uint64_t& high, std::uint64_t& low, std::uint64_t a, std::uint64_t b,
             std::uint64_t c) {
  const std::uint64_t half = a ^ b;
  high = (a & b) | (half & c);
  low = half ^ c;
}

constexpr std::size_t kBlockWords = 16;
using Block = std::array<std::uint64_t, kBlockWords>;

}  // namespace

std::uint64_t CountSetBits(std::span<const std::uint8_t> bytes) {
  std::uint64_t total = 0;
  std::uint64_t ones = 0;
  std::uint64_t twos = 0;
  std::uint64_t fours = 0;
  std::uint64_t eights = 0;
  for (; bytes.size() >= sizeof(Block); bytes = bytes.subspan(sizeof(Block))) {
    Block w;
    std::memcpy(w.data(), bytes.data(), sizeof w);
    std::uint64_t two[2];
    std::uint64_t four[2];
    std::uint64_t eight[2];
    std::uint64_t sixteens = 0;
    for (std::size_t half = 0; half < 2; ++half) {
      const std::uint64_t* v = &w[half * 8];
      AddBits(two[0], ones, ones, v[0], v[1]);
      AddBits(two[1], ones, ones, v[2], v[3]);
      AddBits(four[0], twos, twos, two[0], two[1]);
      AddBits(two[0], ones, ones, v[4], v[5]);
      AddBits(two[1], ones, ones, v[6], v[7]);
      AddBits(four[1], twos, twos, two[0], two[1]);
      AddBits(eight[half], fours, fours, four[0], four[1]);
    }
    AddBits(sixteens, eights, eights, eight[0], eight[1]);
    total += 16 * static_cast<std::uint64_t>(std::popcount(sixteens));
  }
  total += 8 * static_cast<std::uint64_t>(std::popcount(eights)) +
           4 * static_cast<std::uint64_t>(std::popcount(fours)) +
           2 * static_cast<std::uint64_t>(std::popcount(twos)) +
           static_cast<std::uint64_t>(std::popcount(ones));
  for (; bytes.size() >= sizeof(std::uint64_t); bytes = bytes.subspan(sizeof(std::uint64_t))) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes.data(), sizeof word);
    total += static_cast<std::uint64_t>(std::popcount(word));
  }
  for (const std::uint8_t byte : bytes) total += static_cast<std::uint64_t>(std::popcount(byte));
  return total;
}

}  // namespace vornalux
