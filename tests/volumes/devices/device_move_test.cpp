// SPDX-License-Identifier: GPL-2.0-or-later
// The move that all file systems share: planning it, refusing it, and what it leaves.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "support/seed.h"
#include "support/tiny_volume.h"

namespace vornalux::test {
namespace {

constexpr std::int64_t kTotal = 1000;
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
using Runs = std::vector<ClusterRun>;

TEST(PlanMove, ChecksNumbersAndRuns) {
  struct Case {
    const char* what;
    Runs runs;
    std::int64_t vcn, lcn, count;
    ErrorCode expected;
  };
  const Runs good = {{0, 10, 4}, {4, -1, 2}, {6, 990, 10}};
  const Case cases[] = {
      {"to the last cluster", good, 0, 996, 4, error::kSuccess},
      {"clipped at the end of the allocation", good, 15, 999, kMax, error::kSuccess},
      {"holes take no target clusters", good, 3, 999, 3, error::kSuccess},
      {"a target that leaves the volume", good, 0, 997, 4, error::kInvalidParameter},
      {"a file without clusters", {}, 0, 500, 1, error::kInvalidParameter},
      {"runs with a gap", {{0, 10, 4}, {5, 20, 1}}, 0, 500, 1, error::kFileCorrupt},
      {"runs that overlap in VCN", {{0, 10, 4}, {3, 20, 1}}, 0, 500, 1, error::kFileCorrupt},
      {"runs that do not start at 0", {{1, 10, 4}}, 1, 500, 1, error::kFileCorrupt},
      {"a run without length", {{0, 10, 0}}, 0, 500, 1, error::kFileCorrupt},
      {"a run past the end", {{0, 999, 2}}, 0, 500, 1, error::kFileCorrupt},
      {"a run far past the end", {{0, kMax, 2}}, 0, 500, 1, error::kFileCorrupt},
      {"an LCN below a hole's", {{0, -2, 2}}, 0, 500, 1, error::kFileCorrupt},
      {"VCNs that overflow", {{0, -1, kMax}, {kMax, -1, 2}}, 0, 500, 1, error::kFileCorrupt},
      {"more clusters than there are",
       {{0, 0, 999}, {999, 0, 999}},
       0,
       500,
       1,
       error::kFileCorrupt},
  };
  for (const Case& c : cases) {
    MovePlan plan;
    EXPECT_EQ(PlanMove(c.runs, c.vcn, c.lcn, c.count, kTotal, plan), c.expected) << c.what;
  }
}

// A volume where file f has clusters {8f, 8f+1} and {8f+4}, and nothing else is used.
Bytes Regular(std::int64_t clusters = 96) {
  Bytes out(TinyVolume::SizeOf(clusters));
  for (std::size_t file = 0; file < TinyVolume::kFiles; ++file) {
    out[(2 + file) * 512] = 2;
    out[(2 + file) * 512 + 4] = static_cast<std::uint8_t>(8 * file);
    out[(2 + file) * 512 + 8] = 2;
    out[(2 + file) * 512 + 12] = static_cast<std::uint8_t>(8 * file + 4);
    out[(2 + file) * 512 + 16] = 1;
    out[512 + file] = 0b00010011;
  }
  return out;
}

// More than the file system can write down, which it finds out late.
Runs TooManyRuns() {
  Runs runs;
  for (const std::int64_t lcn : {16, 20, 24, 28, 32, 36, 40}) {
    runs.push_back({static_cast<std::int64_t>(runs.size()), lcn, 1});
    runs.push_back({static_cast<std::int64_t>(runs.size()), -1, 1});
  }
  return runs;
}

TEST(ImageVolume, RefusesBeforeAnythingIsWritten) {
  struct Case {
    const char* what;
    int file;
    std::int64_t vcn, lcn, count;
    Runs lie;
    ErrorCode expected;
  };
  const Case cases[] = {
      {"taken", 0, 0, 8, 1, {}, error::kAccessDenied},
      {"taken at its end", 0, 0, 6, 3, {}, error::kAccessDenied},
      {"taken by itself", 0, 0, 1, 2, {}, error::kAccessDenied},
      {"immovable", 5, 0, 60, 1, {}, error::kAccessDenied},
      {"out of volume", 0, 0, 96, 1, {}, error::kInvalidParameter},
      {"no such file", 9, 0, 60, 1, {}, error::kFileNotFound},
      {"clusters of nobody", 0, 0, 60, 2, {{0, 70, 2}}, error::kFileCorrupt},
      {"clusters with two owners",
       0,
       0,
       60,
       4,
       {{0, 8, 2}, {2, 9, 1}, {3, 16, 1}},
       error::kFileCorrupt},
      {"runs out of order", 0, 0, 60, 2, {{2, 8, 1}, {0, 9, 1}}, error::kFileCorrupt},
      {"only holes", 0, 0, 60, 4, {{0, -1, 4}}, error::kSuccess},
  };
  TinyWorld world(Regular());
  const Bytes before = world.device.Content();
  DeviceLog log;
  {
    const std::unique_ptr<TinyVolume> volume = world.Open(&log);
    for (const Case& c : cases) {
      volume->lie = c.lie;
      EXPECT_EQ(volume->Move(TinyVolume::File(c.file), c.vcn, c.lcn, c.count), c.expected)
          << c.what;
    }
    volume->lie = {{0, 8, 1}, {5, 9, 1}};
    std::vector<Extent> extents;
    EXPECT_EQ(volume->Extents(TinyVolume::File(0), extents), error::kFileCorrupt);
    volume->lie = {{0, 8, 1}, {1, 9, 1}, {2, -1, 1}, {3, -1, 4}, {7, 8, 1}};
    EXPECT_EQ(volume->Extents(TinyVolume::File(0), extents), error::kSuccess);
    EXPECT_EQ(extents, (std::vector<Extent>{{2, 8}, {7, -1}, {8, 8}}));
    EXPECT_EQ(volume->Commit(), error::kSuccess);
    EXPECT_EQ(volume->Close(), error::kSuccess);
    EXPECT_EQ(volume->Move(TinyVolume::File(0), 0, 60, 1), error::kInvalidHandle);
  }
  EXPECT_TRUE(log.empty()) << "nothing moved, nothing written";
  EXPECT_EQ(world.device.Content(), before);
}

std::ptrdiff_t VolumeFlushes(const DeviceLog& log) {
  return std::count_if(log.begin(), log.end(), [](const DeviceEvent& event) {
    return event.device == 0 && event.kind == DeviceEvent::Kind::Flush;
  });
}

// Clusters freed since the last commit are still the durable state's: what goes there waits in the
// journal like metadata, and is read back from there meanwhile.
TEST(ImageVolume, SmallMovesIntoHeldClustersWaitForTheCommit) {
  TinyWorld world(Regular());
  const auto cluster = [&](std::size_t lcn) {
    return std::span(world.device.Content())
        .subspan(TinyVolume::kFirstCluster + lcn * TinyVolume::kClusterSize,
                 TinyVolume::kClusterSize);
  };
  const auto holds = [](std::span<const std::uint8_t> bytes, std::uint8_t value) {
    return std::all_of(bytes.begin(), bytes.end(), [=](std::uint8_t b) { return b == value; });
  };
  for (const std::size_t lcn : {8U, 9U, 24U, 25U}) {
    std::ranges::fill(cluster(lcn), static_cast<std::uint8_t>(lcn));
  }
  DeviceLog log;
  const std::unique_ptr<TinyVolume> volume = world.Open(&log);
  ASSERT_EQ(volume->Move(TinyVolume::File(1), 0, 60, 2), error::kSuccess);
  log.clear();
  ASSERT_EQ(volume->Move(TinyVolume::File(3), 0, 9, 2), error::kSuccess);
  EXPECT_EQ(VolumeFlushes(log), 0);
  EXPECT_TRUE(holds(cluster(9), 9)) << "file 1 is still there, should the power go";
  EXPECT_TRUE(holds(cluster(10), 25)) << "free all along";
  Bytes read(TinyVolume::kClusterSize);
  EXPECT_FALSE(volume->Device().Read(TinyVolume::kFirstCluster + 9 * read.size(), read));
  EXPECT_TRUE(holds(read, 24));
  ASSERT_EQ(volume->Move(TinyVolume::File(3), 0, 70, 2), error::kSuccess);
  ASSERT_EQ(volume->Commit(), error::kSuccess);
  EXPECT_TRUE(holds(cluster(70), 24)) << "moved on before it was ever written";
  EXPECT_TRUE(holds(cluster(71), 25));
}

TEST(ImageVolume, CommitsBeforeALargeMoveIntoHeldClusters) {
  constexpr std::int64_t kLarge = 1100;  // clusters
  TinyWorld world(Regular(4096));
  world.limits.waiting_move = kLarge * TinyVolume::kClusterSize - 1;
  DeviceLog log;
  const std::unique_ptr<TinyVolume> volume = world.Open(&log);
  volume->Clusters().Use(1200, kLarge);
  ASSERT_EQ(volume->Move(TinyVolume::File(1), 0, 3000, 2), error::kSuccess);
  ASSERT_EQ(volume->Commit(), error::kSuccess);
  ASSERT_EQ(volume->Move(TinyVolume::File(1), 0, 60, 2), error::kSuccess);
  const auto before = VolumeFlushes(log);
  volume->lie = {{0, 1200, kLarge}};
  EXPECT_EQ(volume->Move(TinyVolume::File(2), 0, 2950, kLarge), error::kSuccess);
  EXPECT_EQ(VolumeFlushes(log), before + 2);
}

// How much waits for a commit follows from the time that the commits before it took.
TEST(ImageVolume, CommitsWhatIsAboutASecondOfWorkAndIsDirtyMeanwhile) {
  constexpr std::int64_t kFile = 100;  // clusters
  struct Case {
    const char* what;
    std::uint64_t milliseconds;  // from one look at the clock to the next
    std::vector<int> moves;      // up to each commit
  };
  for (const Case& c :
       {Case{"a fast disk", 10, {10, 20, 40, 40}}, Case{"a slow one", 300, {4, 2, 2}},
        Case{"one that is slow even for one move", 1500, {1, 1, 1}}}) {
    SCOPED_TRACE(c.what);
    TinyWorld world(Regular(600));
    std::uint64_t now = 5;
    constexpr std::uint64_t kBytes = kFile * TinyVolume::kClusterSize;
    world.limits = {
        .first_bytes = 10 * kBytes, .least_bytes = kBytes, .most_bytes = 40 * kBytes, .clock = [&] {
          return now += c.milliseconds;
        }};
    const std::unique_ptr<TinyVolume> volume = world.Open();
    volume->lie = {{0, 100, kFile}};
    volume->Clusters().Use(100, kFile);
    for (const int expected : c.moves) {
      int moves = 0;
      do {
        const std::int64_t to = volume->lie[0].lcn == 100 ? 200 : 100;
        ASSERT_EQ(volume->Move(TinyVolume::File(1), 0, to, kFile), error::kSuccess);
        EXPECT_EQ(world.device.Content()[0], 1) << "marked before anything moves";
        volume->lie[0].lcn = to;
        ++moves;
      } while (volume->Device().HasPending() && moves < 100);
      EXPECT_EQ(moves, expected);
    }
    volume->lie.clear();
    ASSERT_EQ(volume->Close(), error::kSuccess);
    EXPECT_EQ(world.device.Content()[0], 0);
  }
}

TEST(ImageVolume, WhereFilesComeToLieDependsOnNoClock) {
  std::set<Bytes> outcomes;
  for (const std::uint64_t step : {0U, 90U, 3000U}) {
    TestRandom random;
    TinyWorld world(TinyVolume::Format(random, 96));
    std::uint64_t now = 0;
    world.limits = {.waiting_move = 2 * TinyVolume::kClusterSize,
                    .clock = [&now, step] { return now += step; }};
    const std::unique_ptr<TinyVolume> volume = world.Open();
    for (int i = 0; i < 300; ++i) {
      const StreamRef file = TinyVolume::File(static_cast<int>(random.Below(TinyVolume::kFiles)));
      const auto vcn = static_cast<std::int64_t>(random.Below(4));
      volume->Move(file, vcn, static_cast<std::int64_t>(random.Below(96)), 4);
    }
    ASSERT_EQ(volume->Close(), error::kSuccess);
    EXPECT_EQ(TinyVolume::Judge(world.device.Content()), "");
    outcomes.insert({world.device.Content().begin(),
                     world.device.Content().begin() + TinyVolume::kFirstCluster});
  }
  EXPECT_EQ(outcomes.size(), 1U);
}

TEST(ImageVolume, TakesBackAMoveThatFailsHalfway) {
  TinyWorld world(Regular());
  const std::unique_ptr<TinyVolume> volume = world.Open();
  const int reloads = volume->reloads;
  ASSERT_EQ(volume->Move(TinyVolume::File(1), 0, 60, 1), error::kSuccess);
  volume->lie = TooManyRuns();
  EXPECT_EQ(volume->Move(TinyVolume::File(2), 0, 70, 1), error::kDiskFull);
  volume->lie.clear();
  EXPECT_EQ(volume->reloads, reloads + 1);
  EXPECT_TRUE(volume->Clusters().RangeUsed(16, 2));
  EXPECT_TRUE(volume->Clusters().RangeFree(70, 1));
  EXPECT_TRUE(volume->Clusters().RangeHeld(8, 1)) << "the move before it still holds its source";
  EXPECT_TRUE(volume->Clusters().RangeUsed(60, 1));
  EXPECT_EQ(volume->Close(), error::kSuccess);
  EXPECT_EQ(volume->Close(), error::kSuccess);
  EXPECT_FALSE(world.journal.exists);
  std::vector<Extent> extents;
  EXPECT_EQ(volume->Extents(TinyVolume::File(1), extents), error::kSuccess);
  EXPECT_EQ(extents, (std::vector<Extent>{{1, 60}, {2, 9}, {3, 12}}));
}

TEST(ImageVolume, StopsWhenItCannotReload) {
  TinyWorld world(Regular());
  const std::unique_ptr<TinyVolume> volume = world.Open();
  ASSERT_EQ(volume->Move(TinyVolume::File(1), 0, 60, 1), error::kSuccess);
  volume->fail_reload = true;
  volume->lie = TooManyRuns();
  EXPECT_EQ(volume->Move(TinyVolume::File(2), 0, 70, 1), error::kDiskFull);
  volume->lie.clear();
  EXPECT_EQ(volume->Move(TinyVolume::File(3), 0, 75, 1), error::kWriteFault);
  EXPECT_EQ(volume->Close(), error::kWriteFault);
  EXPECT_TRUE(world.journal.exists);
}

TEST(ImageVolume, MovesNothingWithoutAJournal) {
  TinyWorld world(Regular());
  world.journal.refuse_open = true;
  DeviceLog log;
  const std::unique_ptr<TinyVolume> volume = world.Open(&log);
  EXPECT_EQ(volume->Move(TinyVolume::File(1), 0, 60, 1), error::kAccessDenied);
  EXPECT_TRUE(log.empty());
  EXPECT_FALSE(volume->CouldBegin());
  world.journal.refuse_open = false;
  EXPECT_EQ(volume->Move(TinyVolume::File(1), 0, 60, 1), error::kSuccess);
  EXPECT_TRUE(volume->CouldBegin());
  EXPECT_EQ(volume->Close(), error::kSuccess);

  world.journal.refuse_open = true;
  const std::unique_ptr<TinyVolume> unmoved = world.Open(&log);
  EXPECT_NE(unmoved->Move(TinyVolume::File(1), 0, 30, 1), error::kSuccess);
  EXPECT_EQ(unmoved->Close(), error::kAccessDenied) << "a run that could not begin is no success";

  VolumeStore store;
  store.device = std::make_unique<BorrowedDevice>(world.device);
  TinyVolume reader(std::move(store));
  EXPECT_EQ(reader.Move(TinyVolume::File(1), 0, 60, 1), error::kWriteProtect);
}

}  // namespace
}  // namespace vornalux::test
