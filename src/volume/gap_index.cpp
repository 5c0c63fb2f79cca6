// SPDX-License-Identifier: GPL-2.0-or-later
#include "volume/gap_index.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <utility>

namespace vornalux {
namespace {

static_assert(std::endian::native == std::endian::little, "bitmap bytes are read as words");

constexpr std::int64_t kLeafClusters = 1024;
constexpr std::size_t kLeafWords = kLeafClusters / 64;
constexpr std::size_t kChunkWords = kBitmapChunkClusters / 64;
static_assert(kBitmapChunkClusters % kLeafClusters == 0);

FreeRun Gap(std::int64_t start, std::int64_t end) {
  return {static_cast<std::int32_t>(start), 0, static_cast<std::int32_t>(end - start)};
}

}  // namespace

void GapIndex::Reset(std::int64_t clusters) {
  clusters_ = clusters;
  const std::int64_t chunks = (clusters + kBitmapChunkClusters - 1) / kBitmapChunkClusters;
  words_.assign(static_cast<std::size_t>(chunks) * kChunkWords, ~std::uint64_t{0});
  const auto leaves = static_cast<std::uint64_t>((clusters + kLeafClusters - 1) / kLeafClusters);
  leaves_ = static_cast<std::int64_t>(std::bit_ceil(std::max<std::uint64_t>(leaves, 1)));
  tree_.assign(static_cast<std::size_t>(2 * leaves_), {});
}

GapIndex::Runs GapIndex::RunsOfLeaf(std::int64_t leaf) const {
  const auto first = static_cast<std::size_t>(leaf) * kLeafWords;
  Runs runs;
  std::int32_t open = 0;  // free clusters in front of the word
  bool from_begin = true;
  const auto close = [&] {
    runs.longest = std::max(runs.longest, open);
    if (std::exchange(from_begin, false)) runs.front = open;
  };
  for (std::size_t i = first; i < first + kLeafWords; ++i) {
    std::uint64_t free = ~words_[i];
    if (free == ~std::uint64_t{0}) {
      open += 64;
      continue;
    }
    open += std::countr_one(free);
    close();
    const std::int32_t last = std::countl_one(free);
    // Runs inside the word, while one of them may be the longest.
    for (free &= free + 1; std::popcount(free) > runs.longest; free &= free + (free & -free)) {
      runs.longest = std::max(runs.longest, std::countr_one(free >> std::countr_zero(free)));
    }
    open = last;
  }
  runs.back = open;
  close();
  return runs;
}

void GapIndex::Update(std::int64_t first, std::int64_t last) {
  for (std::int64_t leaf = first; leaf <= last; ++leaf) {
    tree_[static_cast<std::size_t>(leaves_ + leaf)] = RunsOfLeaf(leaf);
  }
  first += leaves_;
  last += leaves_;
  for (std::int64_t half = kLeafClusters; first > 1; half *= 2) {
    first /= 2;
    last /= 2;
    for (std::int64_t node = first; node <= last; ++node) {
      const Runs& low = At(2 * node);
      const Runs& high = At(2 * node + 1);
      const auto length = static_cast<std::int32_t>(half);
      tree_[static_cast<std::size_t>(node)] = {
          .front = low.front == length ? length + high.front : low.front,
          .back = high.back == length ? low.back + length : high.back,
          .longest = std::max({low.longest, high.longest, low.back + high.front})};
    }
  }
}

bool GapIndex::Take(std::int64_t lcn, std::span<const std::uint8_t> bits) {
  if (lcn < 0 || lcn >= clusters_) return false;
  std::array<std::uint64_t, kChunkWords> fresh;
  fresh.fill(~std::uint64_t{0});
  const std::int64_t clusters = std::min(kBitmapChunkClusters, clusters_ - lcn);
  const auto bytes = std::min(bits.size(), static_cast<std::size_t>((clusters + 7) / 8));
  std::memcpy(fresh.data(), bits.data(), bytes);
  if (clusters % 64 != 0) {
    fresh[static_cast<std::size_t>(clusters / 64)] |= ~std::uint64_t{0} << (clusters % 64);
  }
  std::uint64_t* const known = &words_[static_cast<std::size_t>(lcn / 64)];
  const auto same = [&](std::size_t word) {
    return std::memcmp(known + word, &fresh[word], kLeafWords * sizeof *known) == 0;
  };
  std::size_t first = 0;
  while (first < kChunkWords && same(first)) first += kLeafWords;
  if (first == kChunkWords) return false;
  std::size_t last = kChunkWords - kLeafWords;
  while (same(last)) last -= kLeafWords;
  std::memcpy(known + first, &fresh[first], (last + kLeafWords - first) * sizeof *known);
  const std::int64_t leaf = lcn / kLeafClusters;
  Update(leaf + static_cast<std::int64_t>(first / kLeafWords),
         leaf + static_cast<std::int64_t>(last / kLeafWords));
  return true;
}

void GapIndex::Set(std::int64_t lcn, std::int64_t count, bool used) {
  const std::int64_t end = std::min(lcn + count, clusters_);
  lcn = std::max<std::int64_t>(lcn, 0);
  if (lcn >= end) return;
  for (std::int64_t at = lcn; at < end;) {
    const std::int64_t next = std::min(end, (at / 64 + 1) * 64);
    const std::uint64_t mask = ~std::uint64_t{0} >> (64 - (next - at)) << (at % 64);
    std::uint64_t& word = words_[static_cast<std::size_t>(at / 64)];
    word = used ? word | mask : word & ~mask;
    at = next;
  }
  Update(lcn / kLeafClusters, (end - 1) / kLeafClusters);
}

std::int64_t GapIndex::CutOff(std::int64_t end) {
  std::int64_t start = end;
  while (start > 0 && IsFree(start - 1, 1)) {
    const bool whole = start % 64 == 0 && words_[static_cast<std::size_t>(start / 64 - 1)] == 0;
    start -= whole ? 64 : 1;
  }
  Set(start, clusters_ - start, true);
  return start;
}

bool GapIndex::IsFree(std::int64_t lcn, std::int64_t count) const {
  return lcn >= 0 && count <= clusters_ - lcn && EndOfRun(lcn) - lcn >= count;
}

std::int64_t GapIndex::EndOfRun(std::int64_t lcn) const {
  if (lcn >= clusters_) return lcn;
  std::int64_t at = (lcn / kLeafClusters + 1) * kLeafClusters;
  const std::int64_t found = FindBit(words_, lcn, at, true);
  if (found < at) return found;
  std::int64_t length = kLeafClusters;
  for (std::int64_t node = leaves_ + at / kLeafClusters;
       !std::has_single_bit(static_cast<std::uint64_t>(node)); ++node) {
    for (; node % 2 == 0; node /= 2) length *= 2;
    if (At(node).front < length) return at + At(node).front;
    at += length;
  }
  return clusters_;
}

std::int64_t GapIndex::FindRun(std::int64_t from, std::int64_t least) const {
  if (from >= clusters_) return -1;
  std::int64_t at = (from / kLeafClusters + 1) * kLeafClusters;
  std::int64_t open = 0;  // free clusters in front of `at`
  for (std::int64_t lcn = from; lcn < at;) {
    const std::int64_t start = FindBit(words_, lcn, at, false);
    lcn = FindBit(words_, start, at, true);
    if (lcn == at) open = at - start;
    if (start < at && lcn - start >= least) return start;
  }
  std::int64_t length = kLeafClusters;
  std::int64_t node = leaves_ + at / kLeafClusters;
  while (!std::has_single_bit(static_cast<std::uint64_t>(node))) {
    for (; node % 2 == 0; node /= 2) length *= 2;
    while (true) {
      const Runs& runs = At(node);
      if (open + runs.front >= least) return at - open;
      if (runs.longest < least) break;
      if (node >= leaves_) return FindRun(at, least);
      node *= 2;
      length /= 2;
      // What the lower half does not have, the upper one does, or they have it together.
      const Runs& low = At(node);
      if (open + low.front >= least || low.longest >= least) continue;
      open = low.back == length ? open + length : low.back;
      at += length;
      ++node;
    }
    open = At(node).back == length ? open + length : At(node).back;
    at += length;
    ++node;
  }
  return -1;
}

FreeRun GapIndex::LowestGap(std::int64_t from, std::int64_t least) const {
  least = std::max<std::int64_t>(least, 1);
  // A gap that has begun before is none from here on.
  if (from > 0 && IsFree(from - 1, 1)) from = EndOfRun(from);
  const std::int64_t start = FindRun(std::max<std::int64_t>(from, 0), least);
  return start < 0 ? FreeRun{} : Gap(start, EndOfRun(start + least));
}

FreeRun GapIndex::LargestGap() const {
  const std::int64_t longest = At(1).longest;
  if (longest == 0) return {};
  const std::int64_t start = FindRun(0, longest);
  return Gap(start, start + longest);
}

FreeRunList GapIndex::List() const {
  FreeRunList runs;
  AppendFreeRuns(words_, 0, clusters_, runs);
  return runs;
}

}  // namespace vornalux
