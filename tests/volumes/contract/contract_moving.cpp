// SPDX-License-Identifier: GPL-2.0-or-later
// The contract of moving clusters.
#include <algorithm>
#include <limits>
#include <utility>

#include "volumes/contract/contract.h"

namespace vornalux::contract {

namespace {

constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();

// What a move must answer and do, by its plain definition.
struct Expected {
  ErrorCode error = error::kSuccess;
  std::vector<std::int64_t> places;
};

Expected Expect(const std::vector<std::int64_t>& places, const std::vector<std::uint8_t>& bitmap,
                std::int64_t clusters, std::int64_t vcn, std::int64_t lcn, std::int64_t count) {
  const auto size = static_cast<std::int64_t>(places.size());
  if (count < 1 || vcn < 0 || vcn >= size || lcn < 0 || lcn >= clusters) {
    return {error::kInvalidParameter, places};
  }
  Expected expected{error::kSuccess, places};
  bool taken = false;
  for (std::int64_t at = vcn; at < size && at - vcn < count; ++at) {
    std::int64_t& place = expected.places[static_cast<std::size_t>(at)];
    if (place < 0) continue;
    if (lcn >= clusters) return {error::kInvalidParameter, places};
    taken = taken || IsUsed(bitmap, lcn);
    place = lcn++;
  }
  if (taken) return {error::kAccessDenied, places};
  return expected;
}

void Mark(std::vector<std::uint8_t>& bitmap, const std::vector<std::int64_t>& places, bool used) {
  for (const std::int64_t lcn : places) {
    if (lcn < 0) continue;
    std::uint8_t& byte = bitmap[static_cast<std::size_t>(lcn / 8)];
    const auto bit = static_cast<std::uint8_t>(1U << (lcn % 8));
    byte = static_cast<std::uint8_t>(used ? byte | bit : byte & ~bit);
  }
}

std::pair<ItemId, std::string> Key(const KnownStream& stream) {
  return {stream.ref.item, stream.ref.stream};
}

}  // namespace

TEST_P(VolumeContract, ClosedVolumesMoveNothing) {
  const KnownStream& file = PlainFile(1);
  const std::int64_t free = FindFree(WholeBitmap(Volume()), Volume().Facts().total_clusters, 1);
  ASSERT_EQ(Volume().Close(), error::kSuccess);
  EXPECT_NE(Volume().Move(file.ref, 0, free, 1), error::kSuccess);
  EXPECT_EQ(ExtentsOf(file.ref), file.extents);
}

// Any moves, possible and impossible, do what the plain definition says, and no content is lost.
TEST_P(VolumeContract, RandomMovesFollowTheDefinitionAndKeepAllContent) {
  SeededRandom random(seed_);
  const std::int64_t total = Volume().Facts().total_clusters;
  const auto contents = Contents(Volume(), streams_);
  std::vector<std::uint8_t> bitmap = WholeBitmap(Volume());
  // By item and not by path: a file may have two names.
  std::map<std::pair<ItemId, std::string>, std::vector<std::int64_t>> model;
  for (const KnownStream& stream : streams_) model[Key(stream)] = PlaceOfEach(stream.extents);

  int moved = 0;
  bool moved_folder = false;
  bool moved_around_hole = false;
  for (int step = 0; step < 800; ++step) {
    const auto pick = random.Below(static_cast<std::int64_t>(streams_.size()));
    const KnownStream& stream = streams_[static_cast<std::size_t>(pick)];
    std::vector<std::int64_t>& places = model[Key(stream)];
    const auto size = static_cast<std::int64_t>(places.size());
    std::int64_t vcn = random.Chance(0.5) ? 0 : random.Below(size + 1);
    std::int64_t count = random.Chance(0.5) ? size : random.Between(1, size + 1);
    std::int64_t lcn = random.Below(total);
    if (random.Chance(0.8)) {
      const std::int64_t fits = FindFree(bitmap, total, std::max<std::int64_t>(count, 1), lcn);
      if (fits >= 0) lcn = fits;
    }
    if (random.Chance(0.1)) {
      std::int64_t* const numbers[] = {&vcn, &lcn, &count};
      const std::int64_t edges[] = {-1, 0, size, total - 1, total, kMost};
      *numbers[random.Below(3)] = edges[random.Below(6)];
    }
    SCOPED_TRACE("step " + std::to_string(step) + ": " + stream.path + " vcn " +
                 std::to_string(vcn) + " lcn " + std::to_string(lcn) + " count " +
                 std::to_string(count));
    Expected expected = Expect(places, bitmap, total, vcn, lcn, count);
    const ErrorCode error = Volume().Move(stream.ref, vcn, lcn, count);
    if (error != expected.error) {
      // The one freedom: items that cannot move.
      ASSERT_EQ(expected.error, error::kSuccess);
      ASSERT_EQ(error, error::kAccessDenied);
      expected.places = places;
    }
    Mark(bitmap, places, false);
    Mark(bitmap, expected.places, true);
    places = std::move(expected.places);
    ASSERT_EQ(PlaceOfEach(ExtentsOf(stream.ref)), places);
    if (GetParam().grows_metadata) {
      bitmap = WholeBitmap(Volume());
    } else {
      ASSERT_EQ(WholeBitmap(Volume()), bitmap);
    }
    if (error == error::kSuccess) {
      ++moved;
      moved_folder = moved_folder || (stream.IsFolder() && stream.ref.item != Volume().Root());
      moved_around_hole = moved_around_hole || std::count(places.begin(), places.end(), -1) > 0;
    }
    if (random.Chance(0.02)) {
      ASSERT_EQ(Volume().Commit(), error::kSuccess);
    }
  }
  EXPECT_GT(moved, 100);
  EXPECT_TRUE(moved_folder);
  EXPECT_EQ(moved_around_hole, GetParam().has_holes);
  EXPECT_EQ(Contents(Volume(), streams_), contents);

  ASSERT_EQ(subject_->CloseAndReopen(), error::kSuccess);
  const std::vector<KnownStream> again = Walk(Volume());
  ASSERT_EQ(again.size(), streams_.size());
  for (std::size_t i = 0; i < again.size(); ++i) {
    EXPECT_EQ(again[i].path, streams_[i].path);
    EXPECT_EQ(again[i].attributes, streams_[i].attributes) << again[i].path;
    EXPECT_EQ(again[i].attributes & attribute::kVolumeLabel, 0U) << again[i].path;
    EXPECT_EQ(PlaceOfEach(again[i].extents), model[Key(streams_[i])]) << again[i].path;
  }
  EXPECT_EQ(Contents(Volume(), again), contents);
  EXPECT_EQ(subject_->CloseAndJudge(), std::vector<std::string>{});
}

}  // namespace vornalux::contract
