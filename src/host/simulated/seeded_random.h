// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>
#include <vector>

namespace vornalux {

// Scrambles a number: neighbours give unrelated results, different numbers different ones.
constexpr std::uint64_t Scramble(std::uint64_t value) {
  value += 0x9E3779B97F4A7C15;
  value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
  value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
  return value ^ (value >> 31);
}

// Random numbers that are the same for a seed with every compiler and library, which those of
// <random> are not. Of tests, benchmarks and the volumes made for them.
class SeededRandom {
 public:
  using result_type = std::uint64_t;
  static constexpr result_type min() { return 0; }
  static constexpr result_type max() { return std::numeric_limits<result_type>::max(); }

  explicit SeededRandom(std::uint64_t seed) : state_(Scramble(seed)) {}

  result_type operator()() { return Scramble(state_++); }

  // 0 to limit - 1; 0 for a limit of 0, which must not be below.
  std::int64_t Below(std::signed_integral auto limit) {
    return static_cast<std::int64_t>(Below(static_cast<std::uint64_t>(limit)));
  }
  std::uint64_t Below(std::unsigned_integral auto limit) {
    return limit == 0 ? 0 : (*this)() % limit;
  }
  // In [first, last].
  std::int64_t Between(std::int64_t first, std::int64_t last) {
    return first + Below(last - first + 1);
  }
  // In [0, 1).
  double Unit() { return static_cast<double>((*this)() >> 11) * 0x1p-53; }
  bool Chance(double probability) { return Unit() < probability; }
  template <typename T>
  void Shuffle(std::vector<T>& items) {
    for (std::size_t i = items.size(); i > 1; --i) {
      std::swap(items[i - 1], items[static_cast<std::size_t>(Below(i))]);
    }
  }

 private:
  std::uint64_t state_;
};

}  // namespace vornalux
