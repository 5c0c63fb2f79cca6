// SPDX-License-Identifier: GPL-2.0-or-later
// The simulated machine is what other tests trust: it must judge, fail and remember rightly.
#include <gtest/gtest.h>

#include <algorithm>

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

TEST(RandomVolume, SameSeedSameVolumeAndOptionsAreKept) {
  const RandomVolumeOptions options = {.geometry = {.total_clusters = 50000},
                                       .files = 3000,
                                       .folders = 100,
                                       .fill = 0.75,
                                       .fragmented = 0.5};
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
  const auto with_more_than = [&](std::size_t count) {
    return std::count_if(streams.begin(), streams.end(),
                         [count](const auto& stream) { return stream.extents.size() > count; });
  };
  EXPECT_GT(with_more_than(1) * 5, with_more_than(0));
  EXPECT_LT(with_more_than(1) * 5, with_more_than(0) * 4);
}

class SimulatedPlatformTest : public testing::Test {
 protected:
  SimulatedPlatformTest() {
    volume_.AddFile("dir\\a", {{100, 2}, {110, 2}, {120, 2}});
    volume_.AddFile("dir\\b", {{200, 4}});
    machine_.AddVolume('C', volume_);
    disk_ = machine_.OpenVolume(R"(\\.\C:)");
  }

  Handle Open(const std::string& path) {
    return machine_.OpenPath(path, FileAccess::ReadAttributes, FileFlags::None).handle;
  }

  SimulatedVolume volume_{{.total_clusters = 1000}};
  SimulatedPlatform machine_;
  Handle disk_ = kInvalidHandle;
};

TEST_F(SimulatedPlatformTest, MovesFailByNumberAndByPath) {
  const Handle a = Open("C:\\dir\\a");
  const Handle b = Open("C:\\dir\\b");
  machine_.Faults().RefuseMove({.nth = 2}, error::kAccessDenied);
  machine_.Faults().RefuseMove({.path = "c:\\DIR\\b", .nth = 2, .times = kForEver},
                               error::kDiskFull);
  const ErrorCode expected[] = {0, error::kAccessDenied, 0, error::kDiskFull, error::kDiskFull};
  const Handle files[] = {a, b, a, b, b};
  for (std::size_t i = 0; i < 5; ++i) {
    const auto target = static_cast<std::int64_t>(300 + 10 * i);
    EXPECT_EQ(machine_.MoveClusters(disk_, files[i], 0, target, 1), expected[i]) << i;
  }
  EXPECT_EQ(volume_.ClustersMoved(), 2);
  EXPECT_EQ(volume_.RunsOf("dir\\b"), (std::vector<SimulatedRun>{{200, 4}}));
}

TEST_F(SimulatedPlatformTest, EveryCallIsLoggedWithThePathBehindItsHandle) {
  machine_.Log().Clear();
  std::vector<std::string> observed;
  machine_.Log().SetObserver(
      [&](const CallRecord& call) { observed.push_back(machine_.Log().Text(call)); });
  const Handle a = Open(R"(\\?\C:\dir\a)");
  ExtentChunk chunk;
  machine_.RetrievalPointers(a, 2, 1024, chunk);
  machine_.MoveClusters(disk_, a, 0, 300, 6);
  machine_.MoveClusters(disk_, a, 0, 300, 6);
  machine_.CloseFile(a);
  machine_.All().desktop.DoEvents();
  EXPECT_EQ(observed,
            (std::vector<std::string>{
                R"(OpenPath C:\dir\a 0 0 0 -> 0)", R"(RetrievalPointers C:\dir\a 2 1024 2 -> 0)",
                R"(MoveClusters C:\dir\a 0 300 6 -> 0)", R"(MoveClusters C:\dir\a 0 300 6 -> 5)",
                R"(CloseFile C:\dir\a 0 0 0 -> 0)", "DoEvents 1 0 0 -> 0"}));
  EXPECT_EQ(machine_.Log().Of(CallKind::MoveClusters, "c:\\DIR\\a").size(), 2U);
  machine_.Log().SetRecording(false);
  machine_.CloseVolume(disk_);
  EXPECT_EQ(machine_.Log().Count(CallKind::CloseVolume), 1U);
  EXPECT_EQ(machine_.Log().Calls().size(), 6U);
  EXPECT_EQ(machine_.OpenHandles(), 0U);
}

TEST(ScriptedDesktop, DoesWhatTheScriptSaysWhenItSaysSo) {
  ScriptedDesktop user;
  std::string happened;
  user.AtDoEvents(2, [&] {
    happened += "stop ";
    user.DoEvents();  // the third, inside the second
    user.AtDoEvents(4, [&] { happened += "late "; });
  });
  user.AtDoEvents(2, [&] { happened += "too "; });
  user.AtDoEvents(3, [&] { happened += "inner "; });
  for (int i = 0; i < 4; ++i) user.DoEvents();
  EXPECT_EQ(happened, "stop inner too late ");
  EXPECT_EQ(user.DoEventsCount(), 5U);

  user.Answer(BoxAnswer::Yes);
  EXPECT_EQ(user.ShowBox("note", "t", BoxButtons::Ok, BoxIcon::None), BoxAnswer::Ok);
  EXPECT_EQ(user.ShowBox("stop?", "t", BoxButtons::YesNo, BoxIcon::Question), BoxAnswer::Yes);
  EXPECT_EQ(user.ShowBox("really?", "t", BoxButtons::YesNo, BoxIcon::Question), BoxAnswer::No);
  ASSERT_EQ(user.Boxes().size(), 3U);
  EXPECT_EQ(user.Boxes()[1].text, "stop?");

  user.PendInputAt(2);
  EXPECT_FALSE(user.InputPending());
  EXPECT_TRUE(user.InputPending());
  EXPECT_FALSE(user.InputPending());
}

}  // namespace
}  // namespace vornalux
