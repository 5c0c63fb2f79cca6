// SPDX-License-Identifier: GPL-2.0-or-later
// The NTFS checker must report every kind of damage, and nothing but damage.
#include <gtest/gtest.h>

#include "check/ntfs_check.h"
#include "maker_editor.h"
#include "mkvolume/maker.h"
#include "support/image_folder.h"

namespace vornalux {
namespace {

using test::ByteSpan;
using test::Get;
using test::NtfsEditor;
using test::Put;

constexpr const char* kRecipe =
    "ntfs size=24M files=120 folders=8 crowd=80 odd-names=20% fragmented=60% streams=10% "
    "sparse=10% "
    "compressed=10% links=5% dos-names=5% shredded=1:900 seed=4";

constexpr std::uint32_t kStandard = 0x10, kList = 0x20, kName = 0x30, kData = 0x80,
                        kAllocation = 0xA0, kBitmap = 0xB0;

using NtfsDamage = test::Damage<NtfsEditor>;

const CheckedItem& Shredded(const NtfsEditor& e) {
  for (const CheckedItem& item : e.report.items) {
    if (item.path.ends_with("/shredded 0.bin")) return item;  // in whichever folder
  }
  throw std::logic_error("no shredded file");
}

const CheckedItem& Crowd(const NtfsEditor& e) { return *e.report.Find("/Crowd"); }

// Where the attribute list of the shredded file lies: an attribute of few clusters, not resident.
ByteSpan AttributeList(NtfsEditor& e) {
  std::uint64_t lcn = 0;
  e.Attribute(Shredded(e).id, kList, [&](ByteSpan a) {
    const std::size_t runs = Get(a, 32, 2);
    lcn = Get(a, runs + 1 + (a[runs] & 15), a[runs] >> 4);
  });
  return e.At(static_cast<std::int64_t>(lcn));
}

// The entry of the attribute list that names a data piece with a VCN above 0.
ByteSpan LaterDataEntry(NtfsEditor& e) {
  const ByteSpan list = AttributeList(e);
  for (std::size_t at = 0;; at += Get(list, at + 4, 2)) {
    if (Get(list, at, 4) == kData && Get(list, at + 8, 8) > 0) return list.subspan(at);
  }
}

// Some entry of an index block that is not its last.
ByteSpan FirstEntry(ByteSpan block) { return block.subspan(24 + Get(block, 24, 4)); }

std::int64_t BitmapLcn(const NtfsEditor& e) { return e.Meta("/$Bitmap").extents[0].lcn; }

void FlipClusterBit(NtfsEditor& e, std::int64_t lcn) {
  e.At(BitmapLcn(e))[static_cast<std::size_t>(lcn / 8)] ^=
      static_cast<std::uint8_t>(1U << (lcn % 8));
}

std::int64_t FreeCluster(NtfsEditor& e) {
  std::int64_t lcn = 0;
  while ((e.At(BitmapLcn(e))[static_cast<std::size_t>(lcn / 8)] >> (lcn % 8) & 1) != 0) ++lcn;
  return lcn;
}

// Makes the single run of a file's data another one.
void SetRun(NtfsEditor& e, const CheckedItem& item, std::uint64_t lcn) {
  e.Attribute(item.id, kData, [&](ByteSpan a) {
    const std::size_t runs = Get(a, 32, 2);
    const std::size_t count_width = a[runs] & 15U;
    Put(a, runs + 1 + count_width, a[runs] >> 4, lcn);
  });
}

const CheckedItem& CompressedItem(const NtfsEditor& e) {
  for (const CheckedItem& item : e.report.items) {
    if (item.compressed && item.extents.size() > 1 && item.extents[0].count < 16) return item;
  }
  throw std::logic_error("no compressed file");
}

const NtfsDamage kDamages[] = {
    {"used cluster nobody's", [](NtfsEditor& e) { FlipClusterBit(e, FreeCluster(e)); }, "nobody's"},
    {"owned cluster free", [](NtfsEditor& e) { FlipClusterBit(e, e.Whole(0).extents[0].lcn); },
     "marked free but owned"},
    {"cluster owned twice",
     [](NtfsEditor& e) {
       SetRun(e, e.Whole(0), static_cast<std::uint64_t>(e.Whole(1).extents[0].lcn));
     },
     "belong to record"},
    {"run past the end", [](NtfsEditor& e) { SetRun(e, e.Whole(0), 0x7FFF); }, "leaves the volume"},
    {"run list without end",
     [](NtfsEditor& e) {
       e.Attribute(e.Whole(0).id, kData, [](ByteSpan a) {
         const std::size_t runs = Get(a, 32, 2);
         std::fill(a.begin() + static_cast<std::ptrdiff_t>(runs), a.end(), std::uint8_t{0x11});
       });
     },
     "attribute at"},
    {"last VCN wrong",
     [](NtfsEditor& e) { e.Attribute(e.Whole(0).id, kData, [](ByteSpan a) { a[24] ^= 1; }); },
     "its runs end at VCN"},
    {"torn record", [](NtfsEditor& e) { e.RawRecord(e.Whole(0).id)[1022] ^= 1; }, "torn write"},
    {"torn first record", [](NtfsEditor& e) { e.RawRecord(0)[510] ^= 1; }, "$MFT: its own record"},
    {"record's number",
     [](NtfsEditor& e) { e.Record(e.Whole(0).id, [](ByteSpan r) { r[0x2C] ^= 1; }); },
     "calls itself"},
    {"attribute length",
     [](NtfsEditor& e) {
       e.Attribute(e.Whole(0).id, kStandard, [](ByteSpan a) { Put(a, 4, 4, 0xFFFFFFF8); });
     },
     "impossible length"},
    {"attribute instance",
     [](NtfsEditor& e) {
       e.Record(e.Whole(0).id, [](ByteSpan r) {
         const std::size_t first = Get(r, 20, 2);
         const std::size_t second = first + Get(r, first + 4, 4);
         Put(r, first + 14, 2, Get(r, second + 14, 2));
       });
     },
     "is used twice"},
    {"mirror differs", [](NtfsEditor& e) { e.At(e.Meta("/$MFTMirr").extents[0].lcn)[100] ^= 1; },
     "$MFTMirr: record 0 differs"},
    {"backup boot sector", [](NtfsEditor& e) { e.bytes[e.bytes.size() - 512 + 80] ^= 1; },
     "backup boot sector differs"},
    {"boot sector's volume size", [](NtfsEditor& e) { Put(e.bytes, 0x28, 8, 1U << 30); },
     "but the image has"},
    {"boot sector's cluster size", [](NtfsEditor& e) { e.bytes[13] = 3; }, "impossible sector"},
    {"$MFT's bitmap: used one free",
     [](NtfsEditor& e) {
       std::uint64_t lcn = 0;
       e.Attribute(0, kBitmap, [&](ByteSpan a) {
         const std::size_t runs = Get(a, 32, 2);
         lcn = Get(a, runs + 1 + (a[runs] & 15), a[runs] >> 4);
       });
       const std::uint64_t id = e.Whole(0).id;
       e.At(static_cast<std::int64_t>(lcn))[id / 8] ^= static_cast<std::uint8_t>(1U << (id % 8));
     },
     "is in use but marked free"},
    {"record freed behind its bitmap",
     [](NtfsEditor& e) { e.Record(e.Whole(0).id, [](ByteSpan r) { r[22] ^= 1; }); },
     "is free but marked in use"},
    {"folder entry to a free record",
     [](NtfsEditor& e) { e.Record(e.Whole(0).id, [](ByteSpan r) { r[22] ^= 1; }); },
     "not a file in use"},
    {"sequence number", [](NtfsEditor& e) { e.Record(e.Whole(0).id, [](ByteSpan r) { ++r[16]; }); },
     "of sequence"},
    {"link count", [](NtfsEditor& e) { e.Record(e.Whole(0).id, [](ByteSpan r) { ++r[18]; }); },
     "link count"},
    {"name's folder",
     [](NtfsEditor& e) { e.Attribute(e.Whole(0).id, kName, [](ByteSpan a) { a[24] ^= 1; }); },
     "has no such name"},
    {"name not in the folder",
     [](NtfsEditor& e) { e.Attribute(e.Whole(0).id, kName, [](ByteSpan a) { a[24 + 66] ^= 1; }); },
     "is not in folder"},
    {"allocated size",
     [](NtfsEditor& e) { e.Attribute(e.Whole(0).id, kData, [](ByteSpan a) { a[41] ^= 0x10; }); },
     "allocated size"},
    {"size above allocation",
     [](NtfsEditor& e) {
       e.Attribute(e.Whole(0).id, kData, [](ByteSpan a) { Put(a, 48, 8, 1U << 30); });
     },
     "above its allocated size"},
    {"initialized above size",
     [](NtfsEditor& e) {
       e.Attribute(e.Whole(0).id, kData, [](ByteSpan a) { Put(a, 56, 8, 1U << 30); });
     },
     "above its size"},
    {"hole in an ordinary file",
     [](NtfsEditor& e) {
       e.Attribute(e.Whole(0).id, kData, [](ByteSpan a) {
         const std::size_t runs = Get(a, 32, 2);
         a[runs] &= 0x0F;
         std::fill(a.begin() + static_cast<std::ptrdiff_t>(runs + 1 + a[runs]), a.end(),
                   std::uint8_t{0});
       });
     },
     "has holes"},
    {"list entry's instance", [](NtfsEditor& e) { LaterDataEntry(e)[24] ^= 0x40; },
     "names an attribute that is not in record"},
    {"attribute not listed", [](NtfsEditor& e) { LaterDataEntry(e)[24] ^= 0x40; },
     "is not in the attribute list"},
    {"list entry's VCN", [](NtfsEditor& e) { ++LaterDataEntry(e)[8]; }, "names an attribute"},
    {"list entry's length", [](NtfsEditor& e) { LaterDataEntry(e)[4] = 0; }, "cannot be read"},
    {"list cut short",
     [](NtfsEditor& e) {
       e.Attribute(Shredded(e).id, kList, [](ByteSpan a) {
         Put(a, 48, 8, Get(a, 48, 8) - 32);
         Put(a, 56, 8, Get(a, 56, 8) - 32);
       });
     },
     "is not in the attribute list"},
    {"piece's first VCN",
     [](NtfsEditor& e) {
       const std::uint64_t record = Get(LaterDataEntry(e), 16, 6);
       e.Attribute(record, kData, [](ByteSpan a) {
         Put(a, 16, 8, Get(a, 16, 8) + 1);
         Put(a, 24, 8, Get(a, 24, 8) + 1);
       });
     },
     "is due"},
    {"piece's owner",
     [](NtfsEditor& e) {
       const std::uint64_t record = Get(LaterDataEntry(e), 16, 6);
       e.Record(record, [](ByteSpan r) { ++r[0x26]; });
     },
     "which is not its base record"},
    {"torn index block", [](NtfsEditor& e) { e.At(Crowd(e).extents[0].lcn)[510] ^= 1; },
     "torn write"},
    {"index block's VCN",
     [](NtfsEditor& e) { e.Block(Crowd(e).extents[0].lcn, [](ByteSpan b) { b[16] ^= 1; }); },
     "says VCN"},
    {"index entry's length",
     [](NtfsEditor& e) {
       e.Block(Crowd(e).extents[0].lcn, [](ByteSpan b) { Put(FirstEntry(b), 8, 2, 0); });
     },
     "impossible length"},
    {"index entry's record",
     [](NtfsEditor& e) {
       e.Block(Crowd(e).extents[0].lcn, [](ByteSpan b) { Put(FirstEntry(b), 0, 6, 0xFFFFF); });
     },
     "not a file in use"},
    {"index entry's folder",
     [](NtfsEditor& e) {
       e.Block(Crowd(e).extents[0].lcn, [](ByteSpan b) { ++FirstEntry(b)[16]; });
     },
     "as its folder"},
    {"index order",
     [](NtfsEditor& e) {
       e.Block(Crowd(e).extents[0].lcn, [](ByteSpan b) { Put(FirstEntry(b), 16 + 66, 2, 0xFF5A); });
     },
     "comes after"},
    {"index block unmarked",
     [](NtfsEditor& e) {
       e.Attribute(
           Crowd(e).id, kBitmap, [](ByteSpan a) { a[Get(a, 20, 2)] ^= 1; }, 4);
     },
     "is in use but marked free"},
    {"index block marked, not used",
     [](NtfsEditor& e) {
       e.Attribute(
           Crowd(e).id, kBitmap, [](ByteSpan a) { a[Get(a, 20, 2) + 7U] |= 0x80; }, 4);
     },
     "is marked but not in use"},
    {"index allocation's size",
     [](NtfsEditor& e) {
       e.Attribute(
           Crowd(e).id, kAllocation, [](ByteSpan a) { Put(a, 40, 8, 0); }, 4);
     },
     "allocated size"},
    {"compressed unit",
     [](NtfsEditor& e) {
       const ByteSpan unit = e.At(CompressedItem(e).extents[0].lcn);
       unit[2] = 0xFF;  // says that the first thing is a reference to what came before
     },
     "content cannot be read"},
    {"upper case table",
     [](NtfsEditor& e) {
       const ByteSpan table = e.At(e.Meta("/$UpCase").extents[0].lcn);
       Put(table, std::size_t{2} * 'B', 2, 0xFFFF);
     },
     "comes after"},
    {"no $Bitmap",
     [](NtfsEditor& e) {
       e.Attribute(6, kData, [](ByteSpan a) {
         Put(a, 48, 8, 1);
         Put(a, 56, 8, 1);
       });
     },
     "$Bitmap: missing, too short"},
};

using NtfsDamageTest = test::ImageFolder;

TEST_F(NtfsDamageTest, EveryKindIsReported) {
  const std::string path = Path("n.img");
  MakeVolume(kRecipe, path);
  const CheckReport sound = CheckNtfs(path, {.hash = true});
  ASSERT_TRUE(sound.Clean()) << sound.ProblemText();
  const std::vector<std::uint8_t> image = test::LoadFile(path);
  for (const NtfsDamage& damage : kDamages) {
    SCOPED_TRACE(damage.name);
    NtfsEditor editor(image, sound);
    damage.apply(editor);
    ASSERT_NE(editor.bytes, image);
    const CheckReport report = CheckNtfs(MemorySource(editor.bytes), {.hash = true});
    EXPECT_NE(report.ProblemText().find(damage.expected), std::string::npos)
        << "expected \"" << damage.expected << "\" among:\n"
        << report.ProblemText();
  }
}

TEST_F(NtfsDamageTest, TheDirtyFlagIsNoProblemButReported) {
  const std::string path = Path("n.img");
  MakeVolume("ntfs size=8M files=5 folders=1", path);
  const CheckReport sound = CheckNtfs(path);
  EXPECT_FALSE(sound.dirty);
  NtfsEditor editor(test::LoadFile(path), sound);
  editor.Attribute(3, 0x70, [](ByteSpan a) { a[test::Get(a, 20, 2) + 10] |= 1; });
  const CheckReport report = CheckNtfs(MemorySource(editor.bytes));
  EXPECT_TRUE(report.Clean()) << report.ProblemText();
  EXPECT_TRUE(report.dirty);
}

}  // namespace
}  // namespace vornalux
