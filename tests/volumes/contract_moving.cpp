// SPDX-License-Identifier: GPL-2.0-or-later
// The contract of moving clusters.
#include <algorithm>
#include <limits>
#include <utility>

#include "host/simulated/seeded_random.h"
#include "volumes/contract.h"

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

TEST_P(VolumeContract, ImpossibleMovesAreInvalidAndChangeNothing) {
  const KnownStream& file = PlainFile(2);
  const std::int64_t size = VcnCount(file.extents);
  const std::int64_t total = Volume().Facts().total_clusters;
  const std::int64_t free = FindFree(WholeBitmap(Volume()), total, 1);
  const struct {
    const char* what;
    std::int64_t vcn, lcn, count;
  } cases[] = {{"no clusters", 0, free, 0},
               {"negative count", 0, free, -1},
               {"negative VCN", -1, free, 1},
               {"negative LCN", 0, -1, 1},
               {"LCN at the end", 0, total, 1},
               {"LCN far out", 0, kMost, 1},
               {"start at the end of the file", size, free, 1},
               {"start far past the end", kMost, free, kMost},
               {"target leaves the volume", 0, total - 1, 2},
               {"all of the file at the last cluster", 0, total - 1, kMost}};
  const Snapshot before = Take(Volume(), streams_);
  for (const auto& move : cases) {
    EXPECT_EQ(Volume().Move(file.ref, move.vcn, move.lcn, move.count), error::kInvalidParameter)
        << move.what;
  }
  EXPECT_EQ(Take(Volume(), streams_), before);
}

TEST_P(VolumeContract, TakenTargetsAreRefusedAndChangeNothing) {
  const KnownStream& file = PlainFile(2);
  const std::int64_t total = Volume().Facts().total_clusters;
  const Snapshot before = Take(Volume(), streams_);
  EXPECT_EQ(Volume().Move(file.ref, 0, file.extents[0].Lcn, kMost), error::kAccessDenied)
      << "onto itself";
  EXPECT_EQ(Volume().Move(file.ref, 1, file.extents[0].Lcn, kMost), error::kAccessDenied)
      << "the rest onto the start";
  // The last free cluster before a used one: the first target cluster is free, the second is not.
  std::int64_t edge = 0;
  while (edge + 1 < total && (IsUsed(before.bitmap, edge) || !IsUsed(before.bitmap, edge + 1))) {
    ++edge;
  }
  ASSERT_LT(edge + 1, total);
  EXPECT_EQ(Volume().Move(file.ref, 0, edge, 2), error::kAccessDenied) << "half free";
  EXPECT_EQ(Take(Volume(), streams_), before);
}

TEST_P(VolumeContract, WholeFileMovesClippedAtItsEnd) {
  const KnownStream& file = PlainFile(3);
  const std::int64_t size = VcnCount(file.extents);
  const std::int64_t total = Volume().Facts().total_clusters;
  const auto contents = Contents(Volume(), streams_);
  const std::int64_t target = FindFree(WholeBitmap(Volume()), total, size);
  ASSERT_GE(target, 0);
  ASSERT_EQ(Volume().Move(file.ref, 0, target, kMost), error::kSuccess);
  EXPECT_EQ(ExtentsOf(file.ref), (std::vector<Extent>{{.NextVcn = size, .Lcn = target}}));

  const std::vector<std::uint8_t> after = WholeBitmap(Volume());
  for (const std::int64_t lcn : PlaceOfEach(file.extents)) {
    EXPECT_FALSE(IsUsed(after, lcn)) << "left cluster " << lcn << " is not free";
  }
  for (std::int64_t i = 0; i < size; ++i) EXPECT_TRUE(IsUsed(after, target + i));

  // Clusters just left can be used at once, by the same file as well.
  const std::int64_t back = PlaceOfEach(file.extents)[0];
  EXPECT_EQ(Volume().Move(file.ref, 0, back, 1), error::kSuccess);
  EXPECT_EQ(PlaceOfEach(ExtentsOf(file.ref))[0], back);
  EXPECT_EQ(Contents(Volume(), streams_), contents);
  EXPECT_EQ(subject_->CloseAndJudge(), std::vector<std::string>{});
}

TEST_P(VolumeContract, FoldersMoveAndKeepTheirItems) {
  const KnownStream* folder = Find([&](const KnownStream& s) {
    return s.IsFolder() && s.ref.item != Volume().Root() && !s.extents.empty();
  });
  ASSERT_NE(folder, nullptr);
  const std::int64_t size = VcnCount(folder->extents);
  const std::int64_t target =
      FindFree(WholeBitmap(Volume()), Volume().Facts().total_clusters, size);
  ASSERT_GE(target, 0);
  ASSERT_EQ(Volume().Move(folder->ref, 0, target, size), error::kSuccess);
  ASSERT_EQ(subject_->CloseAndReopen(), error::kSuccess);
  const std::vector<KnownStream> again = Walk(Volume());
  ASSERT_EQ(again.size(), streams_.size());
  for (std::size_t i = 0; i < again.size(); ++i) EXPECT_EQ(again[i].path, streams_[i].path);
  EXPECT_EQ(subject_->CloseAndJudge(), std::vector<std::string>{});
}

TEST_P(VolumeContract, HolesTakeNoTargetClusters) {
  const KnownStream* sparse = Find([](const KnownStream& s) {
    return s.extents.size() > 1 && (s.attributes & attribute::kCompressed) == 0 &&
           std::any_of(s.extents.begin(), s.extents.end(),
                       [](const Extent& extent) { return extent.Lcn < 0; });
  });
  ASSERT_EQ(sparse != nullptr, GetParam().has_holes);
  if (sparse == nullptr) return;

  const std::vector<std::int64_t> places = PlaceOfEach(sparse->extents);
  const auto hole = std::find(places.begin(), places.end(), -1) - places.begin();
  const std::int64_t total = Volume().Facts().total_clusters;
  const Snapshot before = Take(Volume(), streams_);
  EXPECT_EQ(Volume().Move(sparse->ref, hole, 0, 1), error::kSuccess) << "nothing but a hole";
  EXPECT_EQ(Take(Volume(), streams_), before);

  const auto contents = Contents(Volume(), streams_);
  const auto held = static_cast<std::int64_t>(places.size()) -
                    std::count(places.begin(), places.end(), std::int64_t{-1});
  const std::int64_t target = FindFree(before.bitmap, total, held);
  ASSERT_GE(target, 0);
  ASSERT_EQ(Volume().Move(sparse->ref, 0, target, kMost), error::kSuccess);
  EXPECT_EQ(PlaceOfEach(ExtentsOf(sparse->ref)),
            Expect(places, before.bitmap, total, 0, target, kMost).places);
  EXPECT_EQ(Contents(Volume(), streams_), contents);
  EXPECT_EQ(subject_->CloseAndJudge(), std::vector<std::string>{});
}

TEST_P(VolumeContract, StartOfTheMftStaysWhereItIs) {
  const auto mft = Volume().HiddenItem(Volume().Root(), "$mft");
  ASSERT_EQ(mft.has_value(), GetParam().has_mft);
  if (!mft) return;
  const StreamRef ref{mft->id, {}};
  const std::vector<Extent> extents = ExtentsOf(ref);
  const std::int64_t total = Volume().Facts().total_clusters;
  const std::int64_t rest = std::min<std::int64_t>(VcnCount(extents) - 16, 32);
  const std::int64_t free = FindFree(WholeBitmap(Volume()), total, std::max<std::int64_t>(rest, 2));
  ASSERT_GE(free, 0);
  EXPECT_EQ(Volume().Move(ref, 0, free, 1), error::kAccessDenied);
  if (rest > 0) {
    EXPECT_EQ(Volume().Move(ref, 15, free, 2), error::kAccessDenied);
    EXPECT_EQ(ExtentsOf(ref), extents);
    EXPECT_EQ(Volume().Move(ref, 16, free, rest), error::kSuccess);
    EXPECT_EQ(PlaceOfEach(ExtentsOf(ref))[16], free);
  }
  EXPECT_EQ(subject_->CloseAndJudge(), std::vector<std::string>{});
}

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
  for (int step = 0; step < 600; ++step) {
    const auto pick = random.Below(static_cast<std::int64_t>(streams_.size()));
    const KnownStream& stream = streams_[static_cast<std::size_t>(pick)];
    std::vector<std::int64_t>& places = model[Key(stream)];
    const auto size = static_cast<std::int64_t>(places.size());
    const std::int64_t vcn = random.Chance(0.5) ? 0 : random.Below(size + 1);
    const std::int64_t count = random.Chance(0.5) ? size : random.Between(1, size + 1);
    std::int64_t lcn = random.Below(total);
    if (random.Chance(0.8)) {
      const std::int64_t fits = FindFree(bitmap, total, std::max<std::int64_t>(count, 1), lcn);
      if (fits >= 0) lcn = fits;
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
    moved += error == error::kSuccess ? 1 : 0;
    if (random.Chance(0.02)) {
      ASSERT_EQ(Volume().Commit(), error::kSuccess);
    }
  }
  EXPECT_GT(moved, 100);
  EXPECT_EQ(Contents(Volume(), streams_), contents);

  ASSERT_EQ(subject_->CloseAndReopen(), error::kSuccess);
  const std::vector<KnownStream> again = Walk(Volume());
  ASSERT_EQ(again.size(), streams_.size());
  for (std::size_t i = 0; i < again.size(); ++i) {
    EXPECT_EQ(again[i].path, streams_[i].path);
    EXPECT_EQ(PlaceOfEach(again[i].extents), model[Key(streams_[i])]) << again[i].path;
  }
  EXPECT_EQ(Contents(Volume(), again), contents);
  EXPECT_EQ(subject_->CloseAndJudge(), std::vector<std::string>{});
}

}  // namespace vornalux::contract
