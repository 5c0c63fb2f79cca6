// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/volume/allocation_map.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

namespace vornalux {
namespace {

constexpr std::int64_t kBits = 64;
constexpr std::int64_t kBitsPerByte = 8;
// A large copy in one go would pass by the processor's cache, from which the copy is read next.
constexpr std::size_t kCopyPiece = std::size_t{64} << 10;

std::size_t WordOf(std::int64_t lcn) { return static_cast<std::size_t>(lcn / kBits); }

// Calls visit(word index, mask of the range's bits in that word) until it returns false.
template <typename Visit>
bool EachWord(std::int64_t lcn, std::int64_t count, Visit visit) {
  for (const std::int64_t end = lcn + count; lcn < end;) {
    const std::int64_t bit = lcn % kBits;
    const std::int64_t length = std::min(kBits - bit, end - lcn);
    const std::uint64_t ones = length == kBits ? ~0ULL : (1ULL << length) - 1;
    if (!visit(WordOf(lcn), ones << bit)) return false;
    lcn += length;
  }
  return true;
}

}  // namespace

AllocationMap::AllocationMap(std::int64_t clusters)
    : clusters_(std::max<std::int64_t>(clusters, 0)),
      free_(clusters_),
      used_(WordOf(clusters_ + kBits - 1)),
      held_(used_.size()) {}

bool AllocationMap::Inside(std::int64_t lcn, std::int64_t count) const {
  return lcn >= 0 && count >= 0 && lcn <= clusters_ && count <= clusters_ - lcn;
}

bool AllocationMap::Used(std::int64_t lcn) const { return RangeUsed(lcn, 1); }

bool AllocationMap::RangeFree(std::int64_t lcn, std::int64_t count) const {
  return Inside(lcn, count) && EachWord(lcn, count, [&](std::size_t word, std::uint64_t mask) {
           return (used_[word] & mask) == 0;
         });
}

bool AllocationMap::RangeUsed(std::int64_t lcn, std::int64_t count) const {
  return Inside(lcn, count) && EachWord(lcn, count, [&](std::size_t word, std::uint64_t mask) {
           return (used_[word] & mask) == mask;
         });
}

bool AllocationMap::RangeHeld(std::int64_t lcn, std::int64_t count) const {
  if (held_words_.empty() || !Inside(lcn, count)) return false;
  return !EachWord(lcn, count,
                   [&](std::size_t word, std::uint64_t mask) { return (held_[word] & mask) == 0; });
}

std::vector<std::pair<std::int64_t, std::int64_t>> AllocationMap::HeldParts(
    std::int64_t lcn, std::int64_t count) const {
  std::vector<std::pair<std::int64_t, std::int64_t>> parts;
  if (!RangeHeld(lcn, count)) return parts;
  EachWord(lcn, count, [&](std::size_t word, std::uint64_t mask) {
    for (std::uint64_t bits = held_[word] & mask; bits != 0;) {
      const int from = std::countr_zero(bits);
      const int length = std::countr_one(bits >> from);
      const std::int64_t first = static_cast<std::int64_t>(word) * kBits + from;
      if (!parts.empty() && parts.back().first + parts.back().second == first) {
        parts.back().second += length;
      } else {
        parts.emplace_back(first, length);
      }
      bits = from + length == kBits ? 0 : bits & (~0ULL << (from + length));
    }
    return true;
  });
  return parts;
}

void AllocationMap::Replace(std::size_t word, std::uint64_t bits) {
  if (used_[word] == bits) return;
  changes_.Note(static_cast<std::int64_t>(word) * kBits);
  free_ += std::popcount(used_[word]) - std::popcount(bits);
  used_[word] = bits;
}

void AllocationMap::ReplaceHolding(std::size_t word, std::uint64_t bits) {
  if (const std::uint64_t freed = used_[word] & ~bits) {
    Hold(word, freed);
    if (fresh_.empty() || fresh_.back().first != word) fresh_.emplace_back(word, 0);
    fresh_.back().second |= freed;
  }
  Replace(word, bits);
}

void AllocationMap::Hold(std::size_t word, std::uint64_t bits) {
  if (held_[word] == 0) held_words_.push_back(word);
  held_[word] |= bits;
}

void AllocationMap::Use(std::int64_t lcn, std::int64_t count) {
  if (!Inside(lcn, count)) return;
  EachWord(lcn, count, [&](std::size_t word, std::uint64_t mask) {
    Replace(word, used_[word] | mask);
    return true;
  });
}

void AllocationMap::Free(std::int64_t lcn, std::int64_t count) {
  if (!Inside(lcn, count)) return;
  EachWord(lcn, count, [&](std::size_t word, std::uint64_t mask) {
    ReplaceHolding(word, used_[word] & ~mask);
    return true;
  });
}

void AllocationMap::AgeHeld() {
  const auto fresh = std::exchange(fresh_, {});
  ReleaseHeld();
  for (const auto& [word, bits] : fresh) Hold(word, bits);
}

void AllocationMap::ReleaseHeld() {
  for (const std::size_t word : held_words_) held_[word] = 0;
  held_words_.clear();
  fresh_.clear();
}

std::uint64_t AllocationMap::ValidBits(std::size_t word) const {
  const std::int64_t left = clusters_ - static_cast<std::int64_t>(word) * kBits;
  return left >= kBits ? ~0ULL : (1ULL << left) - 1;
}

void AllocationMap::SetByte(std::int64_t lcn, std::uint8_t bits) {
  if (lcn < 0 || lcn >= clusters_) return;
  const std::size_t word = WordOf(lcn);
  const int shift = static_cast<int>(lcn % kBits);
  const std::uint64_t mask = 0xFFULL << shift;
  const std::uint64_t value = static_cast<std::uint64_t>(bits) << shift;
  ReplaceHolding(word, (used_[word] & ~mask) | (value & ValidBits(word)));
}

void AllocationMap::Load(std::int64_t lcn, std::span<const std::uint8_t> bytes) {
  if (lcn < 0) return;
  std::size_t at = 0;
  while (at < bytes.size() && lcn < clusters_) {
    const std::size_t word = WordOf(lcn);
    std::uint64_t bits = used_[word];
    do {
      const int shift = static_cast<int>(lcn % kBits);
      bits &= ~(0xFFULL << shift);
      bits |= static_cast<std::uint64_t>(bytes[at++]) << shift;
      lcn += kBitsPerByte;
    } while (at < bytes.size() && lcn % kBits != 0);
    Replace(word, bits & ValidBits(word));
  }
}

void AllocationMap::Copy(std::int64_t lcn, std::span<std::uint8_t> out) const {
  static_assert(std::endian::native == std::endian::little, "words are copied as bytes");
  std::span<const std::uint8_t> bytes(reinterpret_cast<const std::uint8_t*>(used_.data()),
                                      used_.size() * sizeof(std::uint64_t));
  const bool inside = lcn >= 0 && lcn < clusters_;
  bytes = inside ? bytes.subspan(static_cast<std::size_t>(lcn / kBitsPerByte)) : bytes.first(0);
  while (!bytes.empty() && !out.empty()) {
    const std::size_t count = std::min({bytes.size(), out.size(), kCopyPiece});
    std::memcpy(out.data(), bytes.data(), count);
    bytes = bytes.subspan(count);
    out = out.subspan(count);
  }
  std::fill(out.begin(), out.end(), std::uint8_t{0});
}

}  // namespace vornalux
