// SPDX-License-Identifier: GPL-2.0-or-later
#include "volume/free_runs.h"

#include <algorithm>
#include <bit>
#include <functional>

namespace vornalux {
std::int64_t FindBit(std::span<const std::uint64_t> words, std::int64_t from, std::int64_t last,
                     bool used) {
  while (from < last) {
    const auto index = static_cast<std::size_t>(from / 64);
    const std::uint64_t word = (used ? words[index] : ~words[index]) >> (from % 64);
    if (word != 0) return std::min(last, from + std::countr_zero(word));
    from = (from / 64 + 1) * 64;
  }
  return last;
}

void AppendFreeRuns(std::span<const std::uint64_t> words, std::int64_t first, std::int64_t last,
                    FreeRunList& runs) {
  for (std::int64_t at = first; at < last;) {
    const std::int64_t start = FindBit(words, at, last, false);
    if (start == last) break;
    at = FindBit(words, start, last, true);
    runs.push_back({static_cast<std::int32_t>(start), 0, static_cast<std::int32_t>(at - start)});
  }
}

FreeRegions RegionsOf(const FreeRunList& gaps) {
  FreeRegions regions;
  regions.count = std::ssize(gaps);
  for (const FreeRun& gap : gaps) {
    regions.clusters += gap.length;
    std::vector<std::int64_t>& largest = regions.largest;
    if (largest.size() == kRegionsTold && gap.length <= largest.back()) continue;
    largest.insert(std::ranges::upper_bound(largest, gap.length, std::greater()), gap.length);
    if (largest.size() > kRegionsTold) largest.pop_back();
  }
  return regions;
}

}  // namespace vornalux
