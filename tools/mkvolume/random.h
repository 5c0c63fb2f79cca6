// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

namespace vornalux::making {

// Scrambles a number; neighbours give unrelated results.
constexpr std::uint64_t Scramble(std::uint64_t value) {
  value += 0x9E3779B97F4A7C15;
  value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
  value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
  return value ^ (value >> 31);
}

// A number that stands for a seed and a text together.
constexpr std::uint64_t KeyOf(std::uint64_t seed, std::string_view text) {
  std::uint64_t key = Scramble(seed);
  for (const char c : text) key = Scramble(key ^ static_cast<std::uint8_t>(c));
  return key;
}

// Draws that are the same everywhere, which those of <random> are not.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(Scramble(seed)) {}

  std::uint64_t Next() { return Scramble(state_++); }
  // 0 to limit - 1; 0 for a limit of 0.
  std::uint64_t Below(std::uint64_t limit) { return limit == 0 ? 0 : Next() % limit; }
  std::int64_t Between(std::int64_t low, std::int64_t high) {
    return low + static_cast<std::int64_t>(Below(static_cast<std::uint64_t>(high - low + 1)));
  }
  double Unit() { return static_cast<double>(Next() >> 11) * 0x1p-53; }
  bool Chance(double share) { return Unit() < share; }

  template <typename T>
  void Shuffle(std::vector<T>& items) {
    for (std::size_t i = items.size(); i > 1; --i) std::swap(items[i - 1], items[Below(i)]);
  }

 private:
  std::uint64_t state_;
};

}  // namespace vornalux::making
