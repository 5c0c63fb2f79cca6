// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace vornalux {

// One gap between used clusters.
struct FreeRun {
  std::int32_t start = 0;   // LCN
  std::int32_t high = 0;    // upper half of the LCN, never used for arithmetic
  std::int32_t length = 0;  // clusters

  friend bool operator==(const FreeRun&, const FreeRun&) = default;
};

// Ascending by start, no two adjacent.
using FreeRunList = std::vector<FreeRun>;

// The gaps of a volume in short.
struct FreeRegions {
  std::int64_t count = 0;
  std::int64_t clusters = 0;
  std::vector<std::int64_t> largest;  // clusters of the largest few, in descending order

  std::int64_t Largest() const { return largest.empty() ? 0 : largest.front(); }
};
inline constexpr std::size_t kRegionsTold = 5;

FreeRegions RegionsOf(const FreeRunList& gaps);

// The first cluster in [from, last) of a bitmap (bit set = in use) that is used, or not; or last.
std::int64_t FindBit(std::span<const std::uint64_t> words, std::int64_t from, std::int64_t last,
                     bool used);

// Appends the gaps among clusters [first, last) of a bitmap to runs. A gap that touches `last` ends
// there.
void AppendFreeRuns(std::span<const std::uint64_t> words, std::int64_t first, std::int64_t last,
                    FreeRunList& runs);

}  // namespace vornalux
