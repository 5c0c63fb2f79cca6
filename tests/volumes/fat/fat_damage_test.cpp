// SPDX-License-Identifier: GPL-2.0-or-later
#include <gtest/gtest.h>

#include <functional>
#include <map>

#include "host/image/device/little_endian.h"
#include "host/image/volume/refused.h"
#include "support/seed.h"
#include "volumes/contract/contract.h"
#include "volumes/fat/fat_image.h"

namespace vornalux::test {
namespace {

const Bytes& Sound(int bits) {
  static std::map<int, Bytes> made;
  if (made[bits].empty()) made[bits] = SmallFat(bits);
  return made[bits];
}

struct Damage {
  std::function<void(FatWorld&)> inflict;
  std::vector<std::string> told;
  std::vector<int> kinds = {12, 16, 32};
};

// Nothing is written while a volume is refused, and the refusal says what and where.
void ExpectRefused(const std::vector<Damage>& damages) {
  for (std::size_t i = 0; i < damages.size(); ++i) {
    for (const int bits : damages[i].kinds) {
      FatWorld world(Sound(bits));
      damages[i].inflict(world);
      const Bytes before = world.Image();
      const std::string refusal = world.Refusal();
      for (const std::string& part : damages[i].told) {
        EXPECT_NE(refusal.find(part), std::string::npos)
            << "damage " << i << " of FAT" << bits << " gives '" << refusal << "', not " << part;
      }
      EXPECT_TRUE(world.Image() == before);
    }
  }
}

TEST(FatDamage, BootSectorIsRefused) {
  struct Row {
    int bits;
    std::uint32_t at;
    std::uint8_t value;
    const char* told;
  };
  const Row rows[] = {
      {16, 510, 0, "55 AA"},
      {16, 0x15, 0x10, "media byte"},
      {16, 0x0B, 1, "513 bytes per sector"},
      {16, 0x0C, 0x20, "8192 bytes per sector"},
      {16, 0x0C, 0, "0 bytes per sector"},
      {16, 0x0D, 0, "0 sectors per cluster"},
      {16, 0x0D, 3, "3 sectors per cluster"},
      {12, 0x0E, 0, "no sector is reserved"},
      {16, 0x10, 0, "no file allocation table"},
      {16, 0x11, 1, "does not end with a sector"},
      {16, 0x12, 0, "root directory has 0 entries"},
      {16, 0x16, 1, "too small for its"},
      {16, 0x17, 0x7F, "data area would start at sector"},
      {16, 0x10, 255, "tables 1 and 3 differ"},
      {16, 0x14, 0xFF, "the image is cut off"},
      {16, 0x23, 1, "differ"},
      {12, 0x0F, 0x10, "data area would start at sector"},
      {32, 0x25, 0, "too small for its"},
      {32, 0x27, 0xFF, "data area would start at sector"},
      {32, 0x11, 16, "no fixed root directory"},
      {32, 0x28, 0x85, "number 5 of 2"},
      {32, 0x2A, 1, "version 1"},
      {32, 0x2C, 1, "starts at cluster 1, outside"},
      {32, 0x2F, 0x10, "outside the volume"},
  };
  for (const Row& row : rows) {
    ExpectRefused({{[&](FatWorld& w) { w.Image()[row.at] = row.value; }, {row.told}, {row.bits}}});
  }
  ExpectRefused({{[](FatWorld& w) { StoreLittle(w.Image(), 0x24, std::uint32_t{0}); },
                  {"0 sectors per file allocation table"},
                  {32}},
                 {[](FatWorld& w) { w.Image().resize(300); }, {"only 300 bytes"}},
                 {[](FatWorld& w) { w.Image().resize(w.Image().size() / 2); }, {"cut off"}}});
}

TEST(FatDamage, ChainsAreRefusedByPath) {
  struct Row {
    const char* name;
    const char* path;
    int step;  // -1: its entry, else this cluster of its chain
    std::function<std::uint32_t(FatWorld&)> value;
    const char* told;
  };
  const auto fixed = [](std::uint32_t value) { return [=](FatWorld&) { return value; }; };
  const auto start = [](const char* name) { return [=](FatWorld& w) { return w.Start(name); }; };
  const auto past_end = [](FatWorld& w) { return w.geometry.EndCluster(); };
  const char *const a = "A       TXT", *const dir = "DIR        ", *const sub = "SUB        ";
  const Row rows[] = {
      {a, "\\A.TXT", 1, fixed(0), "which is free"},
      {a, "\\A.TXT", 1, fixed(1), "outside the volume"},
      {a, "\\A.TXT", 1, past_end, "outside the volume"},
      {a, "\\A.TXT", 1, [](FatWorld& w) { return w.table.Bad(); }, "marked bad"},
      {a, "\\A.TXT", 2, start(a), "is endless"},
      {a, "\\A.TXT", 0, start(a), "is endless"},
      {a, "\\A.TXT", 0, [](FatWorld& w) { return w.table.Bad() + 1; }, "into its 1 clusters"},
      {a, "\\A.TXT", -1, fixed(0), "do not fit into its 0 clusters"},
      {a, "\\A.TXT", -1, fixed(1), "starts at cluster 1, outside"},
      {a, "\\A.TXT", -1, past_end, "outside the volume"},
      {"B       TXT", "\\B.TXT", -1, start(a), "also belongs to \\A.TXT"},
      {"B       TXT", "\\B.TXT", 0, start(a), "also belongs to \\A.TXT"},
      {"C       TXT", "\\DIR\\C.TXT", -1, start(dir), "back to the folder \\DIR above"},
      {sub, "\\DIR\\SUB", -1, start(dir), "back to the folder \\DIR above"},
      {sub, "\\DIR\\SUB", -1, fixed(0), "has no clusters"},
  };
  for (const Row& row : rows) {
    const auto inflict = [&](FatWorld& w) {
      const std::uint32_t value = row.value(w);
      if (row.step < 0) return w.SetStart(w.Find(row.name), value);
      w.SetEntry(w.Start(row.name) + static_cast<std::uint32_t>(row.step), value);
    };
    ExpectRefused({{inflict, {std::string(row.path) + ": ", row.told, "fsck.fat -a"}}});
  }
}

TEST(FatDamage, FoldersAndTablesAreRefused) {
  const auto sub = [](FatWorld& w) { return w.geometry.ClusterOffset(w.Start("SUB        ")); };
  const auto blank = [](FatWorld& w, char first) {
    const std::size_t at = w.Find("B       TXT");
    std::fill_n(&w.Image()[at], 11, std::uint8_t{' '});
    w.Image()[at] = static_cast<std::uint8_t>(first);
  };
  ExpectRefused({
      {[&](FatWorld& w) { w.SetStart(sub(w), 9); }, {"\\DIR\\SUB: its entry \".\" leads to"}},
      {[&](FatWorld& w) { w.SetStart(sub(w) + 32, 0); }, {"\\DIR\\SUB: its entry \"..\" leads to"}},
      {[&](FatWorld& w) { w.Image()[sub(w)] = 'X'; }, {"\\DIR\\SUB: its entry \".\" is missing"}},
      {[&](FatWorld& w) { w.Image()[sub(w)] = 0; }, {"\\DIR\\SUB: its entry \".\" is missing"}},
      {[&](FatWorld& w) { blank(w, ' '); }, {"\\: its entry ", "has no name"}},
      {[&](FatWorld& w) { blank(w, '.'); }, {"\\: it has a \".\""}},
      {[](FatWorld& w) { w.SetEntry(w.geometry.root_cluster, 0); }, {"at \\: ", "is free"}, {32}},
      {[](FatWorld& w) { w.Image()[w.geometry.CopyOffset(1) + w.geometry.EntryBytes(300)] ^= 1; },
       {"tables 1 and 2 differ at cluster 300"}},
  });
}

TEST(FatDamage, DirtyVolumesAreRefused) {
  const auto boot = [](FatWorld& w) { w.Image()[w.geometry.state_offset] |= 1; };
  const auto entry = [](std::uint32_t value) { return [=](FatWorld& w) { w.SetEntry(1, value); }; };
  ExpectRefused({{boot, {"marked dirty", "fsck.fat -a IMAGE, or chkdsk", "shutdown /s /f /t 0"}},
                 {entry(0x7FFF), {"marked dirty"}, {16}},
                 {entry(0xBFFF), {"marked dirty"}, {16}},
                 {entry(0x07FFFFFF), {"marked dirty"}, {32}},
                 {entry(0x0BFFFFFF), {"marked dirty"}, {32}}});
}

TEST(FatDamage, HarmlessOddityIsKept) {
  for (const int bits : {12, 16, 32}) {
    FatWorld world(Sound(bits));
    // Files with more clusters than they need, and a folder with something behind its end.
    world.Image()[world.Find("A       TXT") + 29] = 0;
    world.Image()[world.Find("B       TXT") + 29] = 0;
    world.Image()[world.Find("B       TXT") + 28] = 0;
    const std::size_t end = world.geometry.ClusterOffset(world.Start("DIR        ") + 1);
    world.Image()[end - 32] = 'X';
    const auto volume = world.Open();
    std::map<std::string, contract::KnownStream> items;
    for (const auto& stream : contract::Walk(*volume)) items[stream.path] = stream;
    const std::int64_t lcn = volume->Facts().total_clusters - 10;
    EXPECT_EQ(volume->Move(items["DIR"].ref, 0, lcn, 1), error::kAccessDenied);
    EXPECT_EQ(volume->Move(items["DIR\\SUB"].ref, 0, lcn, 1), error::kSuccess);
    EXPECT_EQ(contract::VcnCount(items["A.TXT"].extents), 1536 / world.geometry.cluster_size);
    EXPECT_EQ(contract::VcnCount(items["B.TXT"].extents), 512 / world.geometry.cluster_size + 1);
    EXPECT_EQ(volume->Move(items["B.TXT"].ref, 0, lcn + 2, 1), error::kSuccess);
    EXPECT_EQ(volume->Close(), error::kSuccess);
    EXPECT_EQ(world.Image()[end - 32], 'X');
  }
}

// Any bytes may have changed in any way: the volume is refused, or every file of it survives.
TEST(FatDamage, RandomDamageIsRefusedOrHarmless) {
  TestRandom random;
  int opened = 0;
  for (int i = 0; i < 2000; ++i) {
    FatWorld world(Sound(std::array{12, 16, 32}[Below(random, 3)]));
    const std::uint64_t places[] = {0, world.geometry.fat_offset,
                                    world.geometry.CopyOffset(1) + world.geometry.fat_size,
                                    world.geometry.data_offset};
    for (std::uint64_t damage = Below(random, 6) + 1; damage != 0; --damage) {
      const std::uint64_t at =
          places[Below(random, 4)] + Below(random, Below(random, 2) ? 64 : 1024);
      world.Image()[at] ^= static_cast<std::uint8_t>(Below(random, 2) != 0 ? 1u << Below(random, 8)
                                                                           : Below(random, 256));
    }
    try {
      auto volume = world.Open();
      const auto streams = contract::Walk(*volume);
      const auto contents = contract::Contents(*volume, streams);
      const auto clusters = static_cast<std::uint64_t>(volume->Facts().total_clusters);
      for (int move = 0; move < 50; ++move) {
        const auto vcn = static_cast<std::int64_t>(Below(random, 3));
        const auto lcn = static_cast<std::int64_t>(Below(random, clusters));
        volume->Move(streams[Below(random, streams.size())].ref, vcn, lcn, 2);
      }
      EXPECT_EQ(volume->Close(), error::kSuccess);
      volume = world.Open();
      EXPECT_EQ(contract::Contents(*volume, contract::Walk(*volume)), contents) << "damage " << i;
      ++opened;
    } catch (const VolumeRefused&) {
    }
  }
  EXPECT_GT(opened, 100);
}

}  // namespace
}  // namespace vornalux::test
