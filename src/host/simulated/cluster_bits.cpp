// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/simulated/cluster_bits.h"

#include <algorithm>
#include <bit>
#include <cstddef>

namespace vornalux {

namespace {

// Calls visit(byte index, mask of the range's bits in that byte) for every byte of the range until
// it returns false.
template <typename Visit>
bool ForEachByte(std::int64_t lcn, std::int64_t count, Visit visit) {
  for (const std::int64_t end = lcn + count; lcn < end;) {
    const std::int64_t next = std::min(end, (lcn / 8 + 1) * 8);
    const auto bits = static_cast<unsigned>(next - lcn);
    const auto mask = static_cast<std::uint8_t>(((1U << bits) - 1) << (lcn % 8));
    if (!visit(static_cast<std::size_t>(lcn / 8), mask)) return false;
    lcn = next;
  }
  return true;
}

}  // namespace

ClusterBits::ClusterBits(std::int64_t clusters)
    : clusters_(clusters), free_(clusters), bits_(static_cast<std::size_t>((clusters + 7) / 8)) {}

bool ClusterBits::Used(std::int64_t lcn) const {
  return (bits_[static_cast<std::size_t>(lcn / 8)] >> (lcn % 8) & 1) != 0;
}

bool ClusterBits::RangeFree(std::int64_t lcn, std::int64_t count) const {
  return ForEachByte(lcn, count,
                     [&](std::size_t at, std::uint8_t mask) { return (bits_[at] & mask) == 0; });
}

void ClusterBits::Set(std::int64_t lcn, std::int64_t count, bool used) {
  ForEachByte(lcn, count, [&](std::size_t at, std::uint8_t mask) {
    changes_.Note(static_cast<std::int64_t>(at) * 8);
    const std::uint8_t before = bits_[at];
    bits_[at] = static_cast<std::uint8_t>(used ? before | mask : before & ~mask);
    free_ += std::popcount(before) - std::popcount(bits_[at]);
    return true;
  });
}

void ClusterBits::Copy(std::int64_t lcn, std::span<std::uint8_t> out) const {
  const std::size_t first = std::min(static_cast<std::size_t>(lcn / 8), bits_.size());
  const std::size_t count = std::min(out.size(), bits_.size() - first);
  const auto from = bits_.begin() + static_cast<std::ptrdiff_t>(first);
  std::copy(from, from + static_cast<std::ptrdiff_t>(count), out.begin());
  std::fill(out.begin() + static_cast<std::ptrdiff_t>(count), out.end(), std::uint8_t{0});
}

}  // namespace vornalux
