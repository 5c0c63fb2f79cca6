// SPDX-License-Identifier: GPL-2.0-or-later
// Large files on real volumes: whoever watches is heard while one is copied, and a run that is
// stopped inside a copy, or killed there, leaves the volume as it was before that move.
#include <algorithm>
#include <map>
#include <memory>

#include "app/program.h"
#include "host/image/opening/image_file.h"
#include "host/simulated/simulated_platform.h"
#include "support/made_volume.h"
#include "volumes/contract/contract.h"

namespace vornalux::test {
namespace {

constexpr std::int64_t kLongestSilence = 4 << 20;  // bytes

// By path, of everything listed.
using Layout = std::map<std::string, std::vector<Extent>>;

Layout LayoutOf(MountedVolume& volume) {
  Layout layout;
  for (const contract::KnownStream& stream : contract::Walk(volume)) {
    layout[stream.path] = stream.extents;
  }
  return layout;
}

// A run on the image, with something done at the checkpoints inside moves, numbered from 1.
struct Rig {
  explicit Rig(const std::string& image, std::function<void(Rig&, int)> at = {})
      : platform({.windows_folder = "C:\\Windows"}) {
    OpenOptions options;
    options.writable = true;
    OpenReport report;
    volume = OpenImage(image, options, report);
    platform.Mount('C', *volume);
    program = std::make_unique<Program>(platform.All());
    program->launcher.SelectDrive("C:\\");
    program->main_window.OpenMenu();
    const std::int64_t cluster = volume->Facts().sectors_per_cluster * std::int64_t{512};
    platform.User().AtEveryDoEvents([this, at, cluster, busy = false]() mutable {
      const std::int64_t now = program->main_window.engine.movers.statistics.clusters_in_hand;
      if (now == copied || busy) return;
      EXPECT_LE((now - copied) * cluster, kLongestSilence);
      copied = now;
      if (now == 0) return;
      busy = true;
      ++checkpoints;
      if (at) at(*this, checkpoints);
      busy = false;
    });
  }

  DefragWindow& Window() { return program->main_window; }
  const MoveStatistics& Moved() { return Window().engine.movers.statistics; }
  bool Stopped() const { return program->flags.StopRequested != False; }
  void Stop(BoxAnswer answer) {
    platform.User().Answer(answer);
    Window().Arretdefrag.Click();
  }
  Rig& Do(Pass pass) {
    Window().PassItem(pass).Click();
    EXPECT_FALSE(Window().Busy());
    EXPECT_EQ(copied, 0);
    return *this;
  }
  void Close() { EXPECT_EQ(volume->Close(), error::kSuccess); }

  SimulatedPlatform platform;
  std::unique_ptr<MountedVolume> volume;
  std::unique_ptr<Program> program;
  std::int64_t copied = 0;
  int checkpoints = 0;
};

struct LargeMoveCase {
  const char* name;
  const char* recipe;
  Pass pass;
};

void PrintTo(const LargeMoveCase& c, std::ostream* out) { *out << c.recipe; }

class LargeMoveTest : public MadeVolume, public testing::WithParamInterface<LargeMoveCase> {
 protected:
  void SetUp() override { Make(GetParam().recipe); }
  std::string FreshCopy() const {
    Run("rm -f work.img* killed.img*; cp --reflink=auto disk.img work.img");
    return Path("work.img");
  }
  // What a kill here would leave.
  void CopyAsKilled() const {
    Run("cp --reflink=auto work.img killed.img; rm -f killed.img.vornalux-journal; "
        "cp work.img.vornalux-journal killed.img.vornalux-journal");
  }
  void ExpectMended() const {
    OpenOptions options;
    options.writable = true;
    OpenReport report;
    EXPECT_EQ(OpenImage(Path("killed.img"), options, report)->Close(), error::kSuccess);
    EXPECT_TRUE(report.recovered);
    ExpectIntact(Path("killed.img"), manifest_);
  }
};

TEST_P(LargeMoveTest, StoppedInsideACopyItIsAsBeforeTheMove) {
  // The layout at each checkpoint as it is read there, and where a run from there on ends, which is
  // nothing of the moment's. Number 0 is the run that nobody stops.
  std::vector<Layout> layouts;
  std::vector<Layout> ends;
  Rig whole(FreshCopy(), [&](Rig& run, int) { layouts.push_back(LayoutOf(*run.volume)); });
  layouts.push_back(LayoutOf(*whole.volume));
  whole.Do(GetParam().pass).Close();
  ends.push_back(LayoutOf(*whole.volume));
  ExpectIntact(Path("work.img"), manifest_);
  ASSERT_GE(whole.checkpoints, 1) << recipe_;
  whole.volume.reset();

  for (int nth = 1; nth <= whole.checkpoints; ++nth) {
    SCOPED_TRACE(recipe_ + ", stopped at checkpoint " + std::to_string(nth));
    {
      Rig run(FreshCopy(), [&](Rig& stopped, int now) {
        ASSERT_LE(now, nth) << "went on";
        if (now == nth) stopped.Stop(BoxAnswer::Yes);
      });
      run.Do(GetParam().pass);
      EXPECT_TRUE(run.Stopped());
      EXPECT_EQ(run.Moved().refused, 0);
      for (const MoveFailure& failure : run.Moved().failures) {
        EXPECT_NE(failure.reason, NotMoved::Refused) << failure.path;
      }
      EXPECT_TRUE(LayoutOf(*run.volume) == layouts[static_cast<std::size_t>(nth)]);
      CopyAsKilled();
      run.Close();
    }
    ExpectMended();
    ExpectIntact(Path("work.img"), manifest_);
    Rig later(Path("work.img"));
    later.Do(GetParam().pass).Close();
    ends.push_back(LayoutOf(*later.volume));
    const auto same = std::find(layouts.begin(), layouts.end(), layouts[ends.size() - 1]);
    EXPECT_TRUE(ends.back() == ends[static_cast<std::size_t>(same - layouts.begin())]);
    ExpectIntact(Path("work.img"), manifest_);
    if (HasFailure()) return;
  }
}

// All that may happen while a run stands still, inside every copy.
TEST_P(LargeMoveTest, WhateverHappensInsideACopyItGoesOn) {
  Rig quiet(FreshCopy());
  quiet.Do(GetParam().pass).Close();
  const Layout expected = LayoutOf(*quiet.volume);
  quiet.volume.reset();

  Rig busy(FreshCopy(), [&](Rig& run, int now) {
    DefragWindow& window = run.Window();
    run.Stop(BoxAnswer::No);
    Raise(window.Picdepartvolume.click);
    window.details.Open();
    EXPECT_FALSE(window.QueryUnload(CloseReason::CloseBox));
    run.platform.User().WhileModal([&] { window.temperature_warning.Command3.Click(); });
    window.Temperatures.HDDTempCritical(58);
    for (const contract::KnownStream& stream : contract::Walk(*run.volume)) {
      EXPECT_EQ(run.volume->Move(stream.ref, 0, 0, 1), error::kNotReady);
    }
    EXPECT_EQ(run.volume->Commit(), error::kNotReady);
    EXPECT_EQ(run.volume->Close(), error::kNotReady);
    if (now == 2) CopyAsKilled();
  });
  busy.Do(GetParam().pass);
  EXPECT_FALSE(busy.Stopped());
  EXPECT_EQ(busy.platform.User().Modals().size(), static_cast<std::size_t>(busy.checkpoints));
  busy.Close();
  EXPECT_TRUE(LayoutOf(*busy.volume) == expected);
  ExpectIntact(Path("work.img"), manifest_);
  ExpectMended();
}

INSTANTIATE_TEST_SUITE_P(
    Runs, LargeMoveTest,
    testing::Values(
        LargeMoveCase{"ntfsDefrag",
                      "ntfs size=96M files=20 folders=4 big=3 fragmented=100% pieces=4 fill=30%",
                      Pass::Defrag},
        LargeMoveCase{"ntfsOptimize",
                      "ntfs size=96M files=20 folders=4 big=3 fragmented=50% pieces=4 fill=30%",
                      Pass::Optimize},
        LargeMoveCase{"fat32Defrag",
                      "fat32 size=96M files=12 folders=4 big=3 fragmented=100% pieces=4 fill=30%",
                      Pass::Defrag},
        LargeMoveCase{"fat16Compact", "fat16 size=96M files=12 folders=4 big=6 fill=60%",
                      Pass::Compact}),
    [](const auto& param) { return param.param.name; });

}  // namespace
}  // namespace vornalux::test
