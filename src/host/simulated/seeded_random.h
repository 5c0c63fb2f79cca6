// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

namespace vornalux {

// Random numbers that are the same for a seed with every compiler and library, which the standard
// distributions are not.
class SeededRandom {
 public:
  explicit SeededRandom(std::uint64_t seed) : engine_(seed) {}

  // In [0, limit); limit is above 0.
  std::int64_t Below(std::int64_t limit) {
    return static_cast<std::int64_t>(engine_() % static_cast<std::uint64_t>(limit));
  }
  // In [first, last].
  std::int64_t Between(std::int64_t first, std::int64_t last) {
    return first + Below(last - first + 1);
  }
  bool Chance(double probability) {
    return static_cast<double>(engine_() >> 11) < probability * 9007199254740992.0;
  }
  template <typename T>
  void Shuffle(std::vector<T>& values) {
    for (std::size_t i = values.size(); i > 1; --i) {
      std::swap(values[i - 1],
                values[static_cast<std::size_t>(Below(static_cast<std::int64_t>(i)))]);
    }
  }

 private:
  std::mt19937_64 engine_;
};

}  // namespace vornalux
