// SPDX-License-Identifier: GPL-2.0-or-later
#include "mkvolume/payload.h"

#include <algorithm>
#include <cstring>

#include "host/simulated/seeded_random.h"

namespace vornalux::making {
namespace {

constexpr std::size_t kWord = 8;
constexpr std::size_t kBlock = 4096;  // prose is made in these

std::uint64_t NoiseWord(std::uint64_t key, std::uint64_t index) {
  return Scramble(key + index * 0x9E3779B97F4A7C15);
}

void FillNoise(std::uint64_t key, std::uint64_t offset, std::span<std::uint8_t> out) {
  std::uint64_t index = offset / kWord;
  std::size_t skip = offset % kWord;
  while (!out.empty()) {
    const std::uint64_t word = NoiseWord(key, index++);
    const std::size_t count = std::min(kWord - skip, out.size());
    // Little-endian whatever the machine: the same recipe gives the same bytes.
    for (std::size_t i = 0; i < count; ++i) {
      out[i] = static_cast<std::uint8_t>(word >> (8 * (skip + i)));
    }
    out = out.subspan(count);
    skip = 0;
    if (out.size() >= kWord) {
      const std::size_t words = out.size() / kWord;
      for (std::size_t w = 0; w < words; ++w) {
        const std::uint64_t value = NoiseWord(key, index++);
        std::uint8_t* to = out.data() + w * kWord;
        for (std::size_t i = 0; i < kWord; ++i) to[i] = static_cast<std::uint8_t>(value >> (8 * i));
      }
      out = out.subspan(words * kWord);
    }
  }
}

void FillProseBlock(std::uint64_t key, std::uint64_t block, std::span<std::uint8_t, kBlock> out) {
  static constexpr const char* kWords[] = {"the ",    "cluster ", "of ",   "a ",     "volume ",
                                           "moves, ", "and ",     "then ", "rests ", "here.\n"};
  SeededRandom random(key ^ Scramble(block));
  // Whole compression units of noise, so that some units stay as they are.
  if (block / 16 % 4 == 3) {
    FillNoise(key, block * kBlock, out);
    return;
  }
  for (std::size_t at = 0; at < kBlock;) {
    const char* word = kWords[random.Below(std::size(kWords))];
    const std::size_t count = std::min(std::strlen(word), kBlock - at);
    std::memcpy(out.data() + at, word, count);
    at += count;
  }
}

void FillProse(std::uint64_t key, std::uint64_t offset, std::span<std::uint8_t> out) {
  std::uint8_t block[kBlock];
  while (!out.empty()) {
    const std::size_t skip = offset % kBlock;
    const std::size_t count = std::min(kBlock - skip, out.size());
    FillProseBlock(key, offset / kBlock, std::span<std::uint8_t, kBlock>(block));
    std::memcpy(out.data(), block + skip, count);
    out = out.subspan(count);
    offset += count;
  }
}

}  // namespace

void Payload::Fill(std::uint64_t offset, std::span<std::uint8_t> out) const {
  const std::uint64_t left = offset < size ? size - offset : 0;
  const auto part = out.first(static_cast<std::size_t>(std::min<std::uint64_t>(left, out.size())));
  if (kind == Kind::Noise) {
    FillNoise(key, offset, part);
  } else if (kind == Kind::Prose) {
    FillProse(key, offset, part);
  } else if (!part.empty()) {
    std::memcpy(part.data(), literal.data() + offset, part.size());
  }
  std::fill(out.begin() + static_cast<std::ptrdiff_t>(part.size()), out.end(), std::uint8_t{0});
}

}  // namespace vornalux::making
