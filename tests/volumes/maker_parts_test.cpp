// SPDX-License-Identifier: GPL-2.0-or-later
// Parts of the volume maker against plain statements of what they must do.
#include <gtest/gtest.h>

#include <set>

#include "check/fat_folder.h"
#include "mkvolume/fat_entries.h"
#include "mkvolume/names.h"
#include "mkvolume/space.h"
#include "support/seed.h"

namespace vornalux::making {
namespace {

ClusterSet RandomClusters(Random& random, std::int64_t size) {
  ClusterSet clusters(size);
  for (std::uint64_t k = random.Below(20); k > 0; --k) {
    const std::int64_t lcn = random.Between(0, size - 1);
    clusters.Set(lcn, std::min(random.Between(1, size / 20), size - lcn), true);
  }
  return clusters;
}

// Requests that take about so much of what is free, no single one more than a sixth of the longest
// free range.
std::vector<SpaceRequest> RandomRequests(Random& random, double share, const ClusterSet& clusters) {
  std::int64_t longest = 0;
  for (const VcnRange& range : clusters.FreeRanges()) longest = std::max(longest, range.count);
  const std::int64_t free = clusters.Free();
  std::vector<SpaceRequest> requests;
  for (auto left = static_cast<std::int64_t>(share * static_cast<double>(free)); left > 0;) {
    SpaceRequest request;
    std::int64_t vcn = random.Chance(0.1) ? 5 : 0;
    for (std::int64_t ranges = random.Chance(0.1) ? 4 : 1; ranges > 0 && left > 0; --ranges) {
      const std::int64_t most =
          random.Chance(0.05) ? longest / 6 : std::min<std::int64_t>(20, longest / 6);
      const std::int64_t count = std::min(left, random.Between(1, std::max<std::int64_t>(1, most)));
      request.ranges.push_back({vcn, count});
      vcn += count + 3;
      left -= count;
    }
    request.pieces = random.Chance(0.5) ? random.Between(2, 12) : 1;
    requests.push_back(std::move(request));
  }
  return requests;
}

// Every VCN asked for, each once and in order, on clusters that were free and are nobody else's.
void ExpectAnswered(const SpaceRequest& request, ClusterSet& clusters) {
  std::vector<std::int64_t> wanted;
  std::vector<std::int64_t> given;
  for (const VcnRange& range : request.ranges) {
    for (std::int64_t k = 0; k < range.count; ++k) wanted.push_back(range.vcn + k);
  }
  for (const PlacedRun& run : request.runs) {
    for (std::int64_t k = 0; k < run.count; ++k) {
      given.push_back(run.vcn + k);
      ASSERT_LT(run.lcn + k, clusters.Size());
      ASSERT_FALSE(clusters.Taken(run.lcn + k)) << run.lcn + k;
      clusters.Set(run.lcn + k, 1, true);
    }
  }
  EXPECT_EQ(given, wanted);
}

std::int64_t Pieces(const SpaceRequest& request) {
  std::int64_t pieces = 0;
  std::int64_t end = -1;
  for (const PlacedRun& run : request.runs) {
    pieces += run.lcn != end;
    end = run.lcn + run.count;
  }
  return pieces;
}

TEST(SpaceTest, PlacesEverythingInExactlyAsManyPieces) {
  const std::uint64_t seed = test::TestSeed();
  SCOPED_TRACE(test::SeedNote(seed));
  Random random(seed);
  for (int round = 0; round < 300; ++round) {
    SCOPED_TRACE(round);
    const ClusterSet before = RandomClusters(random, random.Between(200, 5000));
    const double share = 0.05 + 0.7 * random.Unit();
    std::vector<SpaceRequest> requests = RandomRequests(random, share, before);
    ClusterSet clusters = before;
    try {
      PlaceAll(requests, clusters, random);
    } catch (const std::runtime_error&) {
      // Where the volume is cut up, the last ones may not fit; half empty, they must.
      EXPECT_GT(share, 0.5);
      continue;
    }
    ClusterSet model = before;
    for (const SpaceRequest& request : requests) {
      ExpectAnswered(request, model);
      if (share >= 0.5) continue;
      EXPECT_EQ(Pieces(request), request.pieces);
    }
    for (std::int64_t lcn = 0; lcn < clusters.Size(); ++lcn) {
      ASSERT_EQ(clusters.Taken(lcn), model.Taken(lcn)) << lcn;
    }
  }
}

TEST(SpaceTest, SpreadsOverTheVolumeAndLeavesGaps) {
  Random random(1);
  ClusterSet clusters(10'000);
  std::vector<SpaceRequest> requests(300, SpaceRequest{{{0, 10}}, 2, {}});
  PlaceAll(requests, clusters, random);
  for (std::int64_t tenth = 0; tenth < 10; ++tenth) {
    int taken = 0;
    for (std::int64_t k = 0; k < 1000; ++k) taken += clusters.Taken(1000 * tenth + k);
    EXPECT_GT(taken, 50) << tenth;
    EXPECT_LT(taken, 700) << tenth;
  }
  EXPECT_GT(clusters.FreeRanges().size(), 50U);
}

TEST(SpaceTest, SaysWhenThereIsNoRoom) {
  Random random(1);
  ClusterSet small(100);
  std::vector<SpaceRequest> too_much = {{{{0, 101}}, 1, {}}};
  EXPECT_THROW(PlaceAll(too_much, small, random), std::runtime_error);
  ClusterSet cut(100);
  for (std::int64_t lcn = 0; lcn < 100; lcn += 10) cut.Set(lcn, 1, true);
  std::vector<SpaceRequest> too_long = {{{{0, 10}}, 1, {}}};
  EXPECT_THROW(PlaceAll(too_long, cut, random), std::runtime_error);
  std::vector<SpaceRequest> just = {{{{0, 100}}, 1, {}}};
  ClusterSet whole(100);
  PlaceAll(just, whole, random);
  EXPECT_EQ(whole.Free(), 0);
}

TEST(PayloadTest, AnyPartIsThatPartOfTheWhole) {
  const std::uint64_t seed = test::TestSeed();
  SCOPED_TRACE(test::SeedNote(seed));
  Random random(seed);
  for (const Payload::Kind kind :
       {Payload::Kind::Noise, Payload::Kind::Prose, Payload::Kind::Literal}) {
    Payload payload{kind, random.Next(), 300'001, std::string(300'001, 'x')};
    payload.literal[77] = 'y';
    std::vector<std::uint8_t> whole(payload.size + 100, 0xEE);
    payload.Fill(0, whole);
    EXPECT_TRUE(std::all_of(whole.end() - 100, whole.end(), [](auto b) { return b == 0; }));
    for (int round = 0; round < 200; ++round) {
      const std::uint64_t at = random.Below(whole.size());
      std::vector<std::uint8_t> part(random.Below(std::min<std::size_t>(9000, whole.size() - at)));
      payload.Fill(at, part);
      EXPECT_TRUE(
          std::equal(part.begin(), part.end(), whole.begin() + static_cast<std::ptrdiff_t>(at)))
          << at;
    }
  }
}

// The maker's folder entries, read back by the checker.
TEST(FatEntriesTest, NamesComeBack) {
  const std::uint64_t seed = test::TestSeed();
  SCOPED_TRACE(test::SeedNote(seed));
  Random random(seed);
  FatFolderEntries entries;
  std::vector<std::u16string> names = {u"A",
                                       u"b",
                                       u"C.D",
                                       u"e.f",
                                       u"MiXed.Txt",
                                       u"UPPER.low",
                                       u"lower.UP",
                                       u"two.dots.txt",
                                       u".hidden",
                                       u"with space",
                                       u"12345678.123",
                                       u"123456789.123",
                                       u"12345678.1234",
                                       u"ÄÖÜ.TXT",
                                       u"plus+.txt",
                                       u"tilde~1.text",
                                       u"exactly13char",
                                       u"exactly26characters-in-all",
                                       std::u16string(255, u'x'),
                                       u"~1",
                                       u"A~1",
                                       u"ab~1.txt"};
  for (std::uint64_t i = 0; i < 400; ++i) {
    names.push_back(random.Chance(0.5) ? OddName(i, false, random) : PlainFileName(i, random));
  }
  std::vector<std::string> expected;
  for (const std::u16string& name : names) {
    if (random.Chance(0.3)) entries.AddDeleted(name + u" deleted", 5);
    const std::size_t entry = entries.Add(name, false);
    entries.SetCluster(entry, static_cast<std::uint32_t>(expected.size() + 70'000));
    entries.SetSize(entry, static_cast<std::uint32_t>(expected.size() * 1'000'003));
    expected.push_back(checking::ToUtf8(name));
  }
  std::vector<std::string> faults;
  checking::Problems problems(faults, 100);
  const auto found = checking::ReadFatFolder(entries.Bytes(), true, "/", problems);
  EXPECT_EQ(faults, std::vector<std::string>());
  ASSERT_EQ(found.size(), expected.size());
  std::set<std::array<std::uint8_t, 11>> short_names;
  for (std::size_t i = 0; i < found.size(); ++i) {
    EXPECT_EQ(found[i].name, expected[i]);
    EXPECT_EQ(found[i].cluster, i + 70'000);
    EXPECT_EQ(found[i].size, i * 1'000'003);
    EXPECT_TRUE(short_names.insert(found[i].short_name).second) << found[i].name;
  }
}

TEST(NamesTest, DifferInEveryCase) {
  Random random(test::TestSeed());
  std::set<std::string> seen;
  for (std::uint64_t i = 0; i < 5000; ++i) {
    const std::u16string name =
        random.Chance(0.5) ? OddName(i, true, random) : PlainFileName(i, random);
    EXPECT_LE(name.size(), 255U);
    std::string folded = checking::ToUtf8(name);
    for (char& c : folded) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    EXPECT_TRUE(seen.insert(folded).second) << folded;
  }
}

}  // namespace
}  // namespace vornalux::making
