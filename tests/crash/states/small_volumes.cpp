// SPDX-License-Identifier: GPL-2.0-or-later
#include "crash/states/small_volumes.h"

#include <algorithm>
#include <numeric>
#include <string_view>

#include "host/image/device/little_endian.h"

namespace vornalux::test {
namespace {

constexpr std::size_t kMostPieces = 4, kMostFiles = 3, kSector = 512;

// Where pieces can lie, in the order of the volume.
void Places(int from, int clusters, std::size_t pieces, SmallLayout& now,
            std::vector<SmallLayout>& out) {
  if (now.size() == pieces) return out.push_back(now);
  for (int first = from; first < clusters; ++first) {
    for (int length = 1; first + length <= clusters; ++length) {
      now.push_back({0, static_cast<std::uint8_t>(first), static_cast<std::uint8_t>(length)});
      Places(first + length, clusters, pieces, now, out);
      now.pop_back();
    }
  }
}

// Of two pieces that would be one.
bool Joined(const SmallLayout& layout) {
  return std::adjacent_find(layout.begin(), layout.end(), [](const auto& a, const auto& b) {
           return a.file == b.file && a.first + a.clusters == b.first;
         }) != layout.end();
}

void SetEntry(std::span<std::uint8_t> fat, std::size_t number, std::uint32_t value) {
  const std::size_t at = number + number / 2;
  const auto both = static_cast<unsigned>(fat[at] | fat[at + 1] << 8);
  const unsigned merged = number % 2 == 0 ? (both & 0xF000) | value : (both & 0xF) | value << 4;
  fat[at] = static_cast<std::uint8_t>(merged);
  fat[at + 1] = static_cast<std::uint8_t>(merged >> 8);
}

}  // namespace

std::vector<SmallLayout> AllSmallLayouts(int clusters) {
  std::vector<SmallLayout> layouts;
  for (std::size_t pieces = 1; pieces <= kMostPieces; ++pieces) {
    std::vector<SmallLayout> places;
    SmallLayout none;
    Places(0, clusters, pieces, none, places);
    std::vector<std::size_t> order(pieces);
    std::iota(order.begin(), order.end(), std::size_t{0});
    do {
      // A bit for each piece but the first: another file begins there.
      for (unsigned files = 0; files < 1U << (pieces - 1); ++files) {
        for (const SmallLayout& place : places) {
          SmallLayout layout;
          std::uint8_t file = 0;
          for (std::size_t i = 0; i < pieces; ++i) {
            if (i > 0 && (files >> (i - 1) & 1) != 0) ++file;
            layout.push_back(place[order[i]]);
            layout.back().file = file;
          }
          if (file < kMostFiles && !Joined(layout)) layouts.push_back(std::move(layout));
        }
      }
    } while (std::next_permutation(order.begin(), order.end()));
  }
  return layouts;
}

// Boot sector, two tables of a sector, a root of a sector, the clusters.
Bytes SmallFat12(const SmallLayout& layout, int clusters) {
  constexpr std::size_t kData = 4 * kSector;
  Bytes volume(kData + static_cast<std::size_t>(clusters) * kSector);
  const auto boot = std::span(volume).first(kSector);
  constexpr std::string_view kStart = "\xEB\x3C\x90MSDOS5.0";
  std::copy(kStart.begin(), kStart.end(), boot.begin());
  StoreLittle<std::uint16_t>(boot, 0x0B, kSector);
  boot[0x0D] = 1;
  StoreLittle<std::uint16_t>(boot, 0x0E, 1);
  boot[0x10] = 2;
  StoreLittle<std::uint16_t>(boot, 0x11, kSector / 32);
  StoreLittle<std::uint16_t>(boot, 0x13, static_cast<std::uint16_t>(volume.size() / kSector));
  boot[0x15] = 0xF8;
  StoreLittle<std::uint16_t>(boot, 0x16, 1);
  boot[0x26] = 0x29;
  StoreLittle<std::uint32_t>(boot, 0x27, 0x12345678);
  constexpr std::string_view kNames = "NO NAME    FAT12   ";
  std::copy(kNames.begin(), kNames.end(), boot.begin() + 0x2B);
  StoreLittle<std::uint16_t>(boot, 510, 0xAA55);
  const auto fat = std::span(volume).subspan(kSector, kSector);
  SetEntry(fat, 0, 0xFF8);
  SetEntry(fat, 1, 0xFFF);
  std::size_t last = 0;  // cluster of the file in hand
  for (std::size_t i = 0; i < layout.size(); ++i) {
    const SmallPiece& piece = layout[i];
    const bool starts = i == 0 || layout[i - 1].file != piece.file;
    const auto entry = std::span(volume).subspan(3 * kSector + piece.file * std::size_t{32}, 32);
    if (starts) {
      constexpr std::string_view kName = "FILE    TXT ";
      std::copy(kName.begin(), kName.end(), entry.begin());
      entry[4] = static_cast<std::uint8_t>('0' + piece.file);
      StoreLittle<std::uint16_t>(entry, 26, static_cast<std::uint16_t>(piece.first + 2));
      last = 0;
    }
    for (std::size_t lcn = piece.first; lcn < piece.first + std::size_t{piece.clusters}; ++lcn) {
      if (last != 0) SetEntry(fat, last, static_cast<std::uint32_t>(lcn + 2));
      last = lcn + 2;
      SetEntry(fat, last, 0xFFF);
      const auto size = LoadLittle<std::uint32_t>(entry, 28);
      StoreLittle<std::uint32_t>(entry, 28, size + static_cast<std::uint32_t>(kSector));
      const auto content = std::span(volume).subspan(kData + lcn * kSector, kSector);
      std::fill(content.begin(), content.end(),
                static_cast<std::uint8_t>(size / kSector + 16 * (piece.file + 1U)));
    }
  }
  std::copy(fat.begin(), fat.end(), fat.begin() + kSector);
  return volume;
}

}  // namespace vornalux::test
