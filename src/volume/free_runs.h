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

// Clusters described by one bitmap request of 4,096 bytes.
inline constexpr std::int64_t kBitmapChunkClusters = 32768;
inline constexpr std::size_t kBitmapChunkBytes = kBitmapChunkClusters / 8;

// Appends the gaps among clusters [first, last) of a bitmap (bit set = in use) to runs. A gap that
// touches `last` ends there.
void AppendFreeRuns(std::span<const std::uint64_t> words, std::int64_t first, std::int64_t last,
                    FreeRunList& runs);

// The gap list of a bitmap that arrives in chunks, again and again, mostly unchanged: only chunks
// that differ from what was last seen are scanned.
class FreeRunIndex {
 public:
  // Starts reading a bitmap of total clusters (at most 2^31 - 1).
  void Begin(std::int64_t total);

  // Takes the chunk that starts at starting_lcn, a multiple of 32,768. Bits past the total are
  // ignored; bits that are missing count as in use.
  void Take(std::int64_t starting_lcn, std::span<const std::uint8_t> bits);

  // The bitmap ended at cluster `end`: total, or less when reading broke off; then a gap that was
  // still open there is dropped.
  const FreeRunList& Finish(std::int64_t end);

 private:
  void Rescan(std::int64_t first, std::int64_t last);

  std::int64_t total_ = 0;
  std::vector<std::uint64_t> words_;
  std::vector<std::int64_t> changed_;  // first clusters of changed chunks, ascending
  FreeRunList runs_;
};

}  // namespace vornalux
