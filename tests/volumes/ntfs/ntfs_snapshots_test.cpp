// SPDX-License-Identifier: GPL-2.0-or-later
// What is read of Windows' snapshots.
#include <gtest/gtest.h>

#include <functional>

#include "host/image/ntfs/snapshot_catalog.h"
#include "host/simulated/seeded_random.h"
#include "support/devices.h"
#include "support/seed.h"
#include "volumes/ntfs/snapshot_image.h"

namespace vornalux::test {
namespace {

constexpr std::size_t kA = 0x10000, kB = 0x20000;  // where catalog blocks lie
constexpr std::size_t kVolume = 0x200000;

std::string Told(Bytes volume) {
  MemoryDevice device(std::move(volume));
  const SnapshotCatalog catalog = ReadSnapshotCatalog(device);
  return catalog.Any() ? SnapshotText(catalog) : "";
}

TEST(SnapshotCatalog, IsReadOrSaysWhatIsWrong) {
  using Make = std::function<void(Bytes&)>;
  const auto chain = [](std::vector<CatalogEntry> a, std::vector<CatalogEntry> b) {
    return [=](Bytes& v) {
      PutSnapshotHeader(v, kA);
      PutCatalogBlock(v, kA, kB, a);
      PutCatalogBlock(v, kB, 0, b);
    };
  };
  const auto sound = chain({{2, 1, SnapshotTime(0)}}, {{3, 1, 0}});
  const auto broken = [&](std::size_t at, std::size_t width, std::uint64_t value) {
    return [=](Bytes& v) {
      sound(v);
      Put(v, at, width, value);
    };
  };
  const auto leads_to = [](std::uint64_t catalog) {
    return [=](Bytes& v) { PutSnapshotHeader(v, catalog); };
  };
  std::vector<CatalogEntry> many;
  for (std::uint8_t i = 0; i < 127; ++i) many.push_back({2, i, SnapshotTime(i)});
  const std::pair<Make, const char*> cases[] = {
      {[](Bytes&) {}, nullptr},
      {leads_to(0), nullptr},
      {chain({}, {}), nullptr},
      {chain({{1, 1, 0}, {0, 2, 0}}, {{1, 3, 0}}), nullptr},
      {broken(kSnapshotHeader, 1, 0), nullptr},
      {sound, "1 restore point (volume shadow copy), of 2019-03-01 12:00:00 UTC"},
      {chain({{3, 2, 0}, {2, 1, SnapshotTime(2)}, {3, 1, 0}}, {{2, 2, SnapshotTime(1)}, {3, 2, 0}}),
       "2 restore points (volume shadow copies), of 2019-03-02 12:00:00 UTC and 2019-03-03 "
       "12:00:00 UTC"},
      {chain({{2, 1, ~0ULL}}, {{3, 2, 0}}),
       "2 restore points (volume shadow copies), of an unknown date and an unknown date"},
      {chain(many, many), "127 restore points"},
      {chain(many, {}), "12:00:00 UTC and 119 later times"},
      {broken(kSnapshotHeader + 16, 4, 3), "their header is of the unknown version 3"},
      {broken(kSnapshotHeader + 20, 4, 2), "their header is of the wrong type 2"},
      {leads_to(kA), "cannot be read: catalog block at byte 65536 has not their identifier"},
      {leads_to(kVolume - 512), "cannot be read: catalog block at byte 2096640 leaves the volume"},
      {leads_to(~0ULL), "leaves the volume"},
      {broken(kA + 40, 8, kA), "catalog block at byte 65536 comes twice"},
      {broken(kB + 40, 8, kA),
       "1 restore point (volume shadow copy), of 2019-03-01 12:00:00 UTC; their catalog cannot be "
       "read to its end: catalog block at byte 65536 comes twice"},
      {broken(kA + 40, 8, ~0ULL - 5), "leaves the volume"},
      {broken(kA + 20, 4, 1), "of the wrong type 1"},
      {broken(kB + 16, 4, 0), "of the unknown version 0"},
      {broken(kB + 256, 8, 4), "has an entry of unknown type"},
      {[](Bytes& v) {
         PutSnapshotHeader(v, kA);
         for (std::size_t at = kA; at < kVolume; at += kCatalogBlock) {
           PutCatalogBlock(v, at, at + kCatalogBlock, {});
         }
       },
       "too many blocks"},
  };
  for (const auto& [make, says] : cases) {
    Bytes volume(kVolume);
    make(volume);
    const std::string told = Told(std::move(volume));
    EXPECT_EQ(told.empty(), says == nullptr) << told;
    if (says != nullptr) {
      EXPECT_NE(told.find(says), std::string::npos) << told << "\n" << says;
    }
  }
  EXPECT_EQ(Told(Bytes(1024)), "") << "too small for a header";
}

TEST(SnapshotCatalog, ReadingEndsWhateverIsThere) {
  TestRandom random;
  for (int round = 0; round < 2000; ++round) {
    Bytes volume(kB + kCatalogBlock);
    PutSnapshotHeader(volume, kA);
    PutCatalogBlock(volume, kA, kB, {{2, 1, random()}, {3, 1, 0}});
    PutCatalogBlock(volume, kB, kA * (random() % 3), {{2, 2, random()}});
    for (auto left = 1 + random() % 4; left > 0; --left) {
      const std::size_t start[] = {kSnapshotHeader, kA, kB};
      volume[start[random() % 3] + random() % 300] = static_cast<std::uint8_t>(random());
    }
    MemoryDevice device(std::move(volume));
    FailingDevice failing(device, FailingDevice::kReads);
    failing.FailAt(static_cast<std::int64_t>(random() % 6), false);
    const SnapshotCatalog catalog = ReadSnapshotCatalog(failing);
    EXPECT_LE(catalog.times.size(), 2 * 127U);
    EXPECT_TRUE(!catalog.Any() || SnapshotText(catalog).find("restore point") < 6);
  }
}

}  // namespace
}  // namespace vornalux::test
