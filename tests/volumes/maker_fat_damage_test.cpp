// SPDX-License-Identifier: GPL-2.0-or-later
// The FAT checker must report every kind of damage, and nothing but damage.
#include <gtest/gtest.h>

#include "check/fat_check.h"
#include "maker_editor.h"
#include "mkvolume/maker.h"
#include "support/image_folder.h"

namespace vornalux {
namespace {

using test::ByteSpan;
using test::FatEditor;
using test::Get;
using test::Put;

using FatDamage = test::Damage<FatEditor>;

const FatDamage kDamages[] = {
    {"two files share their ends",
     [](FatEditor& e) { e.SetNext(e.First(e.LongFile(0)), e.First(e.LongFile(1))); }, "belongs to"},
    {"a chain in a circle",
     [](FatEditor& e) { e.SetNext(e.Last(e.LongFile(0)), e.First(e.LongFile(0))); },
     "is in its chain twice"},
    {"a free cluster in a chain", [](FatEditor& e) { e.SetNext(e.First(e.LongFile(0)), 0); },
     "marked free"},
    {"a bad cluster in a chain",
     [](FatEditor& e) { e.SetNext(e.First(e.LongFile(0)), 0x0FFFFFF7); }, "marked bad"},
    {"a chain out of the volume",
     [](FatEditor& e) {
       e.SetNext(e.First(e.LongFile(0)), static_cast<std::uint32_t>(e.report.clusters + 2));
     },
     "leads to cluster"},
    {"a chain to cluster 1", [](FatEditor& e) { e.SetNext(e.First(e.LongFile(0)), 1); },
     "leads to cluster 1"},
    {"a chain too short", [](FatEditor& e) { e.SetNext(e.First(e.LongFile(0)), 0x0FFFFFFF); },
     "but its chain has"},
    {"its rest is lost", [](FatEditor& e) { e.SetNext(e.First(e.LongFile(0)), 0x0FFFFFFF); },
     "lost: cluster"},
    {"a chain too long",
     [](FatEditor& e) {
       const std::uint32_t free = e.FreeCluster();
       e.SetNext(e.Last(e.LongFile(0)), free);
       e.SetNext(free, 0x0FFFFFFF);
     },
     "but its chain has"},
    {"a lost cluster", [](FatEditor& e) { e.SetNext(e.FreeCluster(), 0x0FFFFFFF); },
     "lost: cluster"},
    {"copies differ", [](FatEditor& e) { e.SetNextInCopy(1, e.FreeCluster(), 0x0FFFFFFF); },
     "differs from the first"},
    {"first entry", [](FatEditor& e) { e.SetNext(0, 0x0FFFFFF0); }, "media byte"},
    {"size too large", [](FatEditor& e) { Put(e.EntryOf(e.LongFile(2)), 28, 4, 1U << 24); },
     "but its chain has"},
    {"first cluster", [](FatEditor& e) { Put(e.EntryOf(e.LongFile(2)), 26, 2, 1); },
     "leads to cluster 1"},
    {"a folder with a size", [](FatEditor& e) { Put(e.EntryOf(e.InnerFolder(0)), 28, 4, 512); },
     "a folder of size"},
    {"\".\" wrong", [](FatEditor& e) { ++e.Folder(e.InnerFolder(0))[26]; }, "\".\" names cluster"},
    {"\"..\" wrong", [](FatEditor& e) { ++e.Folder(e.InnerFolder(0))[32 + 26]; },
     "\"..\" names cluster"},
    {"no \"..\"", [](FatEditor& e) { e.Folder(e.InnerFolder(0))[32] = 0xE5; },
     "does not begin with"},
    {"a folder twice",
     [](FatEditor& e) {
       const ByteSpan other = e.EntryOf(e.InnerFolder(1));
       const ByteSpan folder = e.EntryOf(e.InnerFolder(0));
       Put(other, 26, 2, Get(folder, 26, 2));
       Put(other, 20, 2, Get(folder, 20, 2));
     },
     "belongs to"},
    {"long name's checksum", [](FatEditor& e) { ++e.bytes[e.LongNameAt() + 13]; }, "long name"},
    {"long name's order", [](FatEditor& e) { e.bytes[e.LongNameAt() + 32] = 0x13; },
     "a part of a long name out of place"},
    {"long name alone",
     [](FatEditor& e) {
       std::size_t at = e.LongNameAt();
       while (e.bytes[at + 11] == 0x0F) at += 32;
       e.bytes[at] = 0xE5;
     },
     "deleted, but has a long name"},
    {"bad short name", [](FatEditor& e) { e.EntryOf(e.LongFile(2))[2] = '*'; }, "bad short name"},
    {"a label in a folder", [](FatEditor& e) { e.EntryOf(e.LongFile(2))[11] = 0x08; },
     "has a volume label"},
    {"no boot mark", [](FatEditor& e) { e.bytes[510] = 0; }, "no 55 AA"},
    {"cluster size", [](FatEditor& e) { e.bytes[13] = 3; }, "impossible cluster size"},
    {"sectors of the volume",
     [](FatEditor& e) {
       Put(e.bytes, 19, 2, 0);
       Put(e.bytes, 32, 4, 0x7FFFFFFF);
     },
     "impossible number of sectors"},
    {"size of the table",
     [](FatEditor& e) {
       const bool wide = Get(e.bytes, 22, 2) == 0;
       Put(e.bytes, wide ? 36 : 22, wide ? 4 : 2, 1);
     },
     "impossible"},
    {"no tables", [](FatEditor& e) { e.bytes[16] = 0; }, "impossible number of tables"},
};

const FatDamage kWideDamages[] = {
    {"free count", [](FatEditor& e) { ++e.bytes[512 + 488]; }, "free clusters"},
    {"information sector's mark", [](FatEditor& e) { e.bytes[512] = 0; }, "without its marks"},
    {"next free cluster", [](FatEditor& e) { Put(e.bytes, 512 + 492, 4, 1); }, "next free cluster"},
    {"backup boot sector", [](FatEditor& e) { ++e.bytes[6 * 512 + 3]; },
     "backup boot sector differs"},
    {"root's first cluster", [](FatEditor& e) { Put(e.bytes, 44, 4, 0); },
     "/: its chain leads to cluster 0"},
};

struct FatCase {
  const char* recipe;
  std::uint32_t clean_bits;  // in the table's entry 1
};

class FatDamageTest : public test::ImageFolder, public testing::WithParamInterface<FatCase> {};

std::string CaseName(const testing::TestParamInfo<FatCase>& info) {
  return std::string(info.param.recipe).substr(0, 5);
}

void ExpectReported(const FatDamage& damage, const std::vector<std::uint8_t>& image,
                    const CheckReport& sound) {
  SCOPED_TRACE(damage.name);
  FatEditor editor(image, sound);
  damage.apply(editor);
  ASSERT_NE(editor.bytes, image);
  const CheckReport report = CheckFat(MemorySource(editor.bytes), {.hash = true});
  EXPECT_NE(report.ProblemText().find(damage.expected), std::string::npos)
      << "expected \"" << damage.expected << "\" among:\n"
      << report.ProblemText();
}

TEST_P(FatDamageTest, EveryKindIsReported) {
  const std::string path = Path("f.img");
  MakeVolume(GetParam().recipe, path);
  const CheckReport sound = CheckFat(path, {.hash = true});
  ASSERT_TRUE(sound.Clean()) << sound.ProblemText();
  const std::vector<std::uint8_t> image = test::LoadFile(path);
  for (const FatDamage& damage : kDamages) ExpectReported(damage, image, sound);
  if (sound.file_system != "FAT32") return;
  for (const FatDamage& damage : kWideDamages) ExpectReported(damage, image, sound);
}

TEST_P(FatDamageTest, DirtyFlagsAreNoProblemButReported) {
  const std::string path = Path("f.img");
  MakeVolume(GetParam().recipe, path);
  const CheckReport sound = CheckFat(path);
  EXPECT_FALSE(sound.dirty);
  FatEditor by_boot(test::LoadFile(path), sound);
  by_boot.bytes[sound.file_system == "FAT32" ? 65 : 37] |= 1;
  const CheckReport marked = CheckFat(MemorySource(by_boot.bytes));
  EXPECT_TRUE(marked.Clean()) << marked.ProblemText();
  EXPECT_TRUE(marked.dirty);
  if (GetParam().clean_bits == 0) return;
  FatEditor by_table(test::LoadFile(path), sound);
  by_table.SetNext(1, by_table.Next(1) & ~GetParam().clean_bits);
  const CheckReport unclean = CheckFat(MemorySource(by_table.bytes));
  EXPECT_TRUE(unclean.Clean()) << unclean.ProblemText();
  EXPECT_TRUE(unclean.dirty);
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, FatDamageTest,
    testing::Values(FatCase{"fat12 size=6M files=120 folders=20 fragmented=50% bad=3", 0},
                    FatCase{"fat16 size=24M files=200 folders=20 fragmented=50% bad=3", 0x8000},
                    FatCase{"fat32 size=40M files=200 folders=20 fragmented=50% bad=3",
                            0x08000000}),
    CaseName);

}  // namespace
}  // namespace vornalux
