// SPDX-License-Identifier: GPL-2.0-or-later
#include <algorithm>

#include "check/ntfs_check.h"
#include "host/image/device/little_endian.h"
#include "host/image/ntfs/ntfs_names.h"
#include "host/image/opening/image_file.h"
#include "host/image/volume/refused.h"
#include "support/image_folder.h"
#include "support/seed.h"
#include "text/wtf8.h"
#include "volumes/maker/maker_editor.h"
#include "volumes/ntfs/ntfs_image.h"

namespace vornalux::test {
namespace {

using NtfsOpening = ImageFolder;

TEST_F(NtfsOpening, TellsWhatTheVolumeIsAndMarksItWhileAtWork) {
  Put("v.img", MakeStrange(4096, "size=8M files=40 folders=2", 8));
  Run("ntfslabel v.img Tést");
  OpenOptions options;
  options.writable = true;
  OpenReport report;
  const auto volume = OpenImage(Path("v.img"), options, report);
  EXPECT_EQ(volume->Facts().file_system, "NTFS");
  EXPECT_EQ(volume->Facts().label, "Tést");
  EXPECT_EQ(volume->Facts().serial, LoadLittle<std::uint64_t>(Get("v.img"), 0x48));
  EXPECT_EQ(volume->Facts().sectors_per_cluster, 8U);
  EXPECT_EQ(volume->Facts().total_clusters, (8 << 20) / 4096 - 1);
  EXPECT_FALSE(volume->Dirty());

  const StreamRef file = FindStream(*volume, "marked");
  ASSERT_EQ(volume->Move(file, 0, FreeRun(*volume, 0, 1), 1), error::kSuccess);
  ASSERT_EQ(volume->Commit(), error::kSuccess);
  EXPECT_TRUE(CheckNtfs(Path("v.img")).dirty);
  ASSERT_EQ(volume->Close(), error::kSuccess);
  EXPECT_FALSE(CheckNtfs(Path("v.img")).dirty);
}

// The first index entry of a folder says that it is the folder itself.
TEST(NtfsReading, FoldersInsideThemselvesAreListedOnce) {
  Bytes image = MakeNtfs("ntfs size=8M files=20 folders=3");
  const CheckReport report = CheckNtfs(MemorySource(image));
  NtfsEditor editor(image, report);
  // Items come in the order of their paths: what lies in a folder follows it.
  const auto folder = std::adjacent_find(report.items.begin(), report.items.end(),
                                         [](const CheckedItem& item, const CheckedItem& next) {
                                           return item.is_folder && item.extents.empty() &&
                                                  next.path.starts_with(item.path + "/");
                                         });
  const ItemId outer = folder->id | Get(editor.RawRecord(folder->id), 16, 2) << 48;
  constexpr std::uint32_t kIndexRoot = 0x90;
  editor.Attribute(
      folder->id, kIndexRoot,
      [&](ByteSpan a) {
        const std::size_t header = Get(a, 20, 2) + 16;
        const std::size_t entry = header + Get(a, header, 4);
        Put(a, entry, 8, outer);
        Put(a, entry + 16 + 56, 4, 0x10000000);  // what its name says: a folder
      },
      4);
  MemoryVolume volume(editor.bytes);
  std::vector<FolderItem> items;
  ASSERT_EQ(volume->ListFolder(volume->Root(), items), error::kSuccess);
  ASSERT_EQ(volume->ListFolder(outer, items), error::kSuccess);
  const auto self = std::find_if(items.begin(), items.end(),
                                 [&](const FolderItem& item) { return item.id == outer; });
  ASSERT_NE(self, items.end());
  EXPECT_EQ(volume->ListFolder(self->id, items), error::kFileCorrupt);
}

// Whatever is asked for while a large folder is listed, the list is the same.
TEST(NtfsReading, OtherThingsAreReadWhileAFolderIsListed) {
  MemoryVolume volume(MakeNtfs("ntfs size=48M files=5000 crowd=4500 folders=9 odd-names=30%"));
  std::vector<FolderItem> root;
  ASSERT_EQ(volume->ListFolder(volume->Root(), root), error::kSuccess);
  const auto crowd = std::find_if(root.begin(), root.end(),
                                  [](const FolderItem& item) { return item.name == "Crowd"; });
  ASSERT_NE(crowd, root.end());
  std::vector<FolderItem> calm;
  ASSERT_EQ(volume->ListFolder(crowd->id, calm), error::kSuccess);
  for (const std::size_t enough : {std::size_t{2}, calm.size()}) {
    std::size_t asked = 0;
    FolderListing listing([&] {
      std::vector<Extent> extents;
      std::vector<FolderItem> items;
      for (const FolderItem& item : root) {
        EXPECT_EQ(volume->Extents({item.id, ""}, extents), error::kSuccess);
        volume->ListFolder(item.id, items);
        if (extents.empty()) continue;
        EXPECT_EQ(volume->Move({item.id, ""}, 0, FreeRun(*volume, 0, 1), 1), error::kNotReady);
      }
      return ++asked < enough;
    });
    const ErrorCode code = volume->List(crowd->id, listing);
    EXPECT_EQ(code, enough == 2 ? error::kOperationAborted : error::kSuccess);
    EXPECT_GE(asked, 2U);
    if (code != error::kSuccess) continue;
    ASSERT_EQ(listing.Size(), calm.size());
    for (std::size_t i = 0; i < calm.size(); ++i) {
      ASSERT_EQ(listing.Name(i), calm[i].name);
      ASSERT_EQ(listing.Id(i), calm[i].id);
      // Forwards, backwards, and here and there.
      for (const std::size_t at : {i, calm.size() - 1 - i, i * 7919 % calm.size()}) {
        ASSERT_EQ(listing.Find(*volume, calm[at].name), at);
      }
    }
  }
}

// The order of a folder: by upper case units, whichever bytes they come from.
TEST(NtfsReading, NamesAreOrderedByTheirUnits) {
  std::vector<ntfschar> table(0x10000);
  for (std::size_t i = 0; i < table.size(); ++i) {
    const auto unit = static_cast<char16_t>(i);
    table[i] = cpu_to_le16(unit >= 'a' && unit <= 'z' ? unit - 32 : unit == 0x131 ? 'I' : unit);
  }
  const UpcaseTable upcase(table.data(), table.size());
  TestRandom random;
  const char16_t units[] = {u'a', u'A', u'B', u'i', u'I', 0x131, 0xE4, 0xD83D, 0xDE00, 0xFFFD};
  const auto name = [&] {
    std::u16string text(random() % 4, u'\0');
    for (char16_t& unit : text) unit = units[random() % std::size(units)];
    return text;
  };
  for (int i = 0; i < 20000; ++i) {
    const std::u16string a = name();
    const std::u16string b = name();
    EXPECT_EQ(upcase.Before(ToWtf8(a), ToWtf8(b)),
              std::pair(upcase.Fold(a), a) < std::pair(upcase.Fold(b), b));
    EXPECT_EQ(upcase.FoldAscii(ToWtf8(a)).value_or(ToWtf8(upcase.Fold(a))), ToWtf8(upcase.Fold(a)));
  }
}

// A record that the attribute list of one file names says that it is the other's.
TEST(NtfsReading, RecordsOfAnotherFileAreNotTakenForOwn) {
  Bytes image = MakeNtfs("ntfs size=8M cluster=512 files=5 shredded=2:600");
  const CheckReport report = CheckNtfs(MemorySource(image));
  NtfsEditor editor(image, report);
  MemoryVolume sound(image);
  const StreamRef thief = FindStream(*sound, "shredded 0.bin");
  const StreamRef owner = FindStream(*sound, "shredded 1.bin");
  constexpr std::uint64_t kNumber = 0xFFFFFFFFFFFF;
  const std::uint64_t stolen = Get(editor.LaterDataEntry(thief.item & kNumber), 16, 6);
  editor.Record(stolen, [&](ByteSpan record) { Put(record, 0x20, 8, owner.item); });
  EXPECT_THROW(MemoryVolume{editor.bytes}, VolumeRefused);
  MemoryVolume volume(editor.bytes, true);
  std::vector<Extent> extents;
  EXPECT_EQ(volume->Extents(owner, extents), error::kSuccess);
  EXPECT_EQ(extents.size(), 600U);
  const std::int64_t last = extents.back().NextVcn - 1;
  EXPECT_EQ(volume->Extents(thief, extents), error::kFileCorrupt);
  EXPECT_EQ(volume->Move(thief, last, FreeRun(*volume, 0, 1), 1), error::kFileCorrupt);
}

}  // namespace
}  // namespace vornalux::test
