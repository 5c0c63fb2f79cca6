// SPDX-License-Identifier: GPL-2.0-or-later
// Runs from the main window, by a user who watches.
#include <windows.h>

// After the header that it needs.
#include <shellapi.h>

#include <string>
#include <vector>

#include "app/program.h"
#include "host/simulated/scripted_desktop.h"
#include "host/windows/ui/resource.h"
#include "windows/flows/flow.h"

namespace vornalux::play {
namespace {

// Past the launcher, to the main window of the drive that is number index in the list.
void SelectDrive(Session& session, int index) {
  session.Start();
  const Screen& screen = session.screen;
  screen.UntilShown("the launcher", &Screen::Launcher);
  screen.Choose(screen.Launcher(), IDC_VOLUMES, index);
  screen.Press(screen.Launcher(), IDC_SELECT);
  screen.UntilShown("the main window", &Screen::Main);
  screen.UntilIdle();
}

constexpr int kC = 1;
constexpr int kD = 2;

// While the program makes its nth move from here on, something is posted to its main window.
void PostAtMove(Session& session, int nth, UINT message, WPARAM wparam) {
  session.machine.Drives().Faults().BeforeMove(
      {.path = {}, .nth = nth},
      [&session, message, wparam] { PostMessageW(session.screen.Main(), message, wparam, 0); });
}

// The same volume analysed by the portable program, in this process but past the system's calls.
FLOW(AnalyzeShowsNumbersAndMap, "", Alone) {
  SelectDrive(session, kD);
  const Screen& screen = session.screen;
  EXPECT_EQ(Screen::Text(screen.Main()), "Volume D:\\");
  EXPECT_FALSE(Screen::Shown(screen.Launcher()));
  RECT frame;
  GetWindowRect(screen.Main(), &frame);
  SetWindowPos(screen.Main(), nullptr, 0, 0, frame.right - frame.left + 200,
               frame.bottom - frame.top + 30, SWP_NOMOVE | SWP_NOZORDER);
  screen.Run(IDM_ANALYZE);

  SIZE size;
  const std::vector<std::uint32_t> map = Screen::Picture(screen.Main(), IDC_MAP, size);
  ScriptedDesktop nobody;
  SimulatedPlatform& drives = session.machine.Drives();
  Platform platform = drives.With(nobody);
  Program portable(platform);
  portable.launcher.SelectDrive("D:\\");
  portable.main_window.OpenMenu();
  PictureBox& picture = portable.main_window.Picdepartvolume;
  picture.Resize(size.cx);
  portable.main_window.cmdanalysemore.Click();
  int different = 0;
  for (int y = 0; y < size.cy; ++y) {
    for (int x = 0; x < size.cx; ++x) {
      different += map[static_cast<std::size_t>(y * size.cx + x)] !=
                   picture.columns()[static_cast<std::size_t>(x)];
    }
  }
  EXPECT_GT(size.cx, 600);
  EXPECT_EQ(different, 0) << "of " << size.cx << " x " << size.cy << " pixels";
  EXPECT_EQ(Screen::Text(screen.Main()), portable.main_window.caption.get());

  int number = 0;
  for (const Label& panel : portable.main_window.status_panels) {
    EXPECT_EQ(Screen::Panel(screen.Main(), IDC_STATUS_BAR, number++), panel.caption.get());
  }

  // Behind the map's colours.
  screen.Press(screen.Main(), IDC_LEGEND_LABEL4 + 1);
  screen.UntilShown("the details", &Screen::Details);
  portable.main_window.details.Open();
  const std::vector<std::string> rows = Screen::Rows(GetDlgItem(screen.Details(), IDC_LIST));
  EXPECT_GT(rows.size(), 50u);
  EXPECT_EQ(rows, portable.main_window.details.ListView1.rows());
  screen.Menu(IDM_EXIT);
  EXPECT_EQ(session.End(), 0u);
}

FLOW(KeysAloneWillDo, "", Alone) {
  session.Start();
  const Screen& screen = session.screen;
  screen.UntilShown("the launcher", &Screen::Launcher);
  PostMessageW(screen.Launcher(), WM_KEYDOWN, VK_RETURN, 1);
  screen.UntilShown("the main window", &Screen::Main);
  screen.UntilIdle();
  constexpr LPARAM kAltIsDown = 1 << 29;
  PostMessageW(screen.Main(), WM_SYSCHAR, 'a', kAltIsDown);
  screen.Until("the analysis begins", [&] { return screen.RunsBegun() == 1; });
  screen.UntilIdle();
  PostMessageW(screen.Main(), WM_SYSCHAR, 'x', kAltIsDown);
  EXPECT_EQ(session.End(), 0u);
}

FLOW(StopPausesAndStops, "", Alone) {
  SelectDrive(session, kD);
  const Screen& screen = session.screen;
  PostAtMove(session, 3, WM_COMMAND, IDM_STOP);
  PostAtMove(session, 8, WM_CLOSE, 0);
  PostAtMove(session, 12, WM_COMMAND, IDM_STOP);
  const CallLog& log = session.machine.Drives().Log();

  screen.Menu(IDM_DEFRAG);
  screen.Until("the question", [&] { return screen.Box() != nullptr; });
  EXPECT_EQ(Screen::Text(screen.Box()), "Paused ...");
  const std::size_t paused_at = log.Count(CallKind::MoveClusters);
  EXPECT_TRUE(screen.MenuEnabled(IDM_STOP));
  EXPECT_FALSE(screen.MenuEnabled(IDM_EXIT));
  screen.Answer("Are you sure?", IDNO);

  screen.Answer("Quit current operation first!");
  EXPECT_TRUE(Screen::Shown(screen.Main()));
  EXPECT_GT(log.Count(CallKind::MoveClusters), paused_at);

  screen.Answer("Are you sure?", IDYES);
  screen.UntilIdle();
  EXPECT_LT(log.Count(CallKind::MoveClusters), 20u) << "went on after the stop";
  KeepImageOfD(session);
}

// Files of several requests each, on a drive of their own: Stop is heard inside one, which is moved
// to its end all the same; and one that is refused in the middle goes back first.
FLOW(ALargeFileLeavesTheUserAWord, "", Alone) {
  SimulatedPlatform& drives = session.machine.Drives();
  SimulatedVolume large({.total_clusters = 65536});
  large.AddFile("first", {{1000, 5000}, {8000, 5000}});
  large.AddFile("second", {{16000, 3000}, {20000, 3000}, {24000, 3000}});
  drives.AddVolume('S', large);
  drives.Log().SetRecording(true);
  const auto requests = [&drives](const char* path) {
    std::vector<std::string> texts;
    for (const CallRecord& call : drives.Log().Of(CallKind::MoveClusters, path)) {
      texts.push_back(drives.Log().Text(call).substr(13));
    }
    return texts;
  };
  session.Start();
  const Screen& screen = session.screen;
  screen.UntilShown("the launcher", &Screen::Launcher);
  const std::vector<std::string> items = Screen::Items(GetDlgItem(screen.Launcher(), IDC_VOLUMES));
  screen.Choose(screen.Launcher(), IDC_VOLUMES, static_cast<int>(items.size()) - 1);
  screen.Press(screen.Launcher(), IDC_SELECT);
  screen.UntilShown("the main window", &Screen::Main);
  screen.UntilIdle();
  EXPECT_EQ(Screen::Text(screen.Main()), "Volume S:\\");

  PostAtMove(session, 2, WM_COMMAND, IDM_STOP);
  screen.Menu(IDM_DEFRAG);
  screen.Until("the question", [&] { return screen.Box() != nullptr; });
  EXPECT_EQ(requests("S:\\first").size(), 2u) << "heard before the file has ended";
  screen.Answer("Are you sure?", IDYES);
  screen.UntilIdle();
  EXPECT_EQ(requests("S:\\first"), (std::vector<std::string>{"S:\\first 0 27000 4096 -> 0",
                                                             "S:\\first 4096 31096 4096 -> 0",
                                                             "S:\\first 8192 35192 1808 -> 0"}));
  EXPECT_EQ(requests("S:\\second"), std::vector<std::string>());
  EXPECT_EQ(large.RunsOf("first"), (std::vector<SimulatedRun>{{27000, 10000}}));

  drives.Faults().RefuseMove({.path = {}, .nth = 2}, error::kAccessDenied);
  screen.Run(IDM_DEFRAG);
  EXPECT_EQ(
      requests("S:\\second"),
      (std::vector<std::string>{"S:\\second 0 0 4096 -> 0", "S:\\second 4096 4096 4096 -> 5",
                                "S:\\second 3000 20000 1096 -> 0", "S:\\second 0 16000 3000 -> 0",
                                "S:\\second 0 37000 4096 -> 0", "S:\\second 4096 41096 4096 -> 0",
                                "S:\\second 8192 45192 808 -> 0"}));
  EXPECT_EQ(large.RunsOf("second"), (std::vector<SimulatedRun>{{37000, 9000}}));
  EXPECT_TRUE(large.ContentIntact());
  screen.Menu(IDM_EXIT);
  EXPECT_EQ(session.End(), 0u);
}

FLOW(DefragsAndOptimizesToTheEnd, "", Alone) {
  SelectDrive(session, kC);
  const Screen& screen = session.screen;
  SimulatedVolume& volume = session.machine.C();
  screen.Run(IDM_DEFRAG);
  EXPECT_EQ(Screen::Text(screen.Main()), "Volume C:\\");
  const std::size_t defrag_moves = session.machine.Drives().Log().Count(CallKind::MoveClusters);
  EXPECT_GT(defrag_moves, 50u);
  screen.Run(IDM_OPTIMIZE);
  EXPECT_GT(session.machine.Drives().Log().Count(CallKind::MoveClusters), defrag_moves);
  screen.Run(IDM_COMPACT);
  EXPECT_TRUE(volume.ContentIntact());

  screen.Menu(IDM_DRIVE);
  screen.UntilShown("the launcher again", &Screen::Launcher);
  screen.Until("no drive", [&screen] { return !screen.MenuEnabled(IDM_DEFRAG); });
}

FLOW(GoesToTheNotificationAreaAndBack, "", Alone) {
  SelectDrive(session, kC);
  const Screen& screen = session.screen;
  screen.Menu(IDM_MINIMIZE);
  screen.Until("the main window is hidden", [&] { return !Screen::Shown(screen.Main()); });
  screen.Until("low priority",
               [] { return GetPriorityClass(GetCurrentProcess()) == IDLE_PRIORITY_CLASS; });
  ASSERT_EQ(session.machine.tray.size(), 1u);
  const TrayCall& shown = session.machine.tray[0];
  EXPECT_EQ(shown.message, DWORD{NIM_ADD});
  EXPECT_EQ(shown.record_size, sizeof(void*) == 8 ? 104u : 88u);
  EXPECT_EQ(shown.id, 1u);
  EXPECT_EQ(shown.flags, 7u);
  EXPECT_EQ(shown.callback, 512u);
  EXPECT_EQ(shown.tip, "Volume C:\\");

  // The right button is nobody's.
  SendMessageW(screen.Launcher(), shown.callback, shown.id, WM_RBUTTONDOWN);
  EXPECT_FALSE(Screen::Shown(screen.Main()));
  PostMessageW(screen.Launcher(), shown.callback, shown.id, WM_LBUTTONDOWN);
  screen.UntilShown("the main window", &Screen::Main);
  screen.Until("the icon is gone", [&] { return session.machine.tray.size() == 2; });
  EXPECT_EQ(session.machine.tray[1].message, DWORD{NIM_DELETE});
  EXPECT_FALSE(Screen::Shown(screen.Launcher()));
}

FLOW(EndOfTheSessionEndsARun, "", Alone) {
  SelectDrive(session, kC);
  const Screen& screen = session.screen;
  PostAtMove(session, 5, WM_QUERYENDSESSION, 0);
  screen.Menu(IDM_DEFRAG);
  screen.Answer("Quit current operation first!");
  EXPECT_EQ(session.End(), 0u);
  EXPECT_LT(session.machine.Drives().Log().Count(CallKind::MoveClusters), 12u);
  EXPECT_TRUE(session.machine.C().ContentIntact());
}

}  // namespace
}  // namespace vornalux::play
