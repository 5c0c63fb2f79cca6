// SPDX-License-Identifier: GPL-2.0-or-later
#include "volume/free_runs.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <functional>

namespace vornalux {
namespace {

static_assert(std::endian::native == std::endian::little, "bitmap bytes are read as words");

std::int64_t End(const FreeRun& run) { return std::int64_t{run.start} + run.length; }

// The first cluster in [from, last) whose bit equals `used`, or last.
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

}  // namespace

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

void FreeRunIndex::Begin(std::int64_t total) {
  changed_.clear();
  if (total == total_) return;
  total_ = total;
  runs_.clear();
  // A bitmap that was never seen is all in use: no gaps, and every chunk with one differs.
  words_.assign(static_cast<std::size_t>((total + kBitmapChunkClusters - 1) / kBitmapChunkClusters *
                                         (kBitmapChunkClusters / 64)),
                ~std::uint64_t{0});
}

void FreeRunIndex::Take(std::int64_t starting_lcn, std::span<const std::uint8_t> bits) {
  if (starting_lcn < 0 || starting_lcn >= total_) return;
  std::array<std::uint64_t, kBitmapChunkClusters / 64> fresh;
  fresh.fill(~std::uint64_t{0});
  const std::int64_t clusters = std::min(kBitmapChunkClusters, total_ - starting_lcn);
  const auto bytes = std::min(bits.size(), static_cast<std::size_t>((clusters + 7) / 8));
  std::memcpy(fresh.data(), bits.data(), bytes);
  if (clusters % 64 != 0) {
    fresh[static_cast<std::size_t>(clusters / 64)] |= ~std::uint64_t{0} << (clusters % 64);
  }
  std::uint64_t* known = &words_[static_cast<std::size_t>(starting_lcn / 64)];
  if (std::memcmp(known, fresh.data(), sizeof fresh) == 0) return;
  std::memcpy(known, fresh.data(), sizeof fresh);
  changed_.push_back(starting_lcn);
}

// Replaces all gaps that lie in or touch [first, last) by what the bitmap says now.
void FreeRunIndex::Rescan(std::int64_t first, std::int64_t last) {
  const auto begin = std::lower_bound(runs_.begin(), runs_.end(), first,
                                      [](const FreeRun& run, auto lcn) { return End(run) < lcn; });
  const auto end = std::upper_bound(begin, runs_.end(), last,
                                    [](auto lcn, const FreeRun& run) { return lcn < run.start; });
  if (begin != end) {
    first = std::min(first, std::int64_t{begin->start});
    last = std::max(last, End(*(end - 1)));
  }
  FreeRunList fresh;
  AppendFreeRuns(words_, first, last, fresh);
  const auto replaced = std::min<std::ptrdiff_t>(end - begin, std::ssize(fresh));
  const auto rest = std::copy_n(fresh.begin(), replaced, begin);
  if (replaced < std::ssize(fresh)) {
    runs_.insert(rest, fresh.begin() + replaced, fresh.end());
  } else {
    runs_.erase(rest, end);
  }
}

const FreeRunList& FreeRunIndex::Finish(std::int64_t end) {
  if (end < total_) {
    // What lies beyond is unknown; forget it all so that the next reading starts afresh.
    runs_.clear();
    AppendFreeRuns(words_, 0, end, runs_);
    if (!runs_.empty() && End(runs_.back()) == end) runs_.pop_back();
    total_ = -1;
    return runs_;
  }
  for (const std::int64_t lcn : changed_) {
    Rescan(lcn, std::min(total_, lcn + kBitmapChunkClusters));
  }
  changed_.clear();
  return runs_;
}

}  // namespace vornalux
