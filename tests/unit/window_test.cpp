// SPDX-License-Identifier: GPL-2.0-or-later
// The main window around a run: its menu, closing, minimising, another drive, the details.
#include <algorithm>

#include "unit/rig.h"

namespace vornalux::testing {
namespace {

// The menu as a word: one letter an enabled item, a dash a disabled one.
std::string Menu(const DefragWindow& window) {
  const std::pair<const MenuItem*, char> items[] = {
      {&window.Quitter, 'd'},   {&window.Arretdefrag, 's'},   {&window.cmdanalysemore, 'A'},
      {&window.cmdDefrag, 'D'}, {&window.SmartOptimize, 'O'}, {&window.cmdCompact, 'C'},
      {&window.thorough, 't'},  {&window.minmnu, 'm'},        {&window.exitmnu, 'e'}};
  std::string menu;
  for (const auto& [item, letter] : items) menu += item->enabled ? letter : '-';
  return menu;
}

constexpr const char* kIdle = "d-ADOCtme";
constexpr const char* kBusy = "-s-----m-";
constexpr const char* kNoDrive = "d------me";

// Runs the action inside the nth checkpoint of a run that begins now.
template <typename Action>
void During(Rig& rig, RunKind pass, std::size_t nth, Action action) {
  ScriptedDesktop& user = rig.machine->User();
  user.AtDoEvents(user.DoEventsCount() + nth, action);
  rig.Run(pass);
}

TEST(Window, MenuAndTimersFollowTheState) {
  SmallRig rig;
  DefragWindow& window = rig.window;
  EXPECT_EQ(Menu(window), kIdle);
  for (const RunKind pass : AllRuns()) {
    SCOPED_TRACE(PassName(pass));
    rig.machine->User().AtEveryDoEvents([&] {
      ASSERT_EQ(Menu(window), kBusy);
      ASSERT_TRUE(window.tmrTemperatures.enabled);
      window.cmdDefrag.Click();  // disabled: nothing begins inside a run
    });
    rig.Run(pass);
    rig.machine->User().AtEveryDoEvents({});
    EXPECT_EQ(Menu(window), kIdle);
    EXPECT_FALSE(window.tmrTemperatures.enabled);
  }
  rig.program.debug_window.DBGTXT.Append("text");
  window.Quitter.Click();
  EXPECT_EQ(Menu(window), kNoDrive);
  EXPECT_EQ(rig.engine.geometry.VolumeHandle, kInvalidHandle);
  EXPECT_FALSE(window.Picdepartvolume.visible);
  EXPECT_TRUE(rig.program.launcher.visible);
  EXPECT_EQ(rig.Log(), "");
  rig.program.launcher.CmdGo.Click();
  EXPECT_EQ(Menu(window), kIdle);
  EXPECT_TRUE(window.Picdepartvolume.visible);
}

TEST(Window, ClosesAtOnceOnlyWhenIdle) {
  for (const auto reason : {CloseReason::CloseBox, CloseReason::Code, CloseReason::EndOfSession,
                            CloseReason::TaskManager}) {
    for (const bool busy : {false, true}) {
      SCOPED_TRACE(std::to_string(static_cast<int>(reason)) + (busy ? " busy" : " idle"));
      SmallRig rig;
      std::string unloaded;
      const std::pair<Form*, char> forms[] = {
          {&rig.program.launcher, 'l'},           {&rig.window.details, 'd'},
          {&rig.program.debug_window, 'b'},       {&rig.program.launcher.context_menu, 'c'},
          {&rig.window.temperature_warning, 't'}, {&rig.window, 'w'}};
      for (const auto& [form, letter] : forms) {
        form->unloaded = [&unloaded, l = letter] { unloaded += l; };
      }
      bool closes = false;
      const auto close = [&] { closes = rig.window.QueryUnload(reason); };
      if (busy) {
        During(rig, Pass::Defrag, 5, close);
        ExpectSound(rig);
      } else {
        close();
      }
      const bool stays = busy && reason == CloseReason::CloseBox;
      EXPECT_EQ(closes, !stays);
      EXPECT_EQ(unloaded, stays ? "" : busy ? "w" : "ldbctw");
      EXPECT_EQ(rig.program.flags.StopRequested != False, !stays);
      EXPECT_EQ(rig.Boxes(), std::vector<std::string>(busy, "Quit current operation first!"));
      EXPECT_EQ(rig.engine.geometry.VolumeHandle == kInvalidHandle, !busy);
    }
  }
  SmallRig rig;
  rig.window.exitmnu.Click();
  EXPECT_TRUE(rig.program.flags.StopRequested);
}

TEST(Window, MinimisingYieldsToOtherPrograms) {
  SmallRig rig;
  const auto yielded = [&] {
    const std::vector<CallRecord> calls = rig.machine->Log().Of(CallKind::SetPriorityClass);
    return std::ranges::count(calls, 64, [](const CallRecord& call) { return call.numbers[0]; });
  };
  During(rig, Pass::Defrag, 5, [&] { rig.window.minmnu.Click(); });
  EXPECT_TRUE(rig.program.launcher.OptPrioLow.value) << "what is in force is shown";
  EXPECT_EQ(yielded(), 1);
  EXPECT_FALSE(rig.window.visible);
  rig.window.Resized();
  EXPECT_EQ(yielded(), 1) << "only a minimised window";
  rig.window.window_state = WindowState::Minimized;
  rig.window.Resized();
  EXPECT_EQ(yielded(), 2);
}

TEST(Window, NamesCountersAndLogAreShownWhenWanted) {
  for (const RunKind pass : AllRuns()) {
    for (const bool wanted : {false, true}) {
      SCOPED_TRACE(PassName(pass) + std::to_string(wanted));
      SmallRig rig(3);
      Label& line = rig.window.etfich;
      const auto names = [&] { return line.caption.get().find('\\') != std::string::npos; };
      int shown = 0;
      line.changed = [&] { shown += names(); };
      if (wanted) rig.DebugOn();
      if (!wanted) rig.window.ChkNoFileDisplay.Click();
      rig.Run(pass);
      EXPECT_EQ(shown > 0, pass && wanted);
      EXPECT_EQ(rig.program.debug_window.visible, pass && wanted);
      rig.window.UpdateTimer.tick();
      EXPECT_EQ(line.caption.get(), "directories: " + std::to_string(rig.engine.table.TotalDirs) +
                                        " / files: " + std::to_string(rig.engine.table.TotalFiles));
      if (!wanted) continue;
      rig.window.SetCurrentFile("C:\\file");
      rig.window.ChkNoFileDisplay.Click();
      EXPECT_EQ(line.caption.get(), "") << "at once";
    }
  }
}

// Named so that each list shows which of its slots were taken.
TEST(Details, ListsWhatEachButtonStandsFor) {
  SmallRig rig;
  FrmDetails& details = rig.window.details;
  const auto rows = [&] {
    std::string text;
    for (const Button* button : {&details.Command1, &details.Command2, &details.Command3}) {
      text += button->marked ? '*' : '-';
    }
    for (const std::string& row : details.ListView1.rows()) text += row;
    return text;
  };
  const auto open = [&] {
    details.Hide();
    rig.window.Label4[1].click();
    return static_cast<bool>(details.visible);
  };
  EXPECT_FALSE(open()) << "before any analysis";

  FileTable& table = rig.engine.table;
  rig.engine.analysis.lists.FragNames = {"a", "", "b", "c"};
  table.OptimizeFiles.paths = {"d", "", "e", "f"};
  table.PrefetchFiles.paths = {"g", "h"};
  table.DirsToMove.paths = {"i", "j"};
  table.OptimizeFiles.count = table.PrefetchFiles.count = table.DirsToMove.count = 1;
  rig.program.flags.AnalysisValid = True;
  EXPECT_TRUE(open());
  EXPECT_EQ(rows(), "*--abc") << "the last slot too";
  details.Command2.Click();
  EXPECT_EQ(rows(), "*--abc") << "disabled without classes";
  rig.program.flags.AnalysisValid = False;
  rig.program.flags.ClassListsValid = True;
  EXPECT_TRUE(open());
  EXPECT_EQ(rows(), "*--abc") << "cleared first";
  details.Command2.Click();
  EXPECT_EQ(rows(), "-*-de") << "not the last slot";
  details.Command3.Click();
  EXPECT_EQ(rows(), "--*gi");
  table.PrefetchFiles.count = 0;
  details.Command3.Click();
  EXPECT_EQ(rows(), "--*i");
}

TEST(Controls, StayWithinTheirBounds) {
  ProgressBar bar;
  bar.SetRange(0, 10);
  bar.SetValue(12);
  EXPECT_EQ(bar.value.get(), 10);
  bar.SetRange(0, -3);
  EXPECT_EQ(bar.maximum.get() + bar.value.get(), 0);

  ComboBox box;
  std::string chosen;
  int told = 0;
  box.change = [&] { chosen += std::to_string(box.list_index); };
  box.changed = [&] { ++told; };
  box.Choose(0);
  box.Add("C:");
  box.Add("D:");
  for (const int index : {1, 1, 2, -1, 0}) box.Choose(index);
  EXPECT_EQ(chosen, "110");
  EXPECT_EQ(told, 4) << "two items, two changes of the choice";
  box.Clear();
  EXPECT_EQ(box.list_index.get(), -1);
}

}  // namespace
}  // namespace vornalux::testing
