// SPDX-License-Identifier: GPL-2.0-or-later
#include "volume/bit_count.h"

#include <array>
#include <bit>
#include <cstring>
#include <numeric>

namespace vornalux {
namespace {

// As many bits as the processor combines at once.
#if defined(__SSE2__) || defined(__ARM_NEON)
using Lanes = std::uint64_t __attribute__((vector_size(16)));
#else
using Lanes = std::uint64_t;
#endif

// A full adder over columns of bits: high and low become the two digits of a + b + c. Sixteen
// lanes need one population count this way.
void AddBits(Lanes& high, Lanes& low, Lanes a, Lanes b, Lanes c) {
  const Lanes half = a ^ b;
  high = (a & b) | (half & c);
  low = half ^ c;
}

// The set bits of each 64-bit word, in its place: no processor that the program may count on has an
// instruction for it.
Lanes CountEach(Lanes lanes) {
  lanes -= (lanes >> 1) & 0x5555555555555555;
  lanes = (lanes & 0x3333333333333333) + ((lanes >> 2) & 0x3333333333333333);
  lanes = (lanes + (lanes >> 4)) & 0x0F0F0F0F0F0F0F0F;
  lanes += lanes >> 8;
  lanes += lanes >> 16;
  lanes += lanes >> 32;
  return lanes & 0x7F;
}

std::uint64_t Sum(Lanes lanes) {
  std::array<std::uint64_t, sizeof(Lanes) / sizeof(std::uint64_t)> words;
  std::memcpy(words.data(), &lanes, sizeof lanes);
  return std::accumulate(words.begin(), words.end(), std::uint64_t{0});
}

constexpr std::size_t kBlockBytes = 16 * sizeof(Lanes);

Lanes Load(const std::uint8_t* bytes, std::size_t index) {
  Lanes lanes;
  std::memcpy(&lanes, bytes + index * sizeof lanes, sizeof lanes);
  return lanes;
}

}  // namespace

std::uint64_t CountSetBits(std::span<const std::uint8_t> bytes) {
  Lanes sixteens_counted{};
  Lanes ones{};
  Lanes twos{};
  Lanes fours{};
  Lanes eights{};
  for (; bytes.size() >= kBlockBytes; bytes = bytes.subspan(kBlockBytes)) {
    Lanes two[2];
    Lanes four[2];
    Lanes eight[2];
    Lanes sixteens{};
    for (std::size_t half = 0; half < 2; ++half) {
      const std::uint8_t* v = bytes.data() + half * kBlockBytes / 2;
      AddBits(two[0], ones, ones, Load(v, 0), Load(v, 1));
      AddBits(two[1], ones, ones, Load(v, 2), Load(v, 3));
      AddBits(four[0], twos, twos, two[0], two[1]);
      AddBits(two[0], ones, ones, Load(v, 4), Load(v, 5));
      AddBits(two[1], ones, ones, Load(v, 6), Load(v, 7));
      AddBits(four[1], twos, twos, two[0], two[1]);
      AddBits(eight[half], fours, fours, four[0], four[1]);
    }
    AddBits(sixteens, eights, eights, eight[0], eight[1]);
    sixteens_counted += CountEach(sixteens);
  }
  std::uint64_t total = Sum(16 * sixteens_counted + 8 * CountEach(eights) + 4 * CountEach(fours) +
                            2 * CountEach(twos) + CountEach(ones));
  for (; bytes.size() >= sizeof(std::uint64_t); bytes = bytes.subspan(sizeof(std::uint64_t))) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes.data(), sizeof word);
    total += static_cast<std::uint64_t>(std::popcount(word));
  }
  for (const std::uint8_t byte : bytes) total += static_cast<std::uint64_t>(std::popcount(byte));
  return total;
}

}  // namespace vornalux
