// SPDX-License-Identifier: GPL-2.0-or-later
// The contract of looking at a volume.
#include <algorithm>
#include <array>
#include <bit>
#include <set>

#include "host/mounted/mounted_platform.h"
#include "volumes/contract/contract.h"

namespace vornalux::contract {

TEST_P(VolumeContract, GeometryAgreesWithTheBitmap) {
  const VolumeFacts& facts = Volume().Facts();
  ASSERT_GT(facts.total_clusters, 0);
  EXPECT_TRUE(std::has_single_bit(facts.bytes_per_sector));
  EXPECT_TRUE(std::has_single_bit(facts.sectors_per_cluster));
  EXPECT_EQ(facts.file_system == "NTFS", Volume().NtfsData().has_value());

  std::int64_t free = 0;
  const std::vector<std::uint8_t> bitmap = WholeBitmap(Volume());
  for (std::int64_t lcn = 0; lcn < facts.total_clusters; ++lcn) free += IsUsed(bitmap, lcn) ? 0 : 1;
  EXPECT_EQ(free, Volume().FreeClusters());
  EXPECT_GT(free, 0);
}

TEST_P(VolumeContract, BitmapReadsAlikeInAnyPieces) {
  const std::vector<std::uint8_t> whole = WholeBitmap(Volume());
  for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, std::size_t{512}}) {
    std::vector<std::uint8_t> joined;
    for (std::size_t at = 0; at < whole.size(); at += piece) {
      std::vector<std::uint8_t> bits(std::min(piece, whole.size() - at));
      Volume().CopyBitmap(static_cast<std::int64_t>(at) * 8, bits);
      joined.insert(joined.end(), bits.begin(), bits.end());
    }
    EXPECT_EQ(joined, whole) << "pieces of " << piece;
  }
  // Past the end there is nothing in use, whatever was in the buffer.
  const std::int64_t total = Volume().Facts().total_clusters;
  std::array<std::uint8_t, 16> tail{};
  tail.fill(0xFF);
  Volume().CopyBitmap(total / 8 * 8, tail);
  EXPECT_EQ(tail[0] >> (total % 8), 0);
  EXPECT_TRUE(std::all_of(tail.begin() + 1, tail.end(), [](std::uint8_t b) { return b == 0; }));
}

TEST_P(VolumeContract, NamesComeInTheVolumesOrder) {
  if (!GetParam().sorted) return;  // the kind's own tests know the order of creation
  std::size_t compared = 0;
  for (const KnownStream& folder : streams_) {
    if (!folder.IsFolder() || folder.IsNamed()) continue;
    std::vector<FolderItem> items;
    ASSERT_EQ(Volume().ListFolder(folder.ref.item, items), error::kSuccess);
    std::vector<std::string> names;  // ASCII ones: for those upper case is no matter of opinion
    for (const FolderItem& item : items) {
      if (std::all_of(item.name.begin(), item.name.end(), [](char c) { return c > 0; })) {
        names.push_back(Volume().FoldName(item.name));
      }
    }
    EXPECT_TRUE(std::is_sorted(names.begin(), names.end())) << folder.path;
    compared += names.size();
  }
  EXPECT_GT(compared, 10U);
}

TEST_P(VolumeContract, NamesAreFoundWhateverTheirCase) {
  MountedPlatform platform;
  platform.Mount('Q', Volume());
  for (const KnownStream& stream : streams_) {
    // A stream's type is no name: "$data" would be another type.
    const std::string path =
        R"(\\?\Q:\)" + (stream.IsNamed() ? stream.path : FlipCase(stream.path));
    const OpenedFile opened =
        platform.OpenPath(path, FileAccess::ReadAttributes, FileFlags::BackupSemantics);
    ASSERT_EQ(opened.error, error::kSuccess) << path;
    ExtentChunk chunk;
    const ErrorCode error = platform.RetrievalPointers(opened.handle, 0, 1 << 20, chunk);
    EXPECT_EQ(error, stream.extents.empty() ? error::kHandleEof : error::kSuccess) << path;
    EXPECT_EQ(chunk.extents, stream.extents) << path;
    platform.CloseFile(opened.handle);
  }
  EXPECT_EQ(platform.OpenHandles(), 0U);
}

TEST_P(VolumeContract, BitmapCoversExtentsAndNoClusterHasTwoOwners) {
  std::vector<KnownStream> owners = streams_;
  if (const auto mft = Volume().HiddenItem(Volume().Root(), "$MFT")) {
    owners.push_back({.path = "$MFT", .ref = {mft->id, {}}, .attributes = 0, .extents = {}});
    owners.back().extents = ExtentsOf(owners.back().ref);
  }
  const std::vector<std::uint8_t> bitmap = WholeBitmap(Volume());
  std::vector<std::uint8_t> owned(bitmap.size());
  std::set<std::pair<ItemId, std::string>> seen;  // a file with two names owns its clusters once
  for (const KnownStream& stream : owners) {
    if (!seen.emplace(stream.ref.item, stream.ref.stream).second) continue;
    for (const std::int64_t lcn : PlaceOfEach(stream.extents)) {
      if (lcn < 0) continue;
      ASSERT_LT(lcn, Volume().Facts().total_clusters) << stream.path;
      ASSERT_FALSE(IsUsed(owned, lcn)) << stream.path << ", cluster " << lcn << " owned twice";
      ASSERT_TRUE(IsUsed(bitmap, lcn)) << stream.path << ", cluster " << lcn << " is free";
      owned[static_cast<std::size_t>(lcn / 8)] |= static_cast<std::uint8_t>(1U << (lcn % 8));
    }
  }
  if (GetParam().all_visible) {
    EXPECT_EQ(owned, bitmap);
  }
}

TEST_P(VolumeContract, NamedStreamsAreListedAndReadable) {
  const KnownStream* named = Find([](const KnownStream& s) { return s.IsNamed(); });
  ASSERT_EQ(named != nullptr, GetParam().has_streams);
  const KnownStream& file = PlainFile(1);
  std::vector<std::string> names;
  ASSERT_EQ(Volume().StreamNames(file.ref.item, names), error::kSuccess);
  EXPECT_EQ(std::count(names.begin(), names.end(), "::$DATA"), 1);
  std::vector<Extent> extents;
  EXPECT_EQ(Volume().Extents({file.ref.item, ":no such:$DATA"}, extents), error::kFileNotFound);
  if (named == nullptr) return;

  const std::string& full = named->ref.stream;
  ASSERT_TRUE(full.starts_with(':') && full.ends_with(":$DATA")) << full;
  const StreamRef brief{named->ref.item, full.substr(0, full.size() - 6)};
  EXPECT_EQ(ExtentsOf(brief), named->extents);
}

TEST_P(VolumeContract, UnknownItemsAreErrorsNotCrashes) {
  for (const ItemId id : {ItemId{0x7FFFFFFF}, ItemId{1} << 47, ~ItemId{0}}) {
    std::vector<FolderItem> items;
    std::vector<Extent> extents;
    std::vector<std::string> names;
    EXPECT_NE(Volume().ListFolder(id, items), error::kSuccess);
    EXPECT_NE(Volume().Extents({id, {}}, extents), error::kSuccess);
    EXPECT_NE(Volume().StreamNames(id, names), error::kSuccess);
    EXPECT_NE(Volume().Move({id, {}}, 0, 0, 1), error::kSuccess);
  }
  std::vector<FolderItem> items;
  EXPECT_NE(Volume().ListFolder(PlainFile(1).ref.item, items), error::kSuccess);
  EXPECT_FALSE(Volume().HiddenItem(Volume().Root(), "no such item").has_value());
}

TEST_P(VolumeContract, ReadingStopsAtTheEndAndAgreesInAnyPieces) {
  const KnownStream& file = PlainFile(3);
  std::vector<std::uint8_t> whole(std::size_t{1} << 20);
  std::size_t done = 0;
  ASSERT_EQ(Volume().Read(file.ref, 0, whole, done), error::kSuccess);
  ASSERT_GT(done, 0U);
  whole.resize(done);
  std::vector<std::uint8_t> joined;
  std::vector<std::uint8_t> piece(611);
  for (done = piece.size(); done == piece.size() && joined.size() < whole.size();) {
    ASSERT_EQ(Volume().Read(file.ref, joined.size(), piece, done), error::kSuccess);
    joined.insert(joined.end(), piece.begin(), piece.begin() + static_cast<std::ptrdiff_t>(done));
  }
  EXPECT_EQ(Volume().Read(file.ref, std::uint64_t{1} << 40, piece, done), error::kSuccess);
  EXPECT_EQ(done, 0U);
  joined.resize(std::min(joined.size(), whole.size()));
  EXPECT_EQ(joined, whole);
}

}  // namespace vornalux::contract
