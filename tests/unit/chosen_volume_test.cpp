// SPDX-License-Identifier: GPL-2.0-or-later
// Every way through the windows leads to one volume: the one that is shown.
#include <algorithm>
#include <set>

#include "unit/rig.h"

namespace vornalux::testing {
namespace {

// C:, which is chosen, D: with other files, and an empty drive E:.
struct TwoVolumes {
  TwoVolumes() {
    rig.machine->AddVolume('D', *d);
    rig.machine->AddDrive('E', drive_type::kCdRom);
    launcher.Introduction();
  }

  std::string Shown() const {
    return launcher.ImageCombo1.items()[static_cast<std::size_t>(launcher.ImageCombo1.list_index)]
               .substr(0, 3) +
           launcher.JobLine().substr(5, 2) + " " + window.caption.get();
  }
  void ExpectAllShow(const std::string& drive) const {
    EXPECT_EQ(Shown(), drive + "\\" + drive + " Volume " + drive + "\\");
    for (const std::string& name : rig.engine.analysis.lists.FragNames) {
      EXPECT_TRUE(name.empty() || name.starts_with(drive)) << name;
    }
  }
  // The files' places, to see which volume was worked on.
  static std::string Places(SimulatedVolume& volume) {
    std::vector<std::uint8_t> bits(static_cast<std::size_t>(volume.Facts().total_clusters) / 8);
    volume.CopyBitmap(0, bits);
    return {bits.begin(), bits.end()};
  }

  std::unique_ptr<SimulatedVolume> d = SmallVolume(2);
  SmallRig rig;
  Introfrm& launcher = rig.program.launcher;
  DefragWindow& window = rig.window;
};

TEST(ChosenVolume, DriveAndBackToTheSameOne) {
  TwoVolumes two;
  two.rig.Run(kAnalyze);
  two.window.Quitter.Click();
  two.launcher.CmdGo.Click();
  two.ExpectAllShow("C:");
  EXPECT_TRUE(two.rig.program.flags.AnalysisValid) << "it is what it was";
  two.rig.Run(Pass::Defrag);
  EXPECT_GT(two.rig.engine.movers.statistics.moves, 0);
}

TEST(ChosenVolume, ExtensionsToSkipHoldForAnAnalysisFromBefore) {
  TwoVolumes two;
  SimulatedVolume own({.total_clusters = 4096});
  own.AddFile("skip.iso", {{100, 1}, {200, 1}});
  own.AddFile("file.txt", {{300, 1}, {400, 1}});
  two.rig.machine->AddVolume('S', own);
  two.launcher.SelectDrive("S:\\");
  two.launcher.CmdGo.Click();
  two.rig.Run(kAnalyze);
  two.window.Quitter.Click();
  two.launcher.ExcludeTxt.text = "*.iso";
  two.launcher.CmdGo.Click();
  two.rig.Run(Pass::Defrag);
  EXPECT_EQ(own.RunsOf("skip.iso").size(), 2U);
  EXPECT_EQ(own.RunsOf("file.txt").size(), 1U);
}

TEST(ChosenVolume, AnotherOneTakesEverythingAlong) {
  TwoVolumes two;
  two.rig.Run(kAnalyze);
  const std::string c_before = two.Places(two.rig.volume);
  const std::string d_before = two.Places(*two.d);
  two.window.Quitter.Click();
  two.launcher.ImageCombo1.Choose(1);
  two.launcher.CmdGo.Click();
  two.ExpectAllShow("D:");
  EXPECT_EQ(two.window.status_panels[0].caption.get() + two.window.details.counts[0].caption.get(),
            "");
  const std::vector<Colour>& map = two.window.Picdepartvolume.columns();
  EXPECT_EQ(std::set<Colour>(map.begin(), map.end()), std::set<Colour>{map_colour::kFree});
  two.window.Label4[0].click();
  EXPECT_FALSE(two.window.details.visible);
  two.rig.Run(Pass::Defrag);
  two.ExpectAllShow("D:");
  EXPECT_EQ(two.Places(two.rig.volume), c_before);
  EXPECT_NE(two.Places(*two.d), d_before);
}

TEST(ChosenVolume, OneThatCannotBeOpenedIsToldAndRunsNothing) {
  TwoVolumes two;
  two.window.Quitter.Click();
  two.launcher.ImageCombo1.Choose(2);
  two.launcher.CmdGo.Click();
  EXPECT_TRUE(two.launcher.visible);
  two.rig.Run(Pass::Defrag);
  two.launcher.ImageCombo1.Choose(0);
  two.launcher.CmdGo.Click();
  two.rig.faults.FailOpenVolume();
  two.rig.Run(Pass::Defrag);
  const std::string text = "Error opening the drive.\r\nClose some applications and try again.";
  EXPECT_EQ(two.rig.Boxes(), std::vector<std::string>(2, text));
  EXPECT_TRUE(two.window.last_run_failed && !two.window.cmdDefrag.enabled);
  EXPECT_EQ(two.rig.engine.movers.statistics.moves, 0);
}

TEST(ChosenVolume, JobsMoveListAndLineAndAreNotRedirected) {
  for (const char* tail : {"/drv D: /d", "/dir \"D:\\Folder\" /d"}) {
    SCOPED_TRACE(tail);
    TwoVolumes two;
    two.d->AddFolder("Folder");
    const std::string c_before = two.Places(two.rig.volume);
    ScriptedDesktop& user = two.rig.machine->User();
    // The check's only event.
    user.AtDoEvents(user.DoEventsCount() + 1, [&] {
      two.ExpectAllShow("D:");
      two.launcher.ImageCombo1.Choose(0);
    });
    EXPECT_EQ(two.launcher.process_cmd_line(tail), JobOutcome::Done);
    two.ExpectAllShow("D:");
    EXPECT_EQ(two.Places(two.rig.volume), c_before);
    two.window.Quitter.Click();
    two.launcher.CmdGo.Click();
    EXPECT_EQ(two.rig.engine.volume.Target().directory, "") << "the job's folder is forgotten";
  }
}

TEST(ChosenVolume, TheEndDuringAJobsCheckEndsTheJob) {
  for (const CloseReason reason : {CloseReason::CloseBox, CloseReason::EndOfSession}) {
    TwoVolumes two;
    ScriptedDesktop& user = two.rig.machine->User();
    user.AtDoEvents(user.DoEventsCount() + 1, [&] { two.window.QueryUnload(reason); });
    EXPECT_EQ(two.launcher.process_cmd_line("/d /down"), JobOutcome::Stopped);
    EXPECT_EQ(two.rig.machine->PowerOffs(), 0);
    EXPECT_EQ(two.rig.machine->Log().Count(CallKind::MoveClusters), 0U);
    EXPECT_EQ(two.rig.machine->OpenHandles(), 0U);
    EXPECT_EQ(two.rig.Boxes(), std::vector<std::string>());
  }
}

TEST(ChosenVolume, OneThatAnotherVornaluxHasIsLeftToIt) {
  TwoVolumes two;
  two.rig.machine->SetTakenByAnother("D:\\");
  two.window.Quitter.Click();
  two.launcher.ImageCombo1.Choose(1);
  two.launcher.CmdGo.Click();
  EXPECT_TRUE(two.launcher.visible && !two.window.cmdDefrag.enabled);
  for (const char* job : {"/drv D: /d /down", "/drv D:here /d /down"}) {
    EXPECT_EQ(two.launcher.process_cmd_line(job), JobOutcome::InUse) << job;
  }
  EXPECT_EQ(two.rig.Boxes(), std::vector<std::string>(3, "Another Vornalux is working on D:\\."));
  EXPECT_EQ(two.rig.machine->PowerOffs(), 0);
}

// A click on the map lets events through: the drawing of the volume before ends.
TEST(ChosenVolume, ADrawingOfTheOneBeforeEnds) {
  std::size_t drawings_ended = 0;
  for (std::size_t nth = 1; nth < 60; nth += 2) {
    TwoVolumes two;
    two.rig.Run(kAnalyze);
    ScriptedDesktop& user = two.rig.machine->User();
    bool chosen = false;
    user.AtDoEvents(user.DoEventsCount() + nth, [&] {
      chosen = true;
      two.window.Quitter.Click();
      two.launcher.ImageCombo1.Choose(1);
    });
    two.window.Picdepartvolume.click();
    if (!chosen) break;
    const std::vector<Colour>& map = two.window.Picdepartvolume.columns();
    // The first checkpoint comes before the reading: what is drawn then is D:.
    if (nth == 1) continue;
    EXPECT_EQ(std::set<Colour>(map.begin(), map.end()), std::set<Colour>{map_colour::kFree}) << nth;
    ++drawings_ended;
  }
  EXPECT_GT(drawings_ended, 10U);
}

TEST(ChosenVolume, ShowsThePriorityInForce) {
  TwoVolumes two;
  const auto shown = [&] {
    const Introfrm& l = two.launcher;
    return std::string(l.OptPrioLow.value ? "l" : "") + (l.OptPrioMed.value ? "n" : "") +
           (l.OptPrioHi.value ? "h" : "") + l.JobLine().substr(10);
  };
  EXPECT_EQ(shown(), "n /normal");
  two.launcher.process_cmd_line("/drv C: /low");
  EXPECT_EQ(shown(), "l /low");
  two.launcher.ImageCombo1.Choose(1);
  EXPECT_EQ(shown(), "n /normal");
  EXPECT_EQ(two.rig.machine->PriorityClass(), priority::kNormal);
  two.window.minmnu.Click();
  EXPECT_EQ(shown(), "l /low");
}

}  // namespace
}  // namespace vornalux::testing
