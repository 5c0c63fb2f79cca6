// SPDX-License-Identifier: GPL-2.0-or-later
// A run that may move only so much in a second, on a clock that its own waiting winds.
#include "host/terminal/session/move_rate.h"

#include <gtest/gtest.h>

#include <memory>

#include "app/program.h"
#include "host/simulated/random_volume.h"
#include "host/simulated/scripted_desktop.h"
#include "host/terminal/session/terminal_platform.h"
#include "support/seed.h"

namespace vornalux {
namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

struct Scene {
  explicit Scene(std::int64_t rate)
      : volume(MakeRandomVolume({.geometry = {.total_clusters = 60000},
                                 .files = 200,
                                 .fragmented = 0.9,
                                 .locked = 0,
                                 .immovable = 0,
                                 .mft = false},
                                test::TestSeed())) {
    platform.Mount('C', *volume);
    program = std::make_unique<Program>(platform.With(desktop));
    program->launcher.SelectDrive("C:\\");
    program->main_window.OpenMenu();
    platform.LimitRate(
        MoveRate(static_cast<std::uint64_t>(rate), [this] { return now; }),
        [this](milliseconds time) {
          now += time;
          longest = std::max(longest, time);
          ++waits;
          if (at_wait) at_wait();
        },
        [this] { return program->flags.StopRequested != False; });
  }
  std::int64_t BytesMoved() const {
    const VolumeFacts& facts = volume->Facts();
    return volume->ClustersMoved() * facts.bytes_per_sector * facts.sectors_per_cluster;
  }
  double Seconds() const { return std::chrono::duration<double>(now.time_since_epoch()).count(); }

  MoveRate::TimePoint now;
  milliseconds longest = 0ms;
  int waits = 0;
  std::function<void()> at_wait;
  ScriptedDesktop desktop;
  TerminalPlatform platform = TerminalPlatform(1);
  std::unique_ptr<SimulatedVolume> volume;
  std::unique_ptr<Program> program;
};

TEST(MoveRate, IsKeptFromMoveToMoveAndInAll) {
  for (const std::int64_t rate : {300'000, 3'000'000, 40'000'000}) {
    Scene scene(rate);
    std::int64_t seen = 0;
    scene.at_wait = [&] {
      if (scene.BytesMoved() == seen) return;
      // Nothing more before all that was moved was allowed to be.
      EXPECT_LE(static_cast<double>(seen), static_cast<double>(rate) * (scene.Seconds() + 0.25));
      seen = scene.BytesMoved();
    };
    scene.program->main_window.cmdDefrag.Click();
    const double all = static_cast<double>(scene.BytesMoved()) / static_cast<double>(rate);
    ASSERT_GT(scene.BytesMoved(), 10'000'000) << test::SeedNote(test::TestSeed());
    EXPECT_NEAR(scene.Seconds(), all, 0.3) << rate;
    EXPECT_LE(scene.longest, 50ms) << "the user is heard";
  }
}

// What a whole second would still have to be waited for is not.
TEST(MoveRate, AStopIsNotHeldUp) {
  Scene scene(1000);
  scene.at_wait = [&] {
    if (scene.waits == 7) scene.program->flags.StopRequested = True;
  };
  scene.program->main_window.cmdDefrag.Click();
  EXPECT_EQ(scene.waits, 7);
}

TEST(MoveRate, TimeThatWasNotUsedIsNotMadeUpFor) {
  MoveRate::TimePoint now;
  MoveRate rate(1000, [&] { return now; });
  now += 1h;
  rate.Add(2000);
  EXPECT_EQ(rate.Due(), 1750ms);
  rate.Add(1000);
  EXPECT_EQ(rate.Due(), 2750ms);
  EXPECT_EQ(MoveRate::Piece(0), std::nullopt);
  EXPECT_EQ(MoveRate::Piece(100 << 20), std::nullopt);
  EXPECT_EQ(MoveRate::Piece(1), 64u << 10);
  EXPECT_EQ(MoveRate::Piece(1 << 20), 256u << 10);
}

}  // namespace
}  // namespace vornalux
