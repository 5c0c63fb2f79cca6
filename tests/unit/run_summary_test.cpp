// SPDX-License-Identifier: GPL-2.0-or-later
// What a run says of itself: reasons, figures, words, and the report that is saved. That figures
// and reasons are true on any volume is shown beside the passes.
#include "engine/run_summary.h"

#include "engine/summary_text.h"
#include "unit/rig.h"

namespace vornalux::testing {
namespace {

std::string English(ErrorCode code) { return code == error::kAccessDenied ? "No.\r\n" : ""; }

// A file of 10 clusters, of 1 MiB each.
TEST(RunSummary, EachFileHasTheReasonThatIsTrue) {
  struct Case {
    FileStory story;
    RunEnd end;
    const char* text;
  };
  const auto failed = [](NotMoved reason, ErrorCode code = error::kSuccess) {
    return MoveFailure{"f", reason, code, 10};
  };
  const MoveFailure locked = failed(NotMoved::CannotOpen, error::kAccessDenied);
  const MoveFailure refused = failed(NotMoved::Refused, error::kSeek);
  const MoveFailure no_gap = failed(NotMoved::NoGap), no_place = failed(NotMoved::NoPlace);
  const MoveFailure unaligned = failed(NotMoved::Alignment);
  const MovedInPieces pieces = {"f"}, pieces_refused = {"f", NotMoved::Refused, 5};
  const RunEnd joins = {.joins_all = true, .stopped = false, .largest_gap = 9};
  const RunEnd roomy = {.joins_all = true, .stopped = false, .largest_gap = 10};
  const RunEnd stopped = {.joins_all = true, .stopped = true, .largest_gap = 10};
  const RunEnd compact = {.joins_all = false, .stopped = false, .largest_gap = 10};
  const RunEnd tight = {.joins_all = false, .stopped = false, .largest_gap = 9};
  const RunEnd unread = {.joins_all = true, .stopped = false, .largest_gap = {}};
  const RunEnd full = {.joins_all = true, .stopped = false, .largest_gap = 3, .free = 8};
  const RunEnd freed = {.joins_all = true, .stopped = false, .largest_gap = 3, .free = 9};
  const LeftByPlan blocked = {"f", plan::Obstacle::Blocked, 9, 7};
  const LeftByPlan space = {"f", plan::Obstacle::Space, 9}, limit = {"f", plan::Obstacle::Limit};
  const Case kCases[] = {
      {{.excluded = true, .failure = &refused}, joins, "left out"},
      {{.failure = &locked}, stopped, "could not be opened: No. (error 5)"},
      {{.one_piece = true, .failure = &no_gap}, joins, "but for its holes"},
      {{.failure = &refused, .in_pieces = &pieces}, joins, "refuses to move it: error 25"},
      {{.in_pieces = &pieces}, joins, "moved in pieces: no gap held its 10 MiB"},
      {{.in_pieces = &pieces_refused}, joins, "refuses to move it whole: No. (error 5)"},
      {{.failure = &unaligned}, roomy, "aligned"},
      {{.failure = &no_gap}, joins, "needs 10 MiB in one piece, largest gap 9 MiB"},
      {{.failure = &no_gap}, roomy, "when its turn came"},
      {{.failure = &no_gap}, unread, "when its turn came"},
      {{.failure = &no_place}, compact, "no free place in the area"},
      {{.failure = &no_place}, tight, "largest gap 9 MiB"},
      {{.failure = &no_place}, stopped, "before the run was stopped"},
      {{.left = &blocked},
       full,
       "needs 9 MiB in one piece, what this run cannot move leaves at most "
       "7 MiB between"},
      {{.left = &space},
       full,
       "needs 9 MiB in one piece, all free space together is 8 MiB, and no"},
      {{.left = &space}, freed, "no order of moves was found"},
      {{.left = &limit}, full, "more to move than --max-move allows"},
      {{.left = &space}, stopped, "before the run was stopped"},
      {{.failure = &refused, .left = &space}, full, "refuses to move it: error 25"},
      {{}, stopped, "before the run was stopped"},
      {{}, compact, "moves nothing"},
      {{}, tight, "needs 10 MiB"},
      {{}, roomy, "all the same"},
  };
  for (const Case& c : kCases) {
    StillFragmented file = {.path = "f", .fragments = 2, .clusters = 10};
    Explain(file, c.story, c.end);
    RunSummary summary;
    summary.cluster_bytes = 1 << 20;
    summary.regions_after = FreeRegions{1, 9, {c.end.largest_gap.value_or(0)}};
    const std::string text = ReasonText(file, summary, English);
    EXPECT_NE(text.find(c.text), std::string::npos) << text << ", not " << c.text;
  }
}

TEST(RunSummary, ARateNeedsMovesAndTime) {
  for (const auto& [clusters, milliseconds, text] : {std::tuple{2048, 80000, "1:20, 25 KiB/s"},
                                                     {2048, 7340, "7.3 s, 272.5 KiB/s"},
                                                     {2048, 0, "0 ms"},
                                                     {0, 500, "500 ms"}}) {
    RunSummary summary;
    summary.cluster_bytes = 1000;
    summary.clusters_moved = clusters;
    summary.duration = std::chrono::milliseconds(milliseconds);
    EXPECT_EQ(PaceText(summary), text);
  }
}

// Of files one has been locked since the analysis, one is left out, and one fits no gap.
TEST(RunSummary, TellsWhatARunLeftAndStaysWithItsVolume) {
  for (const bool stop : {false, true}) {
    SCOPED_TRACE(stop);
    SimulatedVolume volume({.total_clusters = 200, .sectors_per_cluster = 8});
    volume.AddFile("a", {{10, 2}, {20, 2}});
    volume.AddFile("big\n", {{30, 9}, {50, 9}, {70, 10}});
    const ItemId held = volume.AddFile("held", {{90, 1}, {95, 1}});
    volume.AddFile("out.iso", {{100, 3}, {110, 3}, {120, 3}, {130, 3}});
    volume.AddFile("z", {{140, 1}, {145, 1}, {148, 1}, {150, 1}, {155, 1}});
    for (const int taken : {12, 22, 40, 60, 80}) volume.TakeClusters(taken, 8);
    volume.TakeClusters(160, 40);
    Rig rig(volume);
    rig.program.launcher.ExcludeTxt.text = std::string("*.ISO");
    rig.Run(kAnalyze);
    volume.Lock(held);
    if (stop) rig.faults.BeforeMove({}, [&] { rig.program.flags.StopRequested = True; });
    rig.Run(Pass::Defrag);
    ASSERT_TRUE(rig.engine.record.Summary());
    const RunSummary& summary = *rig.engine.record.Summary();
    std::string still;
    for (const StillFragmented& file : summary.still_fragmented) {
      still += file.path.substr(3) + " " + std::to_string(file.fragments) + " " +
               ReasonText(file.why) + "; ";
    }
    constexpr const char* kNotYet = " not moved before the run was stopped; ";
    const std::string out = "out.iso 4 left out by its extension; ";
    EXPECT_EQ(still, (stop ? std::string("z 5") + kNotYet + out + "big\n 3" + kNotYet
                           : "big\n 4 moved in pieces; " + out) +
                         "held 2 locked: could not be opened; ");
    EXPECT_EQ(summary.stopped, stop);
    ExpectSound(rig);

    EXPECT_TRUE(rig.window.savereport.enabled);
    EXPECT_TRUE(rig.window.result_line.caption.get().starts_with(stop ? "Defrag stopped: "
                                                                      : "Defrag done: "));
    ScriptedDesktop& user = rig.machine->User();
    ScriptedShell& shell = rig.machine->Shell();
    rig.window.savereport.Click();
    EXPECT_TRUE(shell.files.empty()) << "cancelled";
    user.SaveAs("D:\\r.txt");
    rig.window.savereport.Click();
    const std::string report = shell.files["D:\\r.txt"];
    EXPECT_NE(report.find(rig.window.result_line.caption.get() + "\r\n"), std::string::npos);
    EXPECT_EQ(std::ranges::count(report, '\n'), std::ranges::count(report, '\r')) << report;
    EXPECT_NE(report.find("C:\\big?  ("), std::string::npos) << report;
    shell.fails_at = "write";
    user.SaveAs("D:\\r.txt");
    rig.window.savereport.Click();
    EXPECT_TRUE(user.Boxes().back().text.starts_with("The report could not be saved:\r\n"));

    SimulatedVolume other({.total_clusters = 100});
    rig.machine->AddVolume('D', other);
    rig.program.launcher.SelectDrive("D:\\");
    EXPECT_FALSE(rig.window.savereport.enabled || rig.engine.record.Summary());
    EXPECT_EQ(rig.window.result_line.caption.get(), "");
  }
}

TEST(RunSummary, OfADriveThatHasGoneItIsKnownWhatWasMoved) {
  SmallRig rig;
  rig.faults.BeforeMove({.path = {}, .nth = 3},
                        [&] { rig.machine->SetDriveState('C', DriveState::Gone); });
  rig.Run(Pass::Defrag);
  const std::string line = rig.window.result_line.caption;
  EXPECT_EQ(line.find("still fragmented"), std::string::npos) << line;
  EXPECT_TRUE(line.starts_with("Defrag done: ") && line.find(": 0 bytes") == std::string::npos)
      << line;
  rig.machine->User().SaveAs("D:\\r.txt");
  rig.window.savereport.Click();
  EXPECT_NE(rig.machine->Shell().files["D:\\r.txt"].find("Still fragmented: not known"),
            std::string::npos);
}

}  // namespace
}  // namespace vornalux::testing
