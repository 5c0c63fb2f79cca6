// SPDX-License-Identifier: GPL-2.0-or-later
// Moves where the library needs more than the file's own record, or fails.
#include <gtest/gtest.h>

#include "check/ntfs_check.h"
#include "volumes/maker/maker_editor.h"
#include "volumes/ntfs/ntfs_image.h"

namespace vornalux::test {
namespace {

constexpr int kCluster = 512;

std::vector<Extent> ExtentsOf(MountedVolume& volume, const StreamRef& stream) {
  std::vector<Extent> extents;
  EXPECT_EQ(volume.Extents(stream, extents), error::kSuccess);
  return extents;
}

// Each cluster comes to lie somewhere before the one that it follows.
void Shatter(MountedVolume& volume, const StreamRef& stream, std::int64_t lcn) {
  const std::int64_t clusters = ExtentsOf(volume, stream).back().NextVcn;
  for (std::int64_t vcn = clusters - 1; vcn >= 0; --vcn, ++lcn) {
    lcn = FreeRun(volume, lcn, 1);
    ASSERT_EQ(volume.Move(stream, vcn, lcn, 1), error::kSuccess) << vcn;
  }
  ASSERT_EQ(std::ssize(ExtentsOf(volume, stream)), clusters);
}

// Thousands of extents mean an attribute list and dozens of records, made and taken back in turns.
TEST(NtfsExtremes, FilesOfThousandsOfExtentsAreJoinedAndScattered) {
  constexpr std::int64_t kPieces = 3000;
  Bytes image =
      MakeNtfs("ntfs size=16M cluster=512 files=3", {{"shattered", kPieces * kCluster - 100}});
  const std::set<std::string> before = Snapshot(image);
  MemoryVolume volume(image);
  const StreamRef stream = FindStream(*volume, "shattered");
  Shatter(*volume, stream, 12000);
  const std::int64_t whole = FreeRun(*volume, 20000, kPieces);
  for (std::int64_t vcn = 0; vcn < kPieces; ++vcn) {
    ASSERT_EQ(volume->Move(stream, vcn, whole + vcn, 1), error::kSuccess) << vcn;
  }
  ASSERT_EQ(ExtentsOf(*volume, stream).size(), 1U);
  Shatter(*volume, stream, 8000);
  const std::int64_t end = FreeRun(*volume, 24000, kPieces);
  ASSERT_EQ(volume->Move(stream, 0, end, kPieces), error::kSuccess);
  EXPECT_EQ(ExtentsOf(*volume, stream), std::vector<Extent>({{kPieces, end}}));
  ASSERT_EQ(volume.Finish(image), error::kSuccess);
  EXPECT_EQ(Complaint(image, before), "");
}

// With no cluster free but the target, the library cannot make the attribute list that more
// extents need: it gives up half-way.
TEST(NtfsExtremes, MovesThatTheLibraryCannotFinishChangeNothing) {
  Bytes image = MakeNtfs("ntfs size=4M cluster=512 files=3",
                         {{"victim", 400 * kCluster}, {"other", 7 * kCluster}});
  const std::set<std::string> before = Snapshot(image);
  const CheckReport report = CheckNtfs(MemorySource(image));
  NtfsEditor editor(image, report);
  std::vector<std::int64_t> filled;
  for (std::int64_t lcn = 0; lcn < report.clusters; ++lcn) {
    if (!editor.ClusterBit(lcn)) filled.push_back(lcn);
  }
  std::erase(filled, filled[filled.size() / 2]);
  for (const std::int64_t lcn : filled) editor.FlipClusterBit(lcn);

  MemoryVolume volume(editor.bytes);
  const StreamRef stream = FindStream(*volume, "victim");
  int full = 0;
  for (std::int64_t vcn = 0; vcn < 400; vcn += 2) {
    const std::vector<Extent> extents = ExtentsOf(*volume, stream);
    ASSERT_EQ(volume->FreeClusters(), 1);
    const ErrorCode code = volume->Move(stream, vcn, FreeRun(*volume, 0, 1), 1);
    if (code == error::kSuccess) continue;
    ASSERT_EQ(code, error::kDiskFull);
    EXPECT_EQ(ExtentsOf(*volume, stream), extents) << vcn;
    ++full;
  }
  EXPECT_GT(full, 10);
  ASSERT_EQ(volume.Finish(editor.bytes), error::kSuccess);
  for (const std::int64_t lcn : filled) editor.FlipClusterBit(lcn);
  EXPECT_EQ(Complaint(editor.bytes, before), "");
}

// Every read that a move makes fails once: the move either fails and changes nothing, or succeeds.
TEST(NtfsExtremes, ReadErrorsDuringMovesChangeNothing) {
  Bytes image =
      MakeStrange(512, "size=4M files=20 compressed=15%", 6, {{"shattered", 300 * kCluster}});
  const std::set<std::string> before = Snapshot(image);
  MemoryVolume first(image);
  const StreamRef shattered = FindStream(*first, "shattered");
  Shatter(*first, shattered, 2100);
  const StreamRef root{first->Root(), ""};
  ASSERT_EQ(first.Finish(image), error::kSuccess);
  for (const StreamRef& stream : {root, shattered}) {
    int failures = 0;
    bool struck = true;
    for (std::int64_t nth = 0; struck; ++nth) {
      SCOPED_TRACE("item " + std::to_string(stream.item) + ", read " + std::to_string(nth));
      MemoryVolume volume(image);
      const std::vector<Extent> extents = ExtentsOf(*volume, stream);
      const auto vcn = static_cast<std::int64_t>(extents.size() / 2);
      const std::int64_t target = FreeRun(*volume, 5000, 1);
      std::vector<FolderItem> items;  // the item is not at hand any more once another one was
      volume->ListFolder(stream.item == shattered.item ? root.item : shattered.item, items);
      volume.Device().FailAt(nth, false);
      const ErrorCode code = volume->Move(stream, vcn, target, 1);
      struck = volume.Device().HasFailed();
      volume.Device().FailAt(-1, false);
      if (code != error::kSuccess) {
        ++failures;
        ASSERT_EQ(ExtentsOf(*volume, stream), extents);
        volume->Move(stream, vcn, target, 1);
      }
      Bytes after;
      volume.Finish(after);
      EXPECT_EQ(Complaint(after, before), "");
    }
    EXPECT_GT(failures, 4);
  }
}

// $MFT may be moved but for its start, as long as its own record has room for where it lies.
TEST(NtfsExtremes, MftMovesUntilItsRecordIsFull) {
  Bytes image = MakeNtfs("ntfs size=64M cluster=512 files=600 fill=20%");
  const std::set<std::string> before = Snapshot(image);
  MemoryVolume volume(image);
  const StreamRef data = FindStream(*volume, "$MFT");
  const std::int64_t clusters = ExtentsOf(*volume, data).back().NextVcn;
  EXPECT_EQ(volume->Move(data, 15, FreeRun(*volume, 20000, 1), 1), error::kAccessDenied);
  EXPECT_EQ(volume->Move({data.item, "::$BITMAP"}, 0, FreeRun(*volume, 20000, 1), 1),
            error::kSuccess);
  int moved = 0;
  ErrorCode code = error::kSuccess;
  for (std::int64_t vcn = 17; vcn < clusters && code == error::kSuccess; vcn += 2, ++moved) {
    code = volume->Move(data, vcn, FreeRun(*volume, 20000 + 2 * vcn, 1), 1);
  }
  EXPECT_EQ(code, error::kAccessDenied);
  EXPECT_GT(moved, 50);
  const std::size_t scattered = ExtentsOf(*volume, data).size();
  EXPECT_EQ(volume->Move(data, 16, FreeRun(*volume, 0, 100), 100), error::kSuccess);
  EXPECT_LT(ExtentsOf(*volume, data).size(), scattered - 80);
  for (const ItemId record : {1U, 2U, 3U, 4U, 6U, 7U, 8U, 9U, 10U, 11U}) {
    const ErrorCode other = volume->Move({record, ""}, 0, FreeRun(*volume, 20000, 1), 1);
    EXPECT_NE(other, error::kSuccess) << record;
  }
  ASSERT_EQ(volume.Finish(image), error::kSuccess);
  EXPECT_EQ(Complaint(image, before), "");
}

}  // namespace
}  // namespace vornalux::test
