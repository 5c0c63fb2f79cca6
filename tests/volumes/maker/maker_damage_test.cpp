// SPDX-License-Identifier: GPL-2.0-or-later
// The checkers must report every kind of damage, and nothing but damage.
#include <gtest/gtest.h>

#include "check/volume_check.h"
#include "mkvolume/maker.h"
#include "support/image_folder.h"
#include "volumes/fat/fat_image.h"
#include "volumes/maker/maker_editor.h"

namespace vornalux::test {
namespace {

using Words = std::vector<std::string>;

// A single fault put into a sound volume, and words of the problems that must be reported. Without
// words: the volume is only marked dirty.
template <typename Editor>
struct Damage {
  const char* name;
  std::function<void(Editor&)> apply;
  Words expected;
};

CheckReport CheckSound(const Bytes& image) {
  CheckReport report = CheckVolume(MemorySource(image), {.hash = true});
  EXPECT_TRUE(report.Clean()) << report.ProblemText();
  EXPECT_FALSE(report.dirty);
  return report;
}

void ExpectReported(const CheckReport& report, const Words& expected) {
  for (const std::string& words : expected) {
    EXPECT_NE(report.ProblemText().find(words), std::string::npos)
        << "expected \"" << words << "\" among:\n"
        << report.ProblemText();
  }
  if (!expected.empty()) return;
  EXPECT_TRUE(report.Clean()) << report.ProblemText();
  EXPECT_TRUE(report.dirty);
}

// --- Edits of a record, an attribute or whatever else bytes are.

using Edit = std::function<void(ByteSpan)>;

Edit Flip(std::size_t at, std::uint8_t bits = 1) {
  return [=](ByteSpan bytes) { bytes[at] ^= bits; };
}

Edit Set(std::size_t at, std::size_t width, std::uint64_t value) {
  return [=](ByteSpan bytes) { Put(bytes, at, width, value); };
}

Edit Add(std::size_t at, std::size_t width, std::int64_t value) {
  return [=](ByteSpan bytes) {
    Put(bytes, at, width, Get(bytes, at, width) + static_cast<std::uint64_t>(value));
  };
}

Edit Both(const Edit& one, const Edit& other) {
  return [=](ByteSpan bytes) {
    one(bytes);
    other(bytes);
  };
}

// --- NTFS

constexpr std::uint32_t kStandard = 0x10, kList = 0x20, kName = 0x30, kVolumeInformation = 0x70,
                        kData = 0x80, kAllocation = 0xA0, kBitmap = 0xB0;

using NtfsDamage = Damage<NtfsEditor>;
using NtfsEdit = std::function<void(NtfsEditor&)>;

std::uint64_t ShreddedFile(const NtfsEditor& e) {
  for (const CheckedItem& item : e.report.items) {
    if (item.path.ends_with("/shredded 0.bin")) return item.id;  // in whichever folder
  }
  throw std::logic_error("no shredded file");
}

const CheckedItem& Crowd(const NtfsEditor& e) { return *e.report.Find("/Crowd"); }

const CheckedItem& CompressedItem(const NtfsEditor& e) {
  for (const CheckedItem& item : e.report.items) {
    if (item.compressed && item.extents.size() > 1 && item.extents[0].count < 16) return item;
  }
  throw std::logic_error("no compressed file");
}

// Of a file of one extent: its record, an attribute of it.
NtfsEdit InRecord(const Edit& edit) {
  return [=](NtfsEditor& e) { e.Record(e.Whole(0).id, edit); };
}
NtfsEdit InAttribute(std::uint32_t type, const Edit& edit) {
  return [=](NtfsEditor& e) { e.Attribute(e.Whole(0).id, type, edit); };
}
// Its single run becomes another one.
void SetRun(NtfsEditor& e, std::int64_t lcn) {
  e.Attribute(e.Whole(0).id, kData, [&](ByteSpan a) {
    const std::size_t runs = Get(a, 32, 2);
    Put(a, runs + 1 + (a[runs] & 15U), a[runs] >> 4, static_cast<std::uint64_t>(lcn));
  });
}
// Of a file of many records: its attribute list, a later entry of that, what the entry names.
NtfsEdit InList(const Edit& edit) {
  return [=](NtfsEditor& e) { e.Attribute(ShreddedFile(e), kList, edit); };
}
NtfsEdit InListEntry(const Edit& edit) {
  return [=](NtfsEditor& e) { edit(e.LaterDataEntry(ShreddedFile(e))); };
}
std::uint64_t LaterRecord(NtfsEditor& e) { return Get(e.LaterDataEntry(ShreddedFile(e)), 16, 6); }
// Of a large folder: an attribute of its index, a block of that, the first entry there.
NtfsEdit InIndex(std::uint32_t type, const Edit& edit) {
  return [=](NtfsEditor& e) { e.Attribute(Crowd(e).id, type, edit, 4); };
}
NtfsEdit InBlock(const Edit& edit) {
  return [=](NtfsEditor& e) { e.Block(Crowd(e).extents[0].lcn, edit); };
}
NtfsEdit InIndexEntry(const Edit& edit) {
  return InBlock([=](ByteSpan block) { edit(block.subspan(24 + Get(block, 24, 4))); });
}

const NtfsDamage kNtfsDamages[] = {
    {"used cluster nobody's",
     [](NtfsEditor& e) {
       std::int64_t lcn = 0;
       while (e.ClusterBit(lcn)) ++lcn;
       e.FlipClusterBit(lcn);
     },
     {"nobody's"}},
    {"owned cluster free",
     [](NtfsEditor& e) { e.FlipClusterBit(e.Whole(0).extents[0].lcn); },
     {"marked free but owned"}},
    {"cluster owned twice",
     [](NtfsEditor& e) { SetRun(e, e.Whole(1).extents[0].lcn); },
     {"belong to record"}},
    {"run past the end", [](NtfsEditor& e) { SetRun(e, 0x7FFF); }, {"leaves the volume"}},
    {"run list without end",
     InAttribute(
         kData,
         [](ByteSpan a) { std::ranges::fill(a.subspan(Get(a, 32, 2)), std::uint8_t{0x11}); }),
     {"attribute at"}},
    {"last VCN wrong", InAttribute(kData, Flip(24)), {"its runs end at VCN"}},
    {"torn record", [](NtfsEditor& e) { e.RawRecord(e.Whole(0).id)[1022] ^= 1; }, {"torn write"}},
    {"torn first record",
     [](NtfsEditor& e) { e.RawRecord(0)[510] ^= 1; },
     {"$MFT: its own record"}},
    {"record's number", InRecord(Flip(0x2C)), {"calls itself"}},
    {"attribute length", InAttribute(kStandard, Set(4, 4, 0xFFFFFFF8)), {"impossible length"}},
    {"attribute instance",
     InRecord([](ByteSpan r) {
       const std::size_t first = Get(r, 20, 2);
       const std::size_t second = first + Get(r, first + 4, 4);
       Put(r, first + 14, 2, Get(r, second + 14, 2));
     }),
     {"is used twice"}},
    {"mirror differs",
     [](NtfsEditor& e) { e.At(e.Meta("/$MFTMirr").extents[0].lcn)[100] ^= 1; },
     {"$MFTMirr: record 0 differs"}},
    {"backup boot sector",
     [](NtfsEditor& e) { e.bytes[e.bytes.size() - 512 + 80] ^= 1; },
     {"backup boot sector differs"}},
    {"boot sector's volume size",
     [](NtfsEditor& e) { Put(e.bytes, 0x28, 8, 1U << 30); },
     {"but the image has"}},
    {"boot sector's cluster size", [](NtfsEditor& e) { e.bytes[13] = 3; }, {"impossible sector"}},
    {"$MFT's bitmap: used one free",
     [](NtfsEditor& e) {
       std::int64_t lcn = 0;
       e.Attribute(0, kBitmap, [&](ByteSpan a) { lcn = e.FirstLcn(a); });
       const std::uint64_t id = e.Whole(0).id;
       e.At(lcn)[id / 8] ^= static_cast<std::uint8_t>(1U << (id % 8));
     },
     {"is in use but marked free"}},
    {"record freed behind bitmap and folder",
     InRecord(Flip(22)),
     {"is free but marked in use", "not a file in use"}},
    {"sequence number", InRecord(Add(16, 2, 1)), {"of sequence"}},
    {"link count", InRecord(Add(18, 2, 1)), {"link count"}},
    {"name's folder", InAttribute(kName, Flip(24)), {"has no such name"}},
    {"name not in the folder", InAttribute(kName, Flip(24 + 66)), {"is not in folder"}},
    {"allocated size", InAttribute(kData, Flip(41, 0x10)), {"allocated size"}},
    {"size above allocation",
     InAttribute(kData, Set(48, 8, 1U << 30)),
     {"above its allocated size"}},
    {"initialized above size", InAttribute(kData, Set(56, 8, 1U << 30)), {"above its size"}},
    {"hole in an ordinary file",
     InAttribute(kData,
                 [](ByteSpan a) {
                   const std::size_t runs = Get(a, 32, 2);
                   a[runs] &= 0x0F;
                   std::ranges::fill(a.subspan(runs + 1U + a[runs]), std::uint8_t{0});
                 }),
     {"has holes"}},
    {"list entry's instance",
     InListEntry(Flip(24, 0x40)),
     {"names an attribute that is not in record", "is not in the attribute list"}},
    {"list entry's VCN", InListEntry(Add(8, 1, 1)), {"names an attribute"}},
    {"list entry's length", InListEntry(Set(4, 1, 0)), {"cannot be read"}},
    {"list cut short",
     InList(Both(Add(48, 8, -32), Add(56, 8, -32))),
     {"is not in the attribute list"}},
    {"piece's first VCN",
     [](NtfsEditor& e) { e.Attribute(LaterRecord(e), kData, Both(Add(16, 8, 1), Add(24, 8, 1))); },
     {"is due"}},
    {"piece's owner",
     [](NtfsEditor& e) { e.Record(LaterRecord(e), Add(0x26, 1, 1)); },
     {"which is not its base record"}},
    {"torn index block",
     [](NtfsEditor& e) { e.At(Crowd(e).extents[0].lcn)[510] ^= 1; },
     {"torn write"}},
    {"index block's VCN", InBlock(Flip(16)), {"says VCN"}},
    {"index entry's length", InIndexEntry(Set(8, 2, 0)), {"impossible length"}},
    {"index entry's record", InIndexEntry(Set(0, 6, 0xFFFFF)), {"not a file in use"}},
    {"index entry's folder", InIndexEntry(Add(16, 1, 1)), {"as its folder"}},
    {"index order", InIndexEntry(Set(16 + 66, 2, 0xFF5A)), {"comes after"}},
    {"index block unmarked",
     InIndex(kBitmap, [](ByteSpan a) { a[Get(a, 20, 2)] ^= 1; }),
     {"is in use but marked free"}},
    {"index block marked, not used",
     InIndex(kBitmap, [](ByteSpan a) { a[Get(a, 20, 2) + 7U] |= 0x80; }),
     {"is marked but not in use"}},
    {"index allocation's size", InIndex(kAllocation, Set(40, 8, 0)), {"allocated size"}},
    {"compressed unit",
     // Says that the first thing is a reference to what came before.
     [](NtfsEditor& e) { e.At(CompressedItem(e).extents[0].lcn)[2] = 0xFF; },
     {"content cannot be read"}},
    {"upper case table",
     [](NtfsEditor& e) {
       Put(e.At(e.Meta("/$UpCase").extents[0].lcn), std::size_t{2} * 'B', 2, 0xFFFF);
     },
     {"comes after"}},
    {"no $Bitmap",
     [](NtfsEditor& e) { e.Attribute(6, kData, Both(Set(48, 8, 1), Set(56, 8, 1))); },
     {"$Bitmap: missing, too short"}},
    {"dirty",
     [](NtfsEditor& e) {
       e.Attribute(3, kVolumeInformation, [](ByteSpan a) { a[Get(a, 20, 2) + 10] |= 1; });
     },
     {}},
};

TEST(NtfsDamageTest, EveryKindIsReported) {
  const ScratchFolder folder;
  MakeVolume(
      "ntfs size=24M files=120 folders=8 crowd=80 odd-names=20% fragmented=60% streams=10% "
      "sparse=10% compressed=10% links=5% dos-names=5% shredded=1:900 seed=4",
      folder.Path("v.img"));
  const Bytes image = folder.Get("v.img");
  const CheckReport sound = CheckSound(image);
  for (const NtfsDamage& damage : kNtfsDamages) {
    SCOPED_TRACE(damage.name);
    NtfsEditor editor(image, sound);
    damage.apply(editor);
    ASSERT_NE(editor.bytes, image);
    ExpectReported(CheckNtfs(MemorySource(editor.bytes), {.hash = true}), damage.expected);
  }
}

// --- FAT

using FatDamage = Damage<FatWorld>;
using FatEdit = std::function<void(FatWorld&)>;

constexpr const char *kFile = "A       TXT", *kOther = "B       TXT", *kFolder = "DIR        ",
                     *kInner = "SUB        ", *kLongName = "LONGEN~1TXT";

// The first cluster of a file of three leads to this one.
FatEdit Chain(std::uint32_t next) {
  return [=](FatWorld& w) { w.SetEntry(w.Start(kFile), next); };
}
std::uint32_t ChainEnd(const FatWorld& w) { return w.table.Bad() + 8; }
std::uint32_t FreeCluster(const FatWorld& w) {
  std::uint32_t cluster = 2;
  while (w.Entry(cluster) != 0) ++cluster;
  return cluster;
}
// The entry of another file; of what has a name of two parts, from the first part on.
FatEdit InEntry(const Edit& edit) {
  return [=](FatWorld& w) { edit(ByteSpan(w.Image()).subspan(w.Find(kOther), 32)); };
}
FatEdit InLongName(const Edit& edit) {
  return [=](FatWorld& w) { edit(ByteSpan(w.Image()).subspan(w.Find(kLongName) - 64, 96)); };
}
// The beginning of a folder that is not in the root.
FatEdit InFolder(const Edit& edit) {
  return [=](FatWorld& w) {
    edit(ByteSpan(w.Image()).subspan(w.geometry.ClusterOffset(w.Start(kInner)), 64));
  };
}
FatEdit InBoot(const Edit& edit) {
  return [=](FatWorld& w) { edit(w.Image()); };
}

const FatDamage kFatDamages[] = {
    {"two files share their ends", [](FatWorld& w) { Chain(w.Start(kOther))(w); }, {"belongs to"}},
    {"a chain in a circle",
     [](FatWorld& w) { w.SetEntry(w.Start(kFile) + 2, w.Start(kFile)); },
     {"is in its chain twice"}},
    {"a free cluster in a chain", Chain(0), {"marked free"}},
    {"a bad cluster in a chain", [](FatWorld& w) { Chain(w.table.Bad())(w); }, {"marked bad"}},
    {"a chain out of the volume",
     [](FatWorld& w) { Chain(w.geometry.EndCluster())(w); },
     {"leads to cluster"}},
    {"a chain to cluster 1", Chain(1), {"leads to cluster 1"}},
    {"a chain too short, its rest lost",
     [](FatWorld& w) { Chain(ChainEnd(w))(w); },
     {"but its chain has", "lost: cluster"}},
    {"a chain too long",
     [](FatWorld& w) {
       const std::uint32_t free = FreeCluster(w);
       w.SetEntry(w.Start(kFile) + 2, free);
       w.SetEntry(free, ChainEnd(w));
     },
     {"but its chain has"}},
    {"a lost cluster",
     [](FatWorld& w) { w.SetEntry(FreeCluster(w), ChainEnd(w)); },
     {"lost: cluster"}},
    {"copies differ",
     [](FatWorld& w) { w.Image()[w.geometry.CopyOffset(1) + w.geometry.EntryBytes(300)] ^= 1; },
     {"differs from the first"}},
    {"first entry", [](FatWorld& w) { w.SetEntry(0, w.table.Bad() - 7); }, {"media byte"}},
    {"size too large", InEntry(Set(28, 4, 1U << 24)), {"but its chain has"}},
    {"first cluster", InEntry(Set(26, 2, 1)), {"leads to cluster 1"}},
    {"a folder with a size",
     [](FatWorld& w) { w.Image()[w.Find(kFolder) + 29] = 2; },
     {"a folder of size"}},
    {"\".\" wrong", InFolder(Add(26, 1, 1)), {"\".\" names cluster"}},
    {"\"..\" wrong", InFolder(Add(32 + 26, 1, 1)), {"\"..\" names cluster"}},
    {"no \"..\"", InFolder(Set(32, 1, 0xE5)), {"does not begin with"}},
    {"a folder twice",
     [](FatWorld& w) { w.SetStart(w.Find(kInner), w.Start(kFolder)); },
     {"belongs to"}},
    {"long name's checksum", InLongName(Add(13, 1, 1)), {"long name"}},
    {"long name's order", InLongName(Set(32, 1, 0x13)), {"a part of a long name out of place"}},
    {"long name alone", InLongName(Set(64, 1, 0xE5)), {"deleted, but has a long name"}},
    {"bad short name", InEntry(Set(2, 1, '*')), {"bad short name"}},
    {"a label in a folder",
     [](FatWorld& w) { w.Image()[w.Find("C       TXT") + 11] = 0x08; },
     {"has a volume label"}},
    {"no boot mark", InBoot(Set(510, 1, 0)), {"no 55 AA"}},
    {"cluster size", InBoot(Set(13, 1, 3)), {"impossible cluster size"}},
    {"sectors of the volume",
     InBoot(Both(Set(19, 2, 0), Set(32, 4, 0x7FFFFFFF))),
     {"impossible number of sectors"}},
    {"size of the table",
     InBoot([](ByteSpan boot) {
       const bool wide = Get(boot, 22, 2) == 0;
       Put(boot, wide ? 36 : 22, wide ? 4 : 2, 1);
     }),
     {"impossible"}},
    {"no tables", InBoot(Set(16, 1, 0)), {"impossible number of tables"}},
    {"dirty by its boot sector", [](FatWorld& w) { w.Image()[w.geometry.state_offset] |= 1; }, {}},
};

const FatDamage kFat16Damages[] = {
    {"dirty by its table", [](FatWorld& w) { w.SetEntry(1, 0x7FFF); }, {}}};

const FatDamage kFat32Damages[] = {
    {"dirty by its table", [](FatWorld& w) { w.SetEntry(1, 0x07FFFFFF); }, {}},
    {"free count", InBoot(Add(512 + 488, 4, 1)), {"free clusters"}},
    {"information sector's mark", InBoot(Set(512, 1, 0)), {"without its marks"}},
    {"next free cluster", InBoot(Set(512 + 492, 4, 1)), {"next free cluster"}},
    {"backup boot sector", InBoot(Add(6 * 512 + 3, 1, 1)), {"backup boot sector differs"}},
    {"root's first cluster", InBoot(Set(44, 4, 0)), {"/: its chain leads to cluster 0"}},
};

TEST(FatDamageTest, EveryKindIsReported) {
  const std::pair<int, std::span<const FatDamage>> kinds[] = {
      {12, {}}, {16, kFat16Damages}, {32, kFat32Damages}};
  for (const auto& [bits, more] : kinds) {
    const Bytes image = SmallFat(bits);
    CheckSound(image);
    std::vector<FatDamage> damages(std::begin(kFatDamages), std::end(kFatDamages));
    damages.insert(damages.end(), more.begin(), more.end());
    for (const FatDamage& damage : damages) {
      SCOPED_TRACE("FAT" + std::to_string(bits) + ", " + damage.name);
      FatWorld world(image);
      damage.apply(world);
      ASSERT_NE(world.Image(), image);
      ExpectReported(CheckFat(MemorySource(world.Image()), {.hash = true}), damage.expected);
    }
  }
}

}  // namespace
}  // namespace vornalux::test
