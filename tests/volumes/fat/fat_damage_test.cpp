// SPDX-License-Identifier: GPL-2.0-or-later
#include <gtest/gtest.h>

#include <functional>
#include <map>

#include "check/fat_check.h"
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

using Words = std::vector<std::string>;
using Inflict = std::function<void(FatWorld&)>;

void ExpectWords(const std::string& text, const Words& words) {
  EXPECT_EQ(text.empty(), words.empty()) << text;
  for (const std::string& part : words) {
    EXPECT_NE(text.find(part), std::string::npos) << "not '" << part << "' but " << text;
  }
}

// The refusal says what and where, without a byte written, and the checker, which shares no code
// with it, tells the damage in its own words. Without words the volume is opened, or clean.
void ExpectTold(int bits, const std::string& what, const Inflict& inflict, const Words& refused,
                const Words& checked) {
  SCOPED_TRACE("FAT" + std::to_string(bits) + ", " + what);
  FatWorld world(Sound(bits));
  inflict(world);
  const Bytes before = world.Image();
  ASSERT_NE(before, Sound(bits));
  ExpectWords(CheckFat(MemorySource(before), {.hash = true}).ProblemText(), checked);
  ExpectWords(world.Refusal(), refused);
  EXPECT_TRUE(world.Image() == before);
}

TEST(FatDamage, BootSector) {
  struct Row {
    int bits;
    std::uint32_t at;
    std::uint8_t value;
    const char* refused;
    const char* checked;
  };
  const Row rows[] = {
      {16, 510, 0, "55 AA", "no 55 AA"},
      {16, 0x15, 0x10, "media byte", "impossible media byte 16"},
      {16, 0x0B, 1, "513 bytes per sector", "impossible sector size: 513"},
      {16, 0x0C, 0x20, "8192 bytes per sector", "impossible sector size: 8192"},
      {16, 0x0C, 0, "0 bytes per sector", "impossible sector size: 0"},
      {16, 0x0D, 0, "0 sectors per cluster", "impossible cluster size: 0"},
      {16, 0x0D, 3, "3 sectors per cluster", "impossible cluster size"},
      {12, 0x0E, 0, "no sector is reserved", "impossible number of reserved sectors"},
      {16, 0x10, 0, "no file allocation table", "impossible number of tables"},
      {16, 0x11, 1, "does not end with a sector", "lost: cluster"},
      {16, 0x12, 0, "root directory has 0 entries", "no root entries"},
      {16, 0x16, 1, "too small for its", "impossible"},
      {16, 0x17, 0x7F, "data area would start at sector", "impossible number of sectors"},
      {16, 0x10, 255, "tables 1 and 3 differ", "impossible number of tables: 255"},
      {16, 0x14, 0xFF, "the image is cut off", "impossible number of sectors"},
      {16, 0x23, 1, "differ", nullptr},
      {12, 0x0F, 0x10, "data area would start at sector", "impossible number of sectors"},
      {32, 0x23, 0x7F, "the image is cut off", "impossible number of sectors"},
      {32, 0x25, 0, "too small for its", "impossible"},
      {32, 0x27, 0xFF, "data area would start at sector", "impossible number of sectors"},
      {32, 0x11, 16, "no fixed root directory", "FAT32 with a fixed root"},
      {32, 0x28, 0x85, "number 5 of 2", "table 5 is said to be the active one"},
      {32, 0x2A, 1, "version 1", "backup boot sector differs"},
      {32, 0x2C, 0, "starts at cluster 0, outside", "/: its chain leads to cluster 0"},
      {32, 0x2C, 1, "starts at cluster 1, outside", "leads to cluster 1"},
      {32, 0x2F, 0x10, "outside the volume", "leads to cluster 268435458"},
      {32, 512 + 488, 1, nullptr, "free clusters"},
      {32, 512, 0, nullptr, "without its marks"},
      {32, 512 + 492, 1, nullptr, "next free cluster"},
      {32, 6 * 512 + 3, 1, nullptr, "backup boot sector differs"},
  };
  const auto words = [](const char* part) { return part == nullptr ? Words() : Words{part}; };
  for (const Row& row : rows) {
    ExpectTold(
        row.bits, "byte " + std::to_string(row.at),
        [&](FatWorld& w) { w.Image()[row.at] = row.value; }, words(row.refused),
        words(row.checked));
  }
  ExpectTold(32, "no table", [](FatWorld& w) { StoreLittle(w.Image(), 0x24, std::uint32_t{0}); },
             {"0 sectors per file allocation table"}, {"impossible"});
  ExpectTold(16, "cut in half", [](FatWorld& w) { w.Image().resize(w.Image().size() / 2); },
             {"cut off"}, {"impossible number of sectors"});
  ExpectTold(16, "cut short", [](FatWorld& w) { w.Image().resize(300); }, {"only 300 bytes"},
             {"cannot be read"});
}

const char *const kA = "A       TXT", *const kB = "B       TXT", *const kDir = "DIR        ",
                  *const kSub = "SUB        ", *const kLongName = "LONGEN~1TXT";

std::uint32_t ChainEnd(const FatWorld& w) { return w.table.Bad() + 8; }
std::uint32_t FreeCluster(const FatWorld& w) {
  std::uint32_t cluster = 2;
  while (w.Entry(cluster) != 0) ++cluster;
  return cluster;
}

TEST(FatDamage, Chains) {
  struct Row {
    const char* name;
    const char* path;
    int step;  // -1: its entry, else this cluster of its chain
    std::function<std::uint32_t(FatWorld&)> value;
    const char* refused;
    Words checked;
  };
  const auto fixed = [](std::uint32_t value) { return [=](FatWorld&) { return value; }; };
  const auto start = [](const char* name) { return [=](FatWorld& w) { return w.Start(name); }; };
  const auto past_end = [](FatWorld& w) { return w.geometry.EndCluster(); };
  const auto bad = [](FatWorld& w) { return w.table.Bad(); };
  const Row rows[] = {
      {kA, "\\A.TXT", 1, fixed(0), "which is free", {"marked free"}},
      {kA, "\\A.TXT", 1, fixed(1), "outside the volume", {"leads to cluster 1"}},
      {kA, "\\A.TXT", 1, past_end, "outside the volume", {"leads to cluster"}},
      {kA, "\\A.TXT", 1, bad, "marked bad", {"marked bad"}},
      {kA, "\\A.TXT", 2, start(kA), "is endless", {"is in its chain twice"}},
      {kA, "\\A.TXT", 0, start(kA), "is endless", {"is in its chain twice"}},
      {kA, "\\A.TXT", 0, ChainEnd, "into its 1 clusters", {"but its chain has", "lost: cluster"}},
      {kA, "\\A.TXT", -1, fixed(0), "do not fit into its 0 clusters", {"but its chain has"}},
      {kA, "\\A.TXT", -1, fixed(1), "starts at cluster 1, outside", {"leads to cluster 1"}},
      {kA, "\\A.TXT", -1, past_end, "outside the volume", {"leads to cluster"}},
      {kB, "\\B.TXT", -1, start(kA), "also belongs to \\A.TXT", {"belongs to"}},
      {kB, "\\B.TXT", 0, start(kA), "also belongs to \\A.TXT", {"belongs to"}},
      {"C       TXT",
       "\\DIR\\C.TXT",
       -1,
       start(kDir),
       "back to the folder \\DIR above",
       {"belongs to"}},
      {kSub, "\\DIR\\SUB", -1, start(kDir), "back to the folder \\DIR above", {"belongs to"}},
      {kSub, "\\DIR\\SUB", -1, fixed(0), "has no clusters", {"leads to cluster 0"}},
  };
  for (const Row& row : rows) {
    const auto inflict = [&](FatWorld& w) {
      const std::uint32_t value = row.value(w);
      if (row.step < 0) return w.SetStart(w.Find(row.name), value);
      w.SetEntry(w.Start(row.name) + static_cast<std::uint32_t>(row.step), value);
    };
    for (const int bits : {12, 16, 32}) {
      ExpectTold(bits, std::string(row.path) + " " + row.refused, inflict,
                 {std::string(row.path) + ": ", row.refused, "fsck.fat -a"}, row.checked);
    }
  }
}

// A byte of an entry of the folder that lies in another one, of a file, of a long name from its
// first part on.
Inflict InFolder(std::size_t at, std::uint8_t value) {
  return [=](FatWorld& w) { w.Image()[w.geometry.ClusterOffset(w.Start(kSub)) + at] = value; };
}
Inflict InFile(const char* name, std::size_t at, std::uint8_t value) {
  return [=](FatWorld& w) { w.Image()[w.Find(name) + at] = value; };
}
Inflict InLongName(std::size_t at, std::uint8_t value) {
  return [=](FatWorld& w) { w.Image()[w.Find(kLongName) - 64 + at] = value; };
}
Inflict Named(const std::string& name) {
  return [=](FatWorld& w) { std::copy_n(name.begin(), 11, &w.Image()[w.Find(kB)]); };
}

TEST(FatDamage, FoldersAndTables) {
  struct Row {
    const char* what;
    Inflict inflict;
    Words refused;
    Words checked;
    std::vector<int> kinds = {12, 16, 32};
  };
  const auto entry = [](std::uint32_t cluster, std::uint32_t value) {
    return [=](FatWorld& w) { w.SetEntry(cluster, value); };
  };
  const Row rows[] = {
      {"\".\" wrong",
       InFolder(26, 9),
       {"\\DIR\\SUB: its entry \".\" leads to"},
       {"\".\" names cluster"}},
      {"\"..\" wrong",
       InFolder(32 + 26, 0),
       {"\\DIR\\SUB: its entry \"..\" leads to"},
       {"\"..\" names cluster"}},
      {"no \".\"",
       InFolder(0, 'X'),
       {"\\DIR\\SUB: its entry \".\" is missing"},
       {"does not begin with"}},
      {"empty",
       InFolder(0, 0),
       {"\\DIR\\SUB: its entry \".\" is missing"},
       {"does not begin with"}},
      {"no \"..\"", InFolder(32, 0xE5), {"its entry \"..\" is missing"}, {"does not begin with"}},
      {"no name", Named("           "), {"\\: its entry ", "has no name"}, {"bad short name"}},
      {"a name of dots", Named(".          "), {"\\: it has a \".\""}, {"out of place"}},
      {"bad short name", InFile(kB, 2, '*'), {}, {"bad short name"}},
      {"size too large",
       InFile(kB, 31, 1),
       {"do not fit into its 2 clusters"},
       {"but its chain has"}},
      {"a folder with a size", InFile(kDir, 29, 2), {}, {"a folder of size"}},
      {"a label in a folder", InFile("C       TXT", 11, 8), {}, {"has a volume label"}},
      {"long name's checksum",
       [](FatWorld& w) {
         InLongName(13, 1)(w);
         InLongName(32 + 13, 1)(w);
       },
       {},
       {"long name"}},
      {"long name's order", InLongName(32, 0x13), {}, {"a part of a long name out of place"}},
      {"long name alone", InLongName(64, 0xE5), {}, {"deleted, but has a long name"}},
      {"root's chain",
       [](FatWorld& w) { w.SetEntry(w.geometry.root_cluster, 0); },
       {"at \\: ", "is free"},
       {"marked free"},
       {32}},
      {"copies differ",
       [](FatWorld& w) { w.Image()[w.geometry.CopyOffset(1) + w.geometry.EntryBytes(300)] ^= 1; },
       {"tables 1 and 2 differ at cluster 300"},
       {"differs from the first"}},
      {"first entry", [](FatWorld& w) { w.SetEntry(0, w.table.Bad() - 7); }, {}, {"media byte"}},
      {"a chain too long",
       [](FatWorld& w) {
         const std::uint32_t free = FreeCluster(w);
         w.SetEntry(w.Start(kA) + 2, free);
         w.SetEntry(free, ChainEnd(w));
       },
       {},
       {"but its chain has"}},
      {"a lost cluster",
       [](FatWorld& w) { w.SetEntry(FreeCluster(w), ChainEnd(w)); },
       {},
       {"lost: cluster"}},
      {"dirty by its boot sector",
       [](FatWorld& w) { w.Image()[w.geometry.state_offset] |= 1; },
       {"marked dirty", "fsck.fat -a IMAGE, or chkdsk", "shutdown /s /f /t 0"},
       {}},
      {"dirty by its table", entry(1, 0x7FFF), {"marked dirty"}, {}, {16}},
      {"errors by its table", entry(1, 0xBFFF), {"marked dirty"}, {}, {16}},
      {"dirty by its table", entry(1, 0x07FFFFFF), {"marked dirty"}, {}, {32}},
      {"errors by its table", entry(1, 0x0BFFFFFF), {"marked dirty"}, {}, {32}},
  };
  for (const Row& row : rows) {
    for (const int bits : row.kinds) {
      ExpectTold(bits, row.what, row.inflict, row.refused, row.checked);
    }
  }
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
