// SPDX-License-Identifier: GPL-2.0-or-later
#include <gtest/gtest.h>

#include <cstdint>

#include "ui/cluster_map.h"
#include "volume/volume_geometry.h"

namespace vornalux {
namespace {

// To nearest, halves to even, in whole numbers.
std::int64_t ExactRatio(std::int64_t a, std::int64_t b) {
  const std::int64_t twice = 2 * a / b;
  const bool half = 2 * a % b == 0 && twice % 2 == 1;
  return half ? (twice / 2 + 1) / 2 * 2 : (twice + 1) / 2;
}

// Arithmetic by machine numbers is off here and there, but by as much on every processor: the
// figures below are what 64-bit ones make of it.
TEST(Rounding, HalvesGoTheSameWayInPrograms32And64BitsWide) {
  int off = 0;
  for (std::int32_t total = 1; total < 4000; ++total) {
    for (std::int32_t free = 0; free <= total; ++free) {
      if (PercentFree(free, total) != ExactRatio(std::int64_t{100} * free, total)) ++off;
    }
  }
  EXPECT_EQ(off, 182) << "percentages";

  off = 0;
  for (std::int32_t clusters = 8; clusters <= 4096; clusters += 8) {
    for (std::int32_t used = 0; used <= clusters; ++used) {
      const Colour colour = DensityColour(static_cast<float>(used) / static_cast<float>(clusters));
      for (unsigned shift = 0; shift < 24; shift += 8) {
        const std::int64_t none = map_colour::kFree >> shift & 0xFF;
        const std::int64_t all = map_colour::kUsed >> shift & 0xFF;
        const std::int64_t exact = ExactRatio(none * (clusters - used) + all * used, clusters);
        if ((colour >> shift & 0xFF) != static_cast<Colour>(exact)) ++off;
      }
    }
  }
  EXPECT_EQ(off, 6) << "shades of the map";
}

}  // namespace
}  // namespace vornalux
