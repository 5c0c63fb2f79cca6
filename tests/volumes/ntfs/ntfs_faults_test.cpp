// SPDX-License-Identifier: GPL-2.0-or-later
// One fault each in a sound volume: the checker has to tell it, and a pass is refused when it could
// do harm.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>

#include "check/volume_check.h"
#include "host/image/ntfs/ntfs_soundness.h"
#include "volumes/maker/maker_editor.h"
#include "volumes/ntfs/ntfs_image.h"

namespace vornalux::test {
namespace {

constexpr std::uint32_t kStandard = 0x10, kList = 0x20, kName = 0x30, kData = 0x80,
                        kAllocation = 0xA0, kBitmap = 0xB0;

// Why a pass is refused, without the library's opinion. sound: what the image was like before.
std::string Unsoundness(const Bytes& image, const CheckReport& sound, BlockDevice& device) {
  NtfsEditor editor(image, sound);
  const NtfsGeometry geometry{.cluster_size = sound.cluster_size,
                              .clusters = sound.clusters,
                              .record_size = 1024,
                              .mft_lcn = static_cast<std::int64_t>(Get(editor.bytes, 48, 8)),
                              .mirror_lcn = static_cast<std::int64_t>(Get(editor.bytes, 56, 8))};
  AllocationMap map(sound.clusters);
  map.Load(0, editor.At(editor.Meta("/$Bitmap").extents[0].lcn)
                  .first(static_cast<std::size_t>(sound.clusters + 7) / 8));
  return FindUnsoundness(device, geometry, map);
}

// --- Edits of a record, an attribute or whatever else bytes are.

using Edit = std::function<void(ByteSpan)>;
using Make = std::function<void(NtfsEditor&)>;

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
Edit SetLcn(std::int64_t lcn) {
  return [=](ByteSpan a) {
    const std::size_t runs = Get(a, 32, 2);
    Put(a, runs + 1 + (a[runs] & 15U), a[runs] >> 4, static_cast<std::uint64_t>(lcn));
  };
}
void Name(ByteSpan record, const char* magic) { std::memcpy(record.data(), magic, 4); }

// --- Where they are made.

// Of a file of one extent: its record, an attribute of it.
Make InRecord(const Edit& edit) {
  return [=](NtfsEditor& e) { e.Record(e.Whole(0).id, edit); };
}
Make InAttribute(std::uint32_t type, const Edit& edit) {
  return [=](NtfsEditor& e) { e.Attribute(e.Whole(0).id, type, edit); };
}
Make InData(const Edit& edit) { return InAttribute(kData, edit); }
// Of a file of many records: an attribute, a later entry of its list, the record that this names.
std::uint64_t Shredded(const NtfsEditor& e) {
  for (const CheckedItem& item : e.report.items) {
    if (item.path.ends_with("/shredded 0.bin")) return item.id;  // in whichever folder
  }
  throw std::logic_error("no shredded file");
}
std::uint64_t LaterRecord(NtfsEditor& e) { return Get(e.LaterDataEntry(Shredded(e)), 16, 6); }
Make InShredded(std::uint32_t type, const Edit& edit) {
  return [=](NtfsEditor& e) { e.Attribute(Shredded(e), type, edit); };
}
Make InEntry(const Edit& edit) {
  return [=](NtfsEditor& e) { edit(e.LaterDataEntry(Shredded(e))); };
}
Make InLaterRecord(const Edit& edit) {
  return [=](NtfsEditor& e) { e.Record(LaterRecord(e), edit); };
}
// Of a large folder: an attribute of its index, a block of that, the first entry there.
const CheckedItem& Crowd(const NtfsEditor& e) { return *e.report.Find("/Crowd"); }
Make InIndex(std::uint32_t type, const Edit& edit) {
  return [=](NtfsEditor& e) { e.Attribute(Crowd(e).id, type, edit, 4); };
}
Make InBlock(const Edit& edit) {
  return [=](NtfsEditor& e) { e.Block(Crowd(e).extents[0].lcn, edit); };
}
Make InIndexEntry(const Edit& edit) {
  return InBlock([=](ByteSpan block) { edit(block.subspan(24 + Get(block, 24, 4))); });
}

const CheckedItem& Compressed(const NtfsEditor& e) {
  for (const CheckedItem& item : e.report.items) {
    if (item.compressed && item.extents.size() > 1 && item.extents[0].count < 16) return item;
  }
  throw std::logic_error("no compressed file");
}
// Of a record that is not in use.
std::uint64_t FreeRecord(NtfsEditor& e) {
  for (std::uint64_t n = e.Meta("/$MFT").size / 1024; n-- > 24;) {
    if ((Get(e.RawRecord(n), 22, 2) & 1) == 0) return n;
  }
  throw std::logic_error("no free record");
}
void FlipRecordBit(NtfsEditor& e, std::uint64_t number) {
  std::int64_t lcn = 0;
  e.Attribute(0, kBitmap, [&](ByteSpan a) { lcn = NtfsEditor::FirstLcn(a); });
  e.At(lcn)[number / 8] ^= static_cast<std::uint8_t>(1U << number % 8);
}
std::int64_t FreeCluster(NtfsEditor& e) {
  std::int64_t lcn = e.report.clusters / 2;
  while (e.ClusterBit(lcn)) ++lcn;
  return lcn;
}
// The whole-volume hole of $BadClus gets a cluster in its middle.
void AddBadCluster(NtfsEditor& e, std::int64_t lcn) {
  e.Record(8, [&](ByteSpan record) {
    const std::size_t at = NtfsEditor::FindAttribute(record, kData, 4);
    const std::size_t runs = at + Get(record, at + 32, 2);
    const std::size_t old = (Get(record, at + 4, 4) - Get(record, at + 32, 2) + 7) / 8 * 8;
    const std::size_t used = Get(record, 24, 4);
    std::copy_backward(&record[runs + old], &record[used], &record[used + 16]);
    Put(record, 24, 4, used + 16);
    Put(record, at + 4, 4, Get(record, at + 4, 4) + 16);
    const ByteSpan bytes = record.subspan(runs, old + 16);
    std::ranges::fill(bytes, std::uint8_t{0});
    Put(bytes, 0, 1, 0x04);
    Put(bytes, 1, 4, static_cast<std::uint64_t>(lcn));
    Put(bytes, 5, 1, 0x41);
    Put(bytes, 6, 1, 1);
    Put(bytes, 7, 4, static_cast<std::uint64_t>(lcn));
    Put(bytes, 11, 1, 0x04);
    Put(bytes, 12, 4, static_cast<std::uint64_t>(e.report.clusters - lcn - 1));
  });
}

struct Fault {
  const char* what;
  Make make;
  std::vector<const char*> checked;  // parts of the checker's problems; none: it has none
  const char* refused;               // part of a pass's refusal; null: there is none
};

const char* const kFree = "is marked free";

const Fault kFaults[] = {
    {"cluster in use for nobody",
     [](NtfsEditor& e) { e.FlipClusterBit(FreeCluster(e)); },
     {"nobody's"},
     nullptr},
    {"owned cluster free",
     [](NtfsEditor& e) { e.FlipClusterBit(e.Whole(0).extents[0].lcn + 1); },
     {"marked free but owned"},
     kFree},
    {"cluster of two files",
     [](NtfsEditor& e) { InData(SetLcn(e.Whole(1).extents[0].lcn))(e); },
     {"belong to record"},
     "belongs to more than one stream"},
    {"cluster of a file and the boot sector",
     InData(SetLcn(0)),
     {"belong to record"},
     "belongs to more than one stream"},
    {"$Boot nowhere",
     [](NtfsEditor& e) { e.Attribute(7, kData, [](ByteSpan a) { a[Get(a, 32, 2)] &= 0x0F; }); },
     {"has holes"},
     "$Boot does not lie"},
    {"run past the end", InData(SetLcn(0x7FFF)), {"leaves the volume"}, "outside the volume"},
    {"run before the volume", InData(SetLcn(-2)), {"leaves the volume"}, "outside the volume"},
    {"run list without end",
     InData([](ByteSpan a) { std::ranges::fill(a.subspan(Get(a, 32, 2)), std::uint8_t{0x11}); }),
     {"attribute at"},
     "a run that cannot be read"},
    {"hole in an ordinary file",
     InData([](ByteSpan a) {
       const std::size_t runs = Get(a, 32, 2);
       a[runs] &= 0x0F;
       std::ranges::fill(a.subspan(runs + 1U + a[runs]), std::uint8_t{0});
     }),
     {"has holes"},
     nullptr},
    {"last VCN", InData(Add(24, 8, 1)), {"its runs end at VCN"}, "last VCN"},
    {"last VCN left out", InData(Set(24, 8, 0)), {"its runs end at VCN"}, nullptr},
    {"last VCN left out where more follow",
     InShredded(kData, Set(24, 8, 0)),
     {"its runs end at VCN"},
     "last VCN"},
    {"allocated size", InData(Add(40, 8, 512)), {"allocated size"}, "allocated size"},
    {"size above allocation",
     InData(Set(48, 8, 1U << 30)),
     {"above its allocated size"},
     "its size"},
    {"initialized above size", InData(Set(56, 8, 1U << 30)), {"above its size"}, "its size"},
    {"stored in an unknown way", InData(Add(12, 2, 4)), {"compressed in units of"}, "unknown way"},
    {"attribute's length",
     InAttribute(kStandard, Set(4, 4, 0xFFFFFFF8)),
     {"impossible length"},
     "impossible length"},
    {"two attributes of one number",
     InRecord([](ByteSpan r) {
       const std::size_t first = Get(r, 20, 2);
       Put(r, first + 14, 2, Get(r, first + Get(r, first + 4, 4) + 14, 2));
     }),
     {"is used twice"},
     "given to two attributes"},
    {"next number taken", InRecord(Set(40, 2, 0)), {}, "a number that is taken"},
    {"record's number", InRecord(Flip(0x2C)), {"calls itself"}, nullptr},
    {"sequence number", InRecord(Add(16, 2, 1)), {"of sequence"}, nullptr},
    {"link count", InRecord(Add(18, 2, 1)), {"link count"}, nullptr},
    {"record written in part",
     [](NtfsEditor& e) { e.RawRecord(e.Whole(0).id)[1022] ^= 1; },
     {"torn write"},
     "written only in part"},
    {"record that is no more one",
     [](NtfsEditor& e) { Name(e.RawRecord(e.Whole(0).id), "BAAD"); },
     {"no file record"},
     "is no file record"},
    {"first record written in part",
     [](NtfsEditor& e) { e.RawRecord(0)[510] ^= 1; },
     {"$MFT: its own record"},
     "was written only in part"},
    {"record freed behind bitmap and folder",
     InRecord(Flip(22)),
     {"is free but marked in use", "not a file in use"},
     nullptr},
    {"record marked free",
     [](NtfsEditor& e) { FlipRecordBit(e, e.Whole(0).id); },
     {"is in use but marked free"},
     "marked free in $MFT's $BITMAP"},
    {"record in use for nobody",
     [](NtfsEditor& e) { FlipRecordBit(e, FreeRecord(e)); },
     {"is free but marked in use"},
     nullptr},
    {"free record that is none",
     [](NtfsEditor& e) { Name(e.RawRecord(FreeRecord(e)), "BAAD"); },
     {"no file record"},
     nullptr},
    {"free record written in part",
     [](NtfsEditor& e) { e.RawRecord(FreeRecord(e))[510] ^= 1; },
     {"torn write"},
     nullptr},
    {"$MFT cut short",
     [](NtfsEditor& e) {
       const std::uint64_t size = 1024 * (e.Whole(0).id - 1);
       e.Attribute(0, kData, Both(Set(48, 8, size), Set(56, 8, size)));
     },
     {"is past the end but marked in use"},
     "holds a file past the end of $MFT"},
    {"no $Bitmap",
     [](NtfsEditor& e) { e.Attribute(6, kData, Both(Set(48, 8, 1), Set(56, 8, 1))); },
     {"$Bitmap: missing, too short"},
     nullptr},
    {"mirror differs",
     [](NtfsEditor& e) { e.At(e.Meta("/$MFTMirr").extents[0].lcn)[100] ^= 1; },
     {"$MFTMirr: record 0 differs"},
     "$MFTMirr is no copy of record 0"},
    {"backup boot sector",
     [](NtfsEditor& e) { e.bytes[e.bytes.size() - 512 + 80] ^= 1; },
     {"backup boot sector differs"},
     nullptr},
    {"bad cluster",
     [](NtfsEditor& e) {
       const std::int64_t lcn = FreeCluster(e);
       AddBadCluster(e, lcn);
       e.FlipClusterBit(lcn);
     },
     {},
     nullptr},
    {"bad cluster marked free",
     [](NtfsEditor& e) { AddBadCluster(e, FreeCluster(e)); },
     {"marked free but owned"},
     kFree},

    {"extension marked free",
     [](NtfsEditor& e) { FlipRecordBit(e, LaterRecord(e)); },
     {"is in use but marked free"},
     "marked free in $MFT's $BITMAP"},
    {"extension freed",
     InLaterRecord(Flip(22)),
     {"names an attribute that is not in record"},
     "that is not in record"},
    {"extension of nobody",
     [](NtfsEditor& e) { InLaterRecord(Set(32, 6, e.Whole(0).id))(e); },
     {"has extent records but no attribute list"},
     "says that it continues this one"},
    {"extension of an earlier file",
     [](NtfsEditor& e) { e.Record(Shredded(e), Add(16, 2, 1)); },
     {"which is not its base record"},
     "another sequence number"},
    {"extension's owner",
     InLaterRecord(Add(0x26, 1, 1)),
     {"which is not its base record"},
     "another sequence number"},
    {"later piece's first VCN",
     [](NtfsEditor& e) {
       e.Attribute(LaterRecord(e), kData, Both(Add(16, 8, 1), Add(24, 8, 1)));
       Add(8, 8, 1)(e.LaterDataEntry(Shredded(e)));
     },
     {"is due"},
     "is due"},
    {"list entry's record",
     InEntry(Add(16, 6, 1)),
     {"names an attribute that is not in record"},
     "that is not in record"},
    {"list entry's sequence",
     InEntry(Add(22, 2, 1)),
     {"names an attribute that is not in record"},
     "that is not in record"},
    {"list entry's VCN", InEntry(Add(8, 8, 1)), {"names an attribute"}, "that is not in record"},
    {"list entry's instance",
     InEntry(Flip(24, 0x40)),
     {"names an attribute that is not in record", "is not in the attribute list"},
     "that is not in record"},
    {"list entry's length", InEntry(Set(4, 1, 0)), {"cannot be read"}, "attribute list"},
    {"list cut short",
     InShredded(kList, Both(Add(48, 8, -32), Add(56, 8, -32))),
     {"is not in the attribute list"},
     "leaves out $DATA"},
    {"endless list",
     InShredded(kList, Set(48, 8, 0x7FFFFFFFFFFF)),
     {"cannot be read"},
     "impossible length"},

    {"name's folder", InAttribute(kName, Flip(24)), {"has no such name"}, nullptr},
    {"name not in the folder", InAttribute(kName, Flip(24 + 66)), {"is not in folder"}, nullptr},
    {"torn index block",
     [](NtfsEditor& e) { e.At(Crowd(e).extents[0].lcn)[510] ^= 1; },
     {"torn write"},
     nullptr},
    {"index block's VCN", InBlock(Flip(16)), {"says VCN"}, nullptr},
    {"index entry's length", InIndexEntry(Set(8, 2, 0)), {"impossible length"}, nullptr},
    {"index entry's record", InIndexEntry(Set(0, 6, 0xFFFFF)), {"not a file in use"}, nullptr},
    {"index entry's folder", InIndexEntry(Add(16, 1, 1)), {"as its folder"}, nullptr},
    {"index order", InIndexEntry(Set(16 + 66, 2, 0xFF5A)), {"comes after"}, nullptr},
    {"index block unmarked",
     InIndex(kBitmap, [](ByteSpan a) { a[Get(a, 20, 2)] ^= 1; }),
     {"is in use but marked free"},
     nullptr},
    {"index block marked, not used",
     InIndex(kBitmap, [](ByteSpan a) { a[Get(a, 20, 2) + 7U] |= 0x80; }),
     {"is marked but not in use"},
     nullptr},
    {"index allocation's size",
     InIndex(kAllocation, Set(40, 8, 0)),
     {"allocated size"},
     "allocated size"},
    {"upper case table",
     [](NtfsEditor& e) {
       Put(e.At(e.Meta("/$UpCase").extents[0].lcn), std::size_t{2} * 'B', 2, 0xFFFF);
     },
     {"comes after"},
     nullptr},
    // Says that the first thing is a reference to what came before.
    {"compressed unit",
     [](NtfsEditor& e) { e.At(Compressed(e).extents[0].lcn)[2] = 0xFF; },
     {"content cannot be read"},
     nullptr},
};

TEST(NtfsFaults, AreToldAndNothingElse) {
  const Bytes whole = MakeNtfs(
      "ntfs size=24M files=120 folders=8 crowd=80 odd-names=20% fragmented=60% streams=10% "
      "sparse=10% compressed=10% links=5% dos-names=5% shredded=1:900 mft-pieces=2 seed=4");
  const CheckReport sound = CheckVolume(MemorySource(whole), {.hash = true});
  ASSERT_TRUE(sound.Clean()) << sound.ProblemText();
  MemoryDevice sound_device(whole);
  ASSERT_EQ(Unsoundness(whole, sound, sound_device), "");
  for (const Fault& fault : kFaults) {
    SCOPED_TRACE(fault.what);
    NtfsEditor editor(whole, sound);
    fault.make(editor);
    ASSERT_NE(editor.bytes, whole);
    const std::string problems =
        CheckNtfs(MemorySource(editor.bytes), {.hash = true}).ProblemText();
    EXPECT_EQ(problems.empty(), fault.checked.empty()) << problems;
    for (const char* words : fault.checked) {
      EXPECT_NE(problems.find(words), std::string::npos) << words << "\n" << problems;
    }
    MemoryDevice device(editor.bytes);
    const std::string refusal = Unsoundness(editor.bytes, sound, device);
    EXPECT_EQ(refusal.empty(), fault.refused == nullptr) << refusal;
    if (fault.refused != nullptr) {
      EXPECT_NE(refusal.find(fault.refused), std::string::npos) << refusal;
    }
    EXPECT_TRUE(device.Content() == editor.bytes);
  }
}

TEST(NtfsFaults, WhatCannotBeReadIsNotSound) {
  const Bytes whole = MakeNtfs("ntfs size=8M cluster=512 files=40 shredded=1:600 mft-pieces=3");
  const CheckReport sound = CheckNtfs(MemorySource(whole));
  MemoryDevice memory(whole);
  FailingDevice device(memory, FailingDevice::kReads);
  bool struck = true;
  for (std::int64_t nth = 0; struck; ++nth) {
    device.FailAt(nth, true);
    const std::string text = Unsoundness(whole, sound, device);
    struck = device.HasFailed();
    EXPECT_EQ(text.empty(), !struck) << nth;
  }
}

}  // namespace
}  // namespace vornalux::test
