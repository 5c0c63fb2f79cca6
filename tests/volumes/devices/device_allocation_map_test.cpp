// SPDX-License-Identifier: GPL-2.0-or-later
#include <gtest/gtest.h>

#include "host/image/volume/allocation_map.h"
#include "support/devices.h"
#include "support/seed.h"

namespace vornalux::test {
namespace {

// The plain definition, a bit at a time.
struct PlainMap {
  explicit PlainMap(std::size_t clusters) : used(clusters), held(clusters), fresh(clusters) {}

  void Set(std::size_t lcn, bool value, bool holds) {
    if (lcn >= used.size()) return;
    if (used[lcn] && !value && holds) held[lcn] = fresh[lcn] = true;
    used[lcn] = value;
  }
  void SetBytes(std::size_t lcn, std::span<const std::uint8_t> bytes, bool holds) {
    for (std::size_t bit = 0; bit < bytes.size() * 8; ++bit) {
      Set(lcn + bit, (bytes[bit / 8] >> bit % 8 & 1) != 0, holds);
    }
  }

  std::vector<bool> used;
  std::vector<bool> held;
  std::vector<bool> fresh;
};

void Compare(const AllocationMap& map, const PlainMap& plain, std::size_t lcn, std::size_t count) {
  bool free = true;
  bool used = true;
  bool held = false;
  for (std::size_t i = lcn; i < lcn + count; ++i) {
    free = free && !plain.used[i];
    used = used && plain.used[i];
    held = held || plain.held[i];
  }
  const auto first = static_cast<std::int64_t>(lcn);
  const auto length = static_cast<std::int64_t>(count);
  ASSERT_EQ(map.RangeFree(first, length), free);
  ASSERT_EQ(map.RangeUsed(first, length), used);
  ASSERT_EQ(map.RangeHeld(first, length), held);
  std::vector<bool> parts(plain.held.size());
  for (const auto& [part, part_length] : map.HeldParts(first, length)) {
    for (std::int64_t i = part; i < part + part_length; ++i)
      parts[static_cast<std::size_t>(i)] = true;
  }
  for (std::size_t i = lcn; i < lcn + count; ++i) ASSERT_EQ(parts[i], plain.held[i]);
  ASSERT_EQ(std::count(parts.begin(), parts.end(), true),
            std::count(plain.held.begin() + first, plain.held.begin() + first + length, true));
  ASSERT_EQ(map.FreeClusters(), std::count(plain.used.begin(), plain.used.end(), false));
}

TEST(AllocationMap, AgreesWithAPlainMapBitForBit) {
  const std::uint64_t seed = TestSeed();
  Random random(seed);
  for (const std::size_t clusters : {1U, 7U, 63U, 64U, 65U, 200U, 1000U}) {
    AllocationMap map(static_cast<std::int64_t>(clusters));
    PlainMap plain(clusters);
    for (int round = 0; round < 3000; ++round) {
      SCOPED_TRACE(SeedNote(seed) + ", round " + std::to_string(round));
      const std::size_t lcn = Below(random, clusters);
      const std::size_t count = 1 + Below(random, std::min<std::size_t>(clusters - lcn, 150));
      const auto first = static_cast<std::int64_t>(lcn);
      const auto length = static_cast<std::int64_t>(count);
      Bytes bytes(1 + Below(random, 20));
      for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
      switch (Below(random, 6)) {
        case 0:
          map.Use(first, length);
          for (std::size_t i = 0; i < count; ++i) plain.Set(lcn + i, true, true);
          break;
        case 1:
          map.Free(first, length);
          for (std::size_t i = 0; i < count; ++i) plain.Set(lcn + i, false, true);
          break;
        case 2:
          map.SetByte(first / 8 * 8, bytes[0]);
          plain.SetBytes(lcn / 8 * 8, std::span(bytes).first(1), true);
          break;
        case 3:
          map.Load(first / 8 * 8, bytes);
          plain.SetBytes(lcn / 8 * 8, bytes, false);
          break;
        case 4:
          if (Below(random, 8) != 0) break;
          if (Below(random, 2) == 0) {
            map.ReleaseHeld();
            plain.fresh.assign(clusters, false);
          } else {
            map.AgeHeld();
          }
          plain.held = std::exchange(plain.fresh, std::vector<bool>(clusters));
          break;
        default: {
          PlainMap copied(clusters);
          map.Copy(first / 8 * 8, bytes);
          copied.SetBytes(lcn / 8 * 8, bytes, false);
          for (std::size_t i = lcn / 8 * 8; i < clusters && i < lcn / 8 * 8 + bytes.size() * 8;
               ++i) {
            ASSERT_EQ(copied.used[i], plain.used[i]);
          }
        }
      }
      ASSERT_NO_FATAL_FAILURE(Compare(map, plain, lcn, count));
    }
  }
}

TEST(AllocationMap, WhatLeavesTheVolumeIsNeitherFreeNorUsedNorChanged) {
  constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
  AllocationMap map(100);
  const std::pair<std::int64_t, std::int64_t> ranges[] = {
      {-1, 1}, {-1, 2}, {100, 1}, {99, 2}, {0, 101}, {kMax, 1}, {1, kMax}, {kMax, kMax}, {5, -1}};
  for (const auto& [lcn, count] : ranges) {
    SCOPED_TRACE(std::to_string(lcn) + " + " + std::to_string(count));
    map.Use(lcn, count);
    EXPECT_EQ(map.FreeClusters(), 100);
    EXPECT_FALSE(map.RangeFree(lcn, count) || map.RangeUsed(lcn, count) ||
                 map.RangeHeld(lcn, count));
  }
  Bytes past(2, 0xFF);
  map.Copy(96, past);
  EXPECT_EQ(past, (Bytes{0, 0}));
  map.SetByte(96, 0xFF);
  EXPECT_EQ(map.FreeClusters(), 96);
}

}  // namespace
}  // namespace vornalux::test
