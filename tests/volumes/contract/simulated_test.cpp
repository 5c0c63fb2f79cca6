// SPDX-License-Identifier: GPL-2.0-or-later
// The simulated machine is what other tests trust: it must judge, fail and remember rightly.
#include <gtest/gtest.h>

#include "guest/driver_asks.h"
#include "host/simulated/random_volume.h"
#include "host/simulated/simulated_platform.h"
#include "volumes/contract/contract.h"

namespace vornalux {
namespace {

TEST(SimulatedVolume, JudgesSeeDamage) {
  SimulatedVolume volume({.total_clusters = 100});
  const ItemId file = volume.AddFile("file", {{10, 5}, {-1, 2}, {30, 1}});
  volume.AddStream(file, "more", std::vector<SimulatedRun>{{50, 2}});
  volume.TakeClusters(8, 4);
  ASSERT_EQ(volume.ConsistencyProblems(), std::vector<std::string>{});
  ASSERT_EQ(volume.DamagedContent(), std::vector<std::string>{});

  volume.MisstateBitmap(12, 1, false);
  volume.MisstateBitmap(70, 1, true);
  volume.Overwrite(51, 1);
  EXPECT_EQ(volume.ConsistencyProblems(),
            (std::vector<std::string>{"owned but free: cluster 12", "used by nobody: cluster 70"}));
  EXPECT_EQ(volume.DamagedContent(), std::vector<std::string>{"file:more"});

  // A bitmap that lies lets one file be moved onto another.
  volume.MisstateBitmap(70, 1, false);
  ASSERT_EQ(volume.Move({file, ":more:$DATA"}, 0, 12, 1), error::kSuccess);
  EXPECT_FALSE(volume.ContentIntact());
  EXPECT_EQ(volume.ConsistencyProblems(),
            std::vector<std::string>{"owned twice: file, clusters 12 to 12"});
}

TEST(SimulatedVolume, ImmovableAndLockedItemsStay) {
  SimulatedVolume volume;
  const ItemId file = volume.AddFile("fixed", {{10, 5}});
  volume.MakeImmovable(file);
  EXPECT_EQ(volume.Move({file, {}}, 4, 100, 1), error::kAccessDenied);
  volume.MakeImmovable(file, 2);
  EXPECT_EQ(volume.Move({file, {}}, 1, 100, 2), error::kAccessDenied);
  EXPECT_EQ(volume.Move({file, {}}, 2, 100, 3), error::kSuccess);
  EXPECT_EQ(volume.RunsOf("fixed"), (std::vector<SimulatedRun>{{10, 2}, {100, 3}}));

  SimulatedPlatform machine;
  machine.AddVolume('C', volume);
  volume.Lock(file);
  const auto open = [&] {
    return machine.OpenPath("C:\\fixed", FileAccess::GenericRead, FileFlags::None).error;
  };
  EXPECT_EQ(open(), error::kSharingViolation);
  volume.Lock(file, false);
  EXPECT_EQ(open(), error::kSuccess);
}

// The same questions as tools/nt puts to the driver itself.
TEST(FatDriver, AnswersAsTheRealOne) {
  SimulatedVolume volume({.total_clusters = 100, .file_system = "FAT"});
  volume.AddFile("ASKED.BIN", {{10, 5}});
  volume.AddFile("ASKED.NIL");
  volume.AddFolder("ASKED.DIR", {{20, 1}});
  SimulatedPlatform machine;
  machine.AddVolume('C', volume);
  machine.UseFatDriver();
  EXPECT_EQ(guest::AskFatDriver(machine, machine, "C:"), guest::kFatDriverAnswers);
  EXPECT_TRUE(volume.ContentIntact());
}

TEST(RandomVolume, SameSeedSameVolumeAndOptionsAreKept) {
  const RandomVolumeOptions options = {
      .geometry = {.total_clusters = 50000}, .files = 3000, .folders = 100, .fill = 0.75};
  const std::uint64_t seed = test::TestSeed();
  SCOPED_TRACE(test::SeedNote(seed));
  const auto volume = MakeRandomVolume(options, seed);
  const auto same = MakeRandomVolume(options, seed);
  const auto other = MakeRandomVolume(options, seed + 1);
  const std::vector<contract::KnownStream> streams = contract::Walk(*volume);
  EXPECT_EQ(contract::Take(*volume, streams), contract::Take(*same, contract::Walk(*same)));
  EXPECT_NE(contract::WholeBitmap(*volume), contract::WholeBitmap(*other));
  EXPECT_EQ(volume->ConsistencyProblems(), std::vector<std::string>{});

  EXPECT_EQ(volume->ItemCount(), 3102U);  // with the root and $MFT
  EXPECT_NEAR(static_cast<double>(volume->FreeClusters()), 0.25 * 50000, 0.1 * 50000);
}

}  // namespace
}  // namespace vornalux
