// SPDX-License-Identifier: GPL-2.0-or-later
// Stop pressed at every single checkpoint of every run.
#include <algorithm>
#include <map>
#include <set>
#include <span>

#include "unit/rig.h"

namespace vornalux::testing {
namespace {

// One run with the Stop command clicked inside the nth checkpoint.
struct StoppedRun {
  StoppedRun(RunKind pass, std::size_t nth, BoxAnswer answer)
      : volume(SmallVolume(3)), rig(*volume) {
    ScriptedDesktop& user = rig.machine->User();
    const std::size_t before = user.DoEventsCount();
    if (nth > 0) {
      user.Answer(answer);
      user.AtDoEvents(before + nth, [this] {
        caption_at_stop = rig.window.caption;
        inside_move = rig.engine.movers.statistics.clusters_in_hand > 0 &&
                      rig.window.activity.fill_colour.get() == activity_colour::kMoving;
        calls_at_stop = rig.machine->Log().Calls().size();
        EXPECT_TRUE(rig.window.Arretdefrag.enabled);
        rig.window.Arretdefrag.Click();
      });
    }
    rig.Run(pass);
    checkpoints = user.DoEventsCount() - before;
  }

  // Files that movers have opened; only those after the stop, if asked for.
  std::vector<std::string> Handled(bool after_stop) const {
    std::vector<std::string> paths;
    const CallLog& log = rig.machine->Log();
    for (std::size_t i = after_stop ? calls_at_stop : 0; i < log.Calls().size(); ++i) {
      const CallRecord& call = log.Calls()[i];
      const bool by_mover = call.kind == CallKind::OpenPath &&
                            call.numbers[0] == static_cast<int>(FileAccess::ReadAttributes) &&
                            call.numbers[1] == static_cast<int>(FileFlags::None);
      if (by_mover && walk_over(i)) paths.push_back(log.Path(call));
    }
    return paths;
  }
  // The walk opens files in the same way, for their streams.
  bool walk_over(std::size_t call) const { return Calls(CallKind::StreamNames, call) == 0; }
  std::vector<CallRecord> Moves() const { return rig.machine->Log().Of(CallKind::MoveClusters); }
  // Those from the nth on.
  std::ptrdiff_t Calls(CallKind kind, std::size_t from) const {
    const auto later = std::span(rig.machine->Log().Calls()).subspan(from);
    return std::ranges::count(later, kind, &CallRecord::kind);
  }
  bool Stopped(const char* caption) const { return caption_at_stop.starts_with(caption); }

  std::unique_ptr<SimulatedVolume> volume;
  Rig rig;
  std::string caption_at_stop;
  std::size_t calls_at_stop = 0;
  bool inside_move = false;
  std::size_t checkpoints = 0;
};

void ExpectStopped(const StoppedRun& run, RunKind pass) {
  const Rig& rig = run.rig;
  ExpectSound(rig);
  ASSERT_EQ(rig.machine->User().Boxes().size(), 1U);
  const ShownBox& box = rig.machine->User().Boxes()[0];
  EXPECT_EQ(box.text + box.title, "Are you sure?Paused ...");
  EXPECT_EQ(box.icon, BoxIcon::Question);
  EXPECT_TRUE(rig.program.flags.StopRequested);
  EXPECT_FALSE(rig.program.flags.AnalysisValid);
  EXPECT_FALSE(rig.program.flags.ClassListsValid);
  EXPECT_FALSE(rig.window.UpdateTimer.enabled);
  EXPECT_EQ(rig.window.caption.get(), "Volume C:\\");
  EXPECT_EQ(rig.window.LblRedraw.fore_colour.get(), activity_colour::kResting);

  // The move in hand is given up, and the file is none that could not be moved.
  const std::vector<CallRecord> moves = run.Moves();
  const auto given_up = std::ranges::count(moves, error::kOperationAborted, &CallRecord::error);
  EXPECT_TRUE(!run.inside_move || given_up > 0);
  EXPECT_LE(run.Calls(CallKind::MoveClusters, run.calls_at_stop), run.inside_move ? 1 : 0)
      << "begun after the stop";
  for (const MoveFailure& failure : rig.engine.movers.statistics.failures) {
    EXPECT_NE(failure.code, error::kOperationAborted) << failure.path;
  }
  EXPECT_EQ(rig.engine.movers.statistics.clusters_in_hand, 0);

  const bool analysing =
      run.Stopped("Volume") || run.Stopped("Enumerating") || run.Stopped("Analyzing");
  if (run.Stopped("Enumerating")) {
    EXPECT_EQ(rig.window.progress.value.get(), 0);
    // The walk ends in the folder that it is about to enter.
    EXPECT_LE(run.Calls(CallKind::FindFirst, run.calls_at_stop), 1);
  }
  if (analysing) {
    EXPECT_EQ(run.Handled(false), std::vector<std::string>());
    return;
  }
  std::vector<std::string> after = run.Handled(true);
  const auto shown = [&](const char* caption) {
    return std::ranges::count(rig.captions, caption) > 0;
  };
  ASSERT_TRUE(pass) << "nothing but analysis here";
  switch (*pass) {
    case Pass::Defrag:
      // A file whose turn has come is still handled.
      EXPECT_LE(after.size(), 1U);
      EXPECT_EQ(rig.window.etfich.caption.get(), "");
      if (!after.empty()) {
        EXPECT_EQ(rig.window.progress.value.get(), 0);
      }
      break;
    case Pass::Optimize: {
      // No file is begun any more, the master file table excepted.
      const std::vector<std::string> handled = run.Handled(false);
      EXPECT_EQ(std::ranges::count(handled, "C:\\$MFT"), 1);
      std::erase(after, "C:\\$MFT");
      EXPECT_EQ(after, std::vector<std::string>());
      EXPECT_TRUE(shown("Optimzing volume C:\\") && shown("Compacting volume C:\\") &&
                  shown("Defragging volume C:\\"));
      break;
    }
    case Pass::Compact: {
      // Each of the two phases still takes the entry at hand, the second one its first.
      const std::string& first_file = rig.engine.table.OptimizeFiles.paths.front();
      const std::string& first_folder = rig.engine.table.DirsToMove.paths.front();
      const std::vector<std::string> handled = run.Handled(false);
      EXPECT_LE(after.size(), 2U);
      EXPECT_EQ(std::ranges::count(handled, first_file), 1);
      EXPECT_EQ(std::ranges::count(handled, first_folder), 1);
      if (run.Stopped("Optimzing")) {
        EXPECT_EQ(handled.back(), first_file);
      }
      EXPECT_EQ(rig.engine.geometry.constants.ReservedFront, 0);
      break;
    }
  }
}

// Answered No.
void ExpectUnchanged(const StoppedRun& run, const StoppedRun& whole) {
  ExpectSound(run.rig);
  EXPECT_FALSE(run.rig.program.flags.StopRequested);
  EXPECT_EQ(run.checkpoints, whole.checkpoints);
  EXPECT_EQ(run.rig.captions, whole.rig.captions);
  EXPECT_EQ(run.rig.window.progress.value.get(), whole.rig.window.progress.value.get());
  EXPECT_TRUE(std::ranges::equal(run.Moves(), whole.Moves(), {}, &CallRecord::numbers,
                                 &CallRecord::numbers));
}

// A stop is seen at the next entry; at the last one there is nothing left to leave out.
TEST(StoppedAnalysis, ReportsOnlyWhenComplete) {
  for (const bool at_last_entry : {false, true}) {
    SmallRig rig(3);
    rig.DebugOn();
    std::size_t entry = 0;
    rig.machine->User().AtEveryDoEvents([&] {
      if (!rig.window.caption.get().starts_with("Analyzing")) return;
      const std::size_t last = rig.engine.table.MultiExtentPaths.paths.size();
      ASSERT_GT(last, 2U);
      if (++entry == (at_last_entry ? last : 1)) rig.program.flags.StopRequested = True;
    });
    rig.Run(kAnalyze);
    EXPECT_FALSE(rig.program.flags.AnalysisValid);
    EXPECT_EQ(rig.Log().find("total files") != std::string::npos, at_last_entry);
    EXPECT_EQ(rig.window.progress.value.get() > 0, at_last_entry);
  }
}

// The user is heard while one folder of a thousand names is listed, and while its files are read.
TEST(StoppedAnalysis, EndsWithinALargeFolder) {
  constexpr std::int32_t kFiles = 5000;
  SimulatedVolume volume({.total_clusters = 100});
  const ItemId folder = volume.AddFolder("large");
  for (int i = 0; i < kFiles; ++i) volume.AddItem(folder, "f" + std::to_string(i), {}, 0);
  for (const int stop_at : {1, 4, 8, 100}) {
    Rig rig(volume);
    int within = 0;
    rig.machine->User().AtEveryDoEvents([&] {
      if (rig.window.caption.get().starts_with("Enum") && rig.engine.table.TotalDirs == 1 &&
          ++within == stop_at) {
        rig.program.flags.StopRequested = True;
      }
    });
    rig.Run(kAnalyze);
    EXPECT_EQ(rig.engine.table.TotalFiles < kFiles, stop_at != 100) << within;
    EXPECT_EQ(rig.engine.table.TotalFiles == 0, stop_at <= 4) << within;
    EXPECT_GT(within, stop_at == 100 ? kFiles / 256 : 0);
    EXPECT_TRUE(rig.machine->Unreadable().empty());
  }
}

class StopTest : public ::testing::TestWithParam<RunKind> {};

TEST_P(StopTest, AtEveryCheckpoint) {
  std::vector<std::string> captions = {"Enumerating files on volume C:\\",
                                       "Analyzing files on volume C:\\", "Volume C:\\"};
  const std::map<RunKind, std::vector<std::string>> doing = {
      {kAnalyze, {}},
      {Pass::Defrag, {"Defragmenting"}},
      {Pass::Optimize, {"Preparing", "Optimzing", "Compacting", "Defragging"}},
      {Pass::Compact, {"Preparing", "Optimzing", "Compacting"}}};
  for (const std::string& word : doing.at(GetParam())) captions.push_back(word + " volume C:\\");
  if (GetParam()) captions.push_back("Volume C:\\");
  const StoppedRun whole(GetParam(), 0, BoxAnswer::No);
  ExpectSound(whole.rig);
  EXPECT_EQ(whole.rig.captions, captions);
  EXPECT_EQ(whole.Moves().empty(), GetParam() == kAnalyze);
  std::set<std::string> seen;  // captions under which a stop was tried
  int inside_moves = 0;
  for (std::size_t nth = 1; nth <= whole.checkpoints; ++nth) {
    SCOPED_TRACE("checkpoint " + std::to_string(nth));
    const StoppedRun run(GetParam(), nth, BoxAnswer::Yes);
    ExpectStopped(run, GetParam());
    seen.insert(run.caption_at_stop);
    inside_moves += run.inside_move;
    if (nth % 3 == 1) ExpectUnchanged(StoppedRun(GetParam(), nth, BoxAnswer::No), whole);
    if (HasFailure()) return;
  }
  EXPECT_EQ(inside_moves > 0, GetParam() == Pass::Defrag || GetParam() == Pass::Optimize);
  EXPECT_EQ(seen, std::set<std::string>(captions.begin(), captions.end()));
}

INSTANTIATE_TEST_SUITE_P(All, StopTest, ::testing::ValuesIn(AllRuns()),
                         [](const auto& pass) { return PassName(pass.param); });

}  // namespace
}  // namespace vornalux::testing
