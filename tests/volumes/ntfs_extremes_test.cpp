// SPDX-License-Identifier: GPL-2.0-or-later
// Moves where the library needs more than the file's own record, or fails.
#include <gtest/gtest.h>

#include <algorithm>

#include "check/ntfs_check.h"
#include "volumes/ntfs_image.h"

namespace vornalux::test {
namespace {

constexpr int kCluster = 512;

std::vector<Extent> ExtentsOf(MountedVolume& volume, const StreamRef& stream) {
  std::vector<Extent> extents;
  EXPECT_EQ(volume.Extents(stream, extents), error::kSuccess);
  return extents;
}

class NtfsExtremes : public testing::Test {
 protected:
  NtfsExtremes() : image_("extremes") {}

  void Expect(const std::map<std::string, std::string>& before) const {
    EXPECT_EQ(Complaint(image_, before), "");
  }

  ImageFile image_;
};

// Thousands of extents mean an attribute list and dozens of records, made and taken back in turns.
TEST_F(NtfsExtremes, FilesOfThousandsOfExtentsAreJoinedAndScattered) {
  constexpr std::int64_t kPieces = 3000;
  MakeNtfs(image_, 16 << 20, kCluster);
  std::map<std::string, std::string> before;
  StreamRef stream;
  {
    LibraryVolume library(image_, LibraryVolume::Mode::ReadWrite);
    stream.item =
        library.AddShattered(FILE_root, u"shattered", Content(kPieces * kCluster - 100, 3), 12000);
    before = library.Snapshot();
  }
  Expect(before);
  MemoryVolume volume(image_.Content());
  ASSERT_EQ(ExtentsOf(*volume, stream).size(), kPieces);

  const std::int64_t whole = FreeRun(*volume, 20000, kPieces);
  for (std::int64_t vcn = 0; vcn < kPieces; ++vcn) {
    ASSERT_EQ(volume->Move(stream, vcn, whole + vcn, 1), error::kSuccess) << vcn;
  }
  ASSERT_EQ(ExtentsOf(*volume, stream).size(), 1U);
  for (std::int64_t vcn = kPieces - 1; vcn >= 0; --vcn) {
    ASSERT_EQ(volume->Move(stream, vcn, FreeRun(*volume, 8000 + 2 * vcn, 1), 1), error::kSuccess);
  }
  ASSERT_GT(ExtentsOf(*volume, stream).size(), 1000U);
  const std::int64_t end = FreeRun(*volume, 24000, kPieces);
  ASSERT_EQ(volume->Move(stream, 0, end, kPieces), error::kSuccess);
  EXPECT_EQ(ExtentsOf(*volume, stream), std::vector<Extent>({{kPieces, end}}));
  ASSERT_EQ(volume.Finish(image_), error::kSuccess);
  Expect(before);
}

// With no cluster free but the target, the library cannot make the attribute list that more
// extents need: it gives up half-way.
TEST_F(NtfsExtremes, MovesThatTheLibraryCannotFinishChangeNothing) {
  MakeNtfs(image_, 4 << 20, kCluster);
  std::map<std::string, std::string> before;
  StreamRef stream;
  {
    LibraryVolume library(image_, LibraryVolume::Mode::ReadWrite);
    stream.item = library.AddFile(FILE_root, u"victim", Content(400 * kCluster, 4));
    library.AddFile(FILE_root, u"other", Content(7 * kCluster, 5));
    library.Fill(1);
    before = library.Snapshot();
  }
  Expect(before);
  MemoryVolume volume(image_.Content());
  int full = 0;
  std::int64_t target = FreeRun(*volume, 0, 1);
  for (std::int64_t vcn = 0; vcn < 400; vcn += 2) {
    const std::vector<Extent> extents = ExtentsOf(*volume, stream);
    const std::int64_t free = volume->FreeClusters();
    target = FreeRun(*volume, target, 1);
    if (target < 0) target = FreeRun(*volume, 0, 1);
    const ErrorCode code = volume->Move(stream, vcn, target, 1);
    EXPECT_EQ(volume->FreeClusters(), free) << vcn;
    if (code == error::kSuccess) continue;
    ASSERT_EQ(code, error::kDiskFull);
    EXPECT_EQ(ExtentsOf(*volume, stream), extents) << vcn;
    ++full;
  }
  EXPECT_GT(full, 10);
  ASSERT_EQ(volume.Finish(image_), error::kSuccess);
  Expect(before);
}

// Every read that a move makes fails once: the move either fails and changes nothing, or succeeds.
TEST_F(NtfsExtremes, ReadErrorsDuringMovesChangeNothing) {
  MakeFilled(image_, 4 << 20, kCluster, 20, 6);
  std::map<std::string, std::string> before;
  StreamRef shattered;
  {
    LibraryVolume library(image_, LibraryVolume::Mode::ReadWrite);
    shattered.item =
        library.AddShattered(FILE_root, u"shattered", Content(300 * kCluster, 6), 2100);
    before = library.Snapshot();
  }
  const Bytes whole = image_.Content();
  for (const StreamRef& stream : {StreamRef{FILE_root, ""}, shattered}) {
    int failures = 0;
    bool struck = true;
    for (std::int64_t nth = 0; struck; ++nth) {
      SCOPED_TRACE("item " + std::to_string(stream.item) + ", read " + std::to_string(nth));
      MemoryVolume volume(whole);
      const std::vector<Extent> extents = ExtentsOf(*volume, stream);
      const auto vcn = static_cast<std::int64_t>(extents.size() / 2);
      const std::int64_t target = FreeRun(*volume, 5000, 1);
      std::vector<FolderItem> items;  // the item is not at hand any more once another one was
      volume->ListFolder(stream.item == shattered.item ? ItemId{FILE_root} : shattered.item, items);
      volume.Device().FailAt(nth, false);
      const ErrorCode code = volume->Move(stream, vcn, target, 1);
      struck = volume.Device().HasFailed();
      volume.Device().FailAt(-1, false);
      if (code != error::kSuccess) {
        ++failures;
        ASSERT_EQ(ExtentsOf(*volume, stream), extents);
        volume->Move(stream, vcn, target, 1);
      }
      volume.Finish(image_);
      Expect(before);
    }
    EXPECT_GT(failures, 4);
  }
}

// $MFT may be moved but for its start, as long as its own record has room for where it lies.
TEST_F(NtfsExtremes, MftMovesUntilItsRecordIsFull) {
  MakeNtfs(image_, 16 << 20, kCluster);
  std::map<std::string, std::string> before;
  {
    LibraryVolume library(image_, LibraryVolume::Mode::ReadWrite);
    for (char16_t letter = 0x3400; letter < 0x3400 + 600; ++letter) {
      library.AddFile(FILE_root, std::u16string(1, letter));
    }
    before = library.Snapshot();
  }
  MemoryVolume volume(image_.Content());
  const auto mft = volume->HiddenItem(volume->Root(), "$mft");
  ASSERT_TRUE(mft);
  const StreamRef data{mft->id, ""};
  const std::int64_t clusters = ExtentsOf(*volume, data).back().NextVcn;
  EXPECT_EQ(volume->Move(data, 15, FreeRun(*volume, 20000, 1), 1), error::kAccessDenied);
  EXPECT_EQ(volume->Move({mft->id, "::$BITMAP"}, 0, FreeRun(*volume, 20000, 1), 1),
            error::kSuccess);
  int moved = 0;
  ErrorCode code = error::kSuccess;
  for (std::int64_t vcn = 17; vcn < clusters && code == error::kSuccess; vcn += 2, ++moved) {
    code = volume->Move(data, vcn, FreeRun(*volume, 20000 + 2 * vcn, 1), 1);
  }
  EXPECT_EQ(code, error::kAccessDenied);
  EXPECT_GT(moved, 50);
  EXPECT_EQ(volume->Move(data, 16, FreeRun(*volume, 0, clusters), clusters), error::kSuccess);
  EXPECT_EQ(ExtentsOf(*volume, data).size(), 2U);
  for (const ItemId record : {1U, 2U, 3U, 4U, 6U, 7U, 8U, 9U, 10U, 11U}) {
    const ErrorCode other = volume->Move({record, ""}, 0, FreeRun(*volume, 20000, 1), 1);
    EXPECT_NE(other, error::kSuccess) << record;
  }
  ASSERT_EQ(volume.Finish(image_), error::kSuccess);
  Expect(before);
}

}  // namespace
}  // namespace vornalux::test
