// SPDX-License-Identifier: GPL-2.0-or-later
// Runs from the main window, by a user who watches.
#include "host/windows/system_headers.h"

// After the header that they need.
#include <commctrl.h>
#include <shellapi.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

#include "app/program.h"
#include "host/simulated/scripted_desktop.h"
#include "host/windows/ui/resource.h"
#include "host/windows/windows_text.h"
#include "play/import_patch.h"
#include "windows/flows/flow.h"

namespace vornalux::play {
namespace {

constexpr int kC = 1;
constexpr int kD = 2;
constexpr int kBehindAll = 5;

// While the program makes its nth move from here on, something is posted to its main window.
void PostAtMove(Session& session, int nth, UINT message, WPARAM wparam) {
  session.machine.Drives().Faults().BeforeMove(
      {.path = {}, .nth = nth},
      [&session, message, wparam] { PostMessageW(session.screen.Main(), message, wparam, 0); });
}

// The same volume analysed by the portable program, in this process but past the system's calls.
FLOW(AnalyzeShowsNumbersAndMap, "", Alone) {
  const Screen& screen = SelectDrive(session, kD);
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
  const HWND list = GetDlgItem(screen.Details(), IDC_LIST);
  const HWND button = GetDlgItem(screen.Details(), IDC_DETAIL_BUTTON);
  SendMessageW(list, LVM_DELETEALLITEMS, 0, 0);
  SendMessageW(screen.Details(), WM_NEXTDLGCTL, reinterpret_cast<WPARAM>(button), TRUE);
  PostMessageW(button, WM_KEYDOWN, VK_RETURN, 1);
  screen.Until("the same again", [&] { return Screen::Rows(list) == rows; });
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(IsDlgButtonChecked(screen.Details(), IDC_DETAIL_BUTTON + i), i == 0 ? 1u : 0u) << i;
  }
  screen.Menu(IDM_EXIT);
  EXPECT_EQ(session.End(), 0u);
}

// Columns that are put together show as one of them, not as a mixture.
FLOW(AMapMadeNarrowKeepsItsColours, "", Alone) {
  const Screen& screen = SelectDrive(session, kC);
  PostMessageW(screen.Main(), WM_SYSCOMMAND, SC_MAXIMIZE, 0);
  screen.Run(IDM_ANALYZE);
  SIZE size;
  const std::vector<std::uint32_t> wide = Screen::Picture(screen.Main(), IDC_MAP, size);
  const std::set<std::uint32_t> colours(wide.begin(), wide.end());
  EXPECT_TRUE(colours.contains(0x0000FF)) << "something is red";
  PostMessageW(screen.Main(), WM_SYSCOMMAND, SC_RESTORE, 0);
  screen.Until("as it was", [&screen, before = size.cx] {
    RECT area;
    GetClientRect(GetDlgItem(screen.Main(), IDC_MAP), &area);
    return area.right < before;
  });
  LONG red = 0, others = 0;
  for (const std::uint32_t pixel : Screen::Picture(screen.Main(), IDC_MAP, size)) {
    red += pixel == 0x0000FF;
    others += !colours.contains(pixel);
  }
  EXPECT_GT(red, 100 * size.cy);
  EXPECT_EQ(others, 0);
}

FLOW(KeysAloneWillDo, "", Alone) {
  const Screen& screen = StartToTheLauncher(session);
  PostMessageW(screen.Launcher(), WM_KEYDOWN, VK_RETURN, 1);
  screen.UntilShown("the main window", &Screen::Main);
  screen.UntilIdle();
  constexpr LPARAM kAltIsDown = 1 << 29;
  PostMessageW(screen.Main(), WM_SYSCHAR, 'a', kAltIsDown);
  screen.Until("the analysis begins", [&] { return screen.RunsBegun() == 1; });
  screen.UntilIdle();
  const CallLog& log = session.machine.Drives().Log();
  const std::size_t bitmaps = log.Count(CallKind::VolumeBitmap);
  PostMessageW(screen.Main(), WM_KEYDOWN, VK_F5, 1);
  screen.Until("the map is drawn", [&] { return log.Count(CallKind::VolumeBitmap) > bitmaps; });
  PostMessageW(screen.Main(), WM_KEYDOWN, VK_F1, 1);
  screen.Until("help", [&] { return !session.machine.pages.empty(); });
  PostMessageW(screen.Main(), WM_SYSKEYDOWN, VK_RETURN, kAltIsDown | 1);
  screen.UntilShown("the details", &Screen::Details);
  PostMessageW(screen.Main(), WM_SYSCHAR, 'x', kAltIsDown);
  EXPECT_EQ(session.End(), 0u);
}

HWND WINAPI NoWindowOfOurs() { return nullptr; }

FLOW(StopPausesAndStops, "", Alone) {
  Patch("GetActiveWindow", NoWindowOfOurs);  // another program is in front
  const Screen& screen = SelectDrive(session, kD);
  PostAtMove(session, 3, WM_COMMAND, IDM_STOP);
  PostAtMove(session, 8, WM_SYSCOMMAND, SC_CLOSE);
  PostAtMove(session, 12, WM_COMMAND, IDM_STOP);
  const CallLog& log = session.machine.Drives().Log();

  screen.Menu(IDM_DEFRAG);
  screen.Until("the question", [&] { return screen.Box() != nullptr; });
  EXPECT_EQ(Screen::Text(screen.Box()), "Paused ...");
  EXPECT_EQ(GetWindow(screen.Box(), GW_OWNER), screen.Main());
  EXPECT_FALSE(IsWindowEnabled(screen.Main()) || IsWindowEnabled(screen.Launcher()));
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
  const Screen& screen = SelectDrive(session, kBehindAll);
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

// 1 TiB in clusters of 512 KiB, which is 64 requests for all of its bitmap: what a file costs does
// not grow with the volume.
FLOW(ALargeVolumeIsNotReadForEachFile, "", Alone) {
  constexpr std::int64_t kFiles = 300;
  SimulatedPlatform& drives = session.machine.Drives();
  SimulatedVolume large({.total_clusters = 1 << 21, .sectors_per_cluster = 1024});
  for (std::int64_t i = 0; i < kFiles; ++i) {
    const std::int64_t lcn = 1000 + i * 5000;
    const SimulatedRun runs[] = {{lcn, 3}, {lcn + 2000, 4}, {lcn + 4000, 5}};
    large.AddItem(large.Root(), "file" + std::to_string(i), runs, attribute::kArchive);
  }
  large.TakeClusters(198'500, 1);  // for gaps that begin behind the front
  drives.AddVolume('S', large);
  const CallLog& log = drives.Log();
  drives.Log().SetRecording(true);
  const Screen& screen = SelectDrive(session, kBehindAll);
  // Letters as large as they may be somewhere.
  SendMessageW(GetDlgItem(screen.Main(), IDC_STATUS_BAR), WM_SETFONT,
               reinterpret_cast<WPARAM>(GetStockObject(SYSTEM_FONT)), FALSE);
  for (const int pass : {IDM_DEFRAG, IDM_OPTIMIZE}) {
    const std::size_t moves = log.Count(CallKind::MoveClusters);
    const std::size_t bitmaps = log.Count(CallKind::VolumeBitmap);
    screen.Run(pass);
    const std::size_t moved = log.Count(CallKind::MoveClusters) - moves;
    EXPECT_GT(moved, kFiles - 5);
    EXPECT_LE(log.Count(CallKind::VolumeBitmap) - bitmaps, 4 * moved) << "of " << moved;
  }
  EXPECT_TRUE(large.ContentIntact());
  const HWND bar = GetDlgItem(screen.Main(), IDC_STATUS_BAR);
  int ends[6] = {};
  SendMessageW(bar, SB_GETPARTS, 6, reinterpret_cast<LPARAM>(ends));
  RECT area;
  GetClientRect(bar, &area);
  EXPECT_LE(ends[5], area.right) << "the last panel can be read";
  screen.Menu(IDM_EXIT);
  EXPECT_EQ(session.End(), 0u);
}

FLOW(ASolidStateDiskIsAskedAboutOnce, "", Alone) {
  session.machine.solid_state = "C";
  const Screen& screen = SelectDrive(session, kC);
  const std::vector<std::string> items = Screen::Items(GetDlgItem(screen.Launcher(), IDC_VOLUMES));
  EXPECT_TRUE(items.at(kC).ends_with("  Solid state")) << items.at(kC);
  EXPECT_FALSE(items.at(kD).ends_with("  Solid state")) << items.at(kD);
  const std::string question =
      "Drive C: is a solid-state disk. Moving files wears it and hardly makes it faster.\r\n"
      "Do you want to go on?";
  const CallLog& log = session.machine.Drives().Log();
  screen.Menu(IDM_DEFRAG);
  screen.Answer(question, IDNO);
  EXPECT_EQ(screen.RunsBegun(), 0);
  screen.Menu(IDM_DEFRAG);
  screen.Answer(question, IDYES);
  screen.Until("the run begins", [&screen] { return screen.RunsBegun() == 1; });
  screen.UntilIdle();
  EXPECT_GT(log.Count(CallKind::MoveClusters), 20u);
  screen.Run(IDM_COMPACT);  // asks no more
}

FLOW(DefragsAndOptimizesToTheEnd, "", Alone) {
  const Screen& screen = SelectDrive(session, kD);
  const CallLog& log = session.machine.Drives().Log();
  screen.Menu(IDM_THOROUGH);
  screen.Until("its mark", [&] { return screen.MenuChecked(IDM_THOROUGH); });
  PostAtMove(session, 3, WM_COMMAND, IDM_STOP);
  screen.Menu(IDM_DEFRAG);
  screen.Answer("Are you sure?", IDNO);
  screen.UntilIdle();
  EXPECT_EQ(Screen::Text(screen.Main()), "Volume D:\\");
  // Two folders, of which Windows' FAT does not let go.
  EXPECT_EQ(Screen::Panel(screen.Main(), IDC_STATUS_BAR, 3), "fragmented: 2");
  EXPECT_EQ(SendMessageW(GetDlgItem(screen.Main(), IDC_PROGRESS), PBM_GETPOS, 0, 0), 10000);
  const std::size_t defrag_moves = log.Count(CallKind::MoveClusters);
  EXPECT_GT(defrag_moves, 50u);
  screen.Run(IDM_OPTIMIZE);
  EXPECT_GT(log.Count(CallKind::MoveClusters), defrag_moves);
  screen.Run(IDM_COMPACT);
  KeepImageOfD(session);

  screen.Menu(IDM_DRIVE);
  screen.UntilShown("the launcher again", &Screen::Launcher);
  screen.Until("no drive", [&screen] { return !screen.MenuEnabled(IDM_DEFRAG); });
  screen.Choose(screen.Launcher(), IDC_VOLUMES, kC);
  screen.Until("no mark", [&] { return !screen.MenuChecked(IDM_THOROUGH); });
  wchar_t text[32] = {};
  GetMenuStringW(GetMenu(screen.Main()), IDM_THOROUGH, text, 31, MF_BYCOMMAND);
  EXPECT_EQ(text, std::wstring(L"&Thorough"));
}

// What the dialog for a file's name calls the field for it, older ones and newer ones.
HWND FieldForAName(HWND dialog) {
  const HWND field = GetDlgItem(dialog, 0x480);
  return field != nullptr ? field : GetDlgItem(dialog, 0x47C);
}

FLOW(ARunTellsWhatItDidAndItsReportIsSaved, "", Alone) {
  const Screen& screen = SelectDrive(session, kC);
  const HWND main = screen.Main();
  const auto panels = [main] {
    std::string text;
    for (int i = 0; i < 6; ++i) text += Screen::Panel(main, IDC_STATUS_BAR, i) + "\n";
    return text;
  };
  EXPECT_FALSE(screen.MenuEnabled(IDM_REPORT));
  session.machine.Drives().Faults().RefuseMove({.path = {}, .nth = 3}, error::kAccessDenied);
  screen.Run(IDM_DEFRAG);
  const std::string after = panels();
  const std::string line = Screen::Text(main, IDC_RESULT_LINE);
  EXPECT_TRUE(line.starts_with("Defrag done: ")) << line;
  screen.Run(IDM_ANALYZE);
  EXPECT_EQ(after, panels()) << "an analysis finds what the run had shown";
  EXPECT_EQ(Screen::Text(main, IDC_RESULT_LINE), line);

  HWND dialog = nullptr;
  const auto ask = [&] {
    screen.Menu(IDM_REPORT);
    screen.Until("the dialog", [&] {
      for (const HWND window : screen.TopWindows()) {
        if (Screen::Shown(window) && FieldForAName(window) != nullptr) dialog = window;
      }
      return dialog != nullptr;
    });
  };
  const auto answer = [&](int button) {
    PostMessageW(dialog, WM_COMMAND, MAKEWPARAM(button, BN_CLICKED),
                 reinterpret_cast<LPARAM>(GetDlgItem(dialog, button)));
    screen.Until("the dialog goes", [&] { return !IsWindow(dialog); });
    dialog = nullptr;
  };
  ask();
  EXPECT_EQ(Screen::Text(FieldForAName(dialog)), "Vornalux C.txt");
  answer(IDCANCEL);
  ask();
  const std::string path = Setting("VORNALUX_FLOW_RESULTS") + "report";
  SetWindowTextW(FieldForAName(dialog), ToWide(path).c_str());
  answer(IDOK);
  std::string report(1 << 20, '\0');
  std::FILE* file = nullptr;
  screen.Until("the file", [&] { return (file = std::fopen((path + ".txt").c_str(), "rb")); });
  report.resize(std::fread(report.data(), 1, report.size(), file));
  std::fclose(file);
  EXPECT_TRUE(
      report.starts_with("\xEF\xBB\xBF"
                         "Defragmentation of C:\r\n" +
                         line + "\r\n"))
      << report;
  EXPECT_NE(report.find("\r\nStill fragmented: "), std::string::npos) << report;
  screen.Menu(IDM_DRIVE);
  screen.UntilShown("the launcher", &Screen::Launcher);
}

// As Explorer does when it begins.
void TellOfExplorer(const Screen& screen) {
  SendMessageW(screen.Launcher(), RegisterWindowMessageW(L"TaskbarCreated"), 0, 0);
}

FLOW(GoesToTheNotificationAreaAndBack, "", Alone) {
  const Screen& screen = SelectDrive(session, kC);
  screen.Menu(IDM_MINIMIZE);
  screen.Until("the main window is hidden", [&] { return !Screen::Shown(screen.Main()); });
  screen.Until("low priority",
               [] { return GetPriorityClass(GetCurrentProcess()) == IDLE_PRIORITY_CLASS; });
  const std::vector<TrayCall>& tray = session.machine.tray;
  ASSERT_EQ(tray.size(), 1u);
  const TrayCall shown = tray[0];
  EXPECT_EQ(shown.message, DWORD{NIM_ADD});
  EXPECT_EQ(shown.record_size, sizeof(void*) == 8 ? 104u : 88u);
  EXPECT_EQ(shown.id, 1u);
  EXPECT_EQ(shown.flags, 7u);
  EXPECT_EQ(shown.callback, 512u);
  EXPECT_EQ(shown.tip, "Volume C:\\");

  // The right button is nobody's.
  SendMessageW(screen.Launcher(), shown.callback, shown.id, WM_RBUTTONDOWN);
  EXPECT_FALSE(Screen::Shown(screen.Main()));
  TellOfExplorer(screen);
  ASSERT_EQ(tray.size(), 2u) << "put back";
  EXPECT_EQ(tray[1].message, DWORD{NIM_ADD});
  EXPECT_EQ(tray[1].tip, "Volume C:\\");
  PostMessageW(screen.Launcher(), shown.callback, shown.id, WM_LBUTTONDOWN);
  screen.UntilShown("the main window", &Screen::Main);
  screen.Until("the icon is gone", [&] { return tray.size() == 3; });
  EXPECT_EQ(tray[2].message, DWORD{NIM_DELETE});
  TellOfExplorer(screen);
  EXPECT_EQ(tray.size(), 3u) << "none is wanted";
  EXPECT_FALSE(Screen::Shown(screen.Launcher()));
}

int repaints_of_the_screen = 0;
BOOL WINAPI NoteRepaint(HWND window, const RECT* area, BOOL erase) {
  repaints_of_the_screen += window == nullptr;
  return InvalidateRect(window, area, erase);
}

// Told, and closed all the same, answered or not.
void EndARun(Session& session, UINT message, WPARAM wparam) {
  Patch("InvalidateRect", NoteRepaint);
  const Screen& screen = SelectDrive(session, kC);
  SimulatedPlatform& drives = session.machine.Drives();
  drives.Faults().BeforeMove({.path = {}, .nth = 3}, [&screen] {
    EXPECT_EQ(screen.Vetoes(), "");
    SendMessageW(screen.Main(), WM_ENDSESSION, FALSE, 0);
  });
  drives.Faults().BeforeMove({.path = {}, .nth = 6}, [&screen, message, wparam] {
    for (const HWND window : screen.TopWindows()) PostMessageW(window, message, wparam, 0);
  });
  screen.Menu(IDM_DEFRAG);
  screen.Until("the message", [&screen] {
    return screen.Box() != nullptr &&
           Screen::BoxText(screen.Box()) == "Quit current operation first!";
  });
  EXPECT_GE(drives.Log().Count(CallKind::MoveClusters), 5u) << "the session went on";
  EXPECT_EQ(session.End(), 0u);
  EXPECT_LT(drives.Log().Count(CallKind::MoveClusters), 12u);
  EXPECT_EQ(repaints_of_the_screen, 0) << "the run goes on without its window";
  EXPECT_TRUE(session.machine.C().ContentIntact());
}

FLOW(EndOfTheSessionEndsARun, "", Alone) { EndARun(session, WM_ENDSESSION, TRUE); }
FLOW(EndOfTheTaskEndsARun, "", Alone) { EndARun(session, WM_CLOSE, 0); }

// Two screens side by side, the main one on the right.
HMONITOR WINAPI MonitorAt(const RECT* place, DWORD) {
  return reinterpret_cast<HMONITOR>(INT_PTR{place->left + place->right < 0 ? 1 : 2});
}
BOOL WINAPI TellMonitor(HMONITOR monitor, MONITORINFO* info) {
  const LONG left = monitor == reinterpret_cast<HMONITOR>(INT_PTR{1}) ? -1600 : 0;
  info->rcMonitor = info->rcWork = {left, 0, left + 1600, 900};
  return TRUE;
}

FLOW(WindowsTakeEachOthersPlace, "", Alone) {
  Patch("MonitorFromRect", MonitorAt);
  Patch("GetMonitorInfoW", TellMonitor);
  const Screen& screen = StartToTheLauncher(session);
  using Place = std::array<LONG, 4>;
  const auto place = [](HWND window) -> Place {
    RECT area;
    GetWindowRect(window, &area);
    return {area.left, area.top, area.right - area.left, area.bottom - area.top};
  };
  const Place folded = place(screen.Launcher()), least = place(screen.Main());
  const LONG width = std::max(folded[2], least[2]), height = std::max(folded[3], least[3]);
  const auto select = [&](LONG left, LONG top) {
    SetWindowPos(screen.Launcher(), nullptr, left, top, 0, 0, SWP_NOSIZE | SWP_NOZORDER);
    screen.Press(screen.Launcher(), IDC_SELECT);
    screen.Until("the main window alone",
                 [&] { return Screen::Shown(screen.Main()) && !Screen::Shown(screen.Launcher()); });
    screen.UntilIdle();
    return place(screen.Main());
  };
  const auto back = [&] {
    screen.Menu(IDM_DRIVE);
    screen.UntilShown("the launcher", &Screen::Launcher);
    return place(screen.Launcher());
  };
  EXPECT_EQ(select(-1500, 40), (Place{-1500, 40, width, height})) << "on the other screen";
  SetWindowPos(screen.Main(), nullptr, -1400, 50, 900, 500, SWP_NOZORDER);
  EXPECT_EQ(back(), (Place{-1400, 50, 900, 500}));
  EXPECT_EQ(select(1590, 890), (Place{1600 - 900, 900 - 500, 900, 500})) << "kept on the screen";
  SetWindowPos(screen.Main(), nullptr, 10, 10, 1, 1, SWP_NOZORDER);
  EXPECT_EQ(back(), (Place{10, 10, width, height}));
  SendMessageW(screen.Launcher(), WM_SYSCOMMAND, SC_MINIMIZE, 0);
  SetWindowPos(screen.Main(), nullptr, 30, 40, 0, 0, SWP_NOSIZE | SWP_NOZORDER);
  screen.Menu(IDM_DRIVE);
  screen.Until("the launcher over it", [&] {
    return !IsIconic(screen.Launcher()) && place(screen.Launcher()) == place(screen.Main());
  });
  SetWindowPos(screen.Launcher(), nullptr, 10, 890, 0, 0, SWP_NOSIZE | SWP_NOZORDER);
  screen.Press(screen.Launcher(), IDC_MORE);
  screen.Until("the options in sight", [&] {
    const Place open = place(screen.Launcher());
    return open[3] > height + 50 && open[1] + open[3] == 900;
  });
}

FLOW(EachControlIsPaintedWhereItIs, "", Alone) {
  const Screen& screen = SelectDrive(session, kC);
  // On the program's own thread nothing is painted before this ends.
  session.machine.Drives().Faults().BeforeMove({.path = {}, .nth = 3}, [&screen] {
    const HWND main = screen.Main();
    SetWindowPos(main, nullptr, 0, 0, 900, 400, SWP_NOMOVE | SWP_NOZORDER);
    for (const HWND child : Screen::Children(main)) {
      RECT all, stale;
      GetClientRect(child, &all);
      GetUpdateRect(child, &stale, FALSE);
      EXPECT_TRUE(EqualRect(&all, &stale)) << GetDlgCtrlID(child);
    }
  });
  screen.Run(IDM_DEFRAG);
}

FLOW(WithoutNotificationAreaItWaitsOnTheTaskbar, "", Alone) {
  const Screen& screen = SelectDrive(session, kC);
  const std::vector<TrayCall>& tray = session.machine.tray;
  const auto minimize = [&] {
    session.machine.notification_area = false;
    screen.Menu(IDM_MINIMIZE);
    screen.Until("on the taskbar",
                 [&] { return IsIconic(screen.Main()) && Screen::Shown(screen.Main()); });
  };
  minimize();
  TellOfExplorer(screen);
  EXPECT_TRUE(Screen::Shown(screen.Main()) && IsIconic(screen.Main())) << "still none";
  ShowWindow(screen.Main(), SW_RESTORE);
  const std::size_t asked = tray.size();
  TellOfExplorer(screen);
  EXPECT_EQ(tray.size(), asked) << "restored by the user";
  EXPECT_FALSE(IsIconic(screen.Main()));

  minimize();
  session.machine.notification_area = true;
  TellOfExplorer(screen);
  EXPECT_FALSE(Screen::Shown(screen.Main())) << "the icon is there at last";
  PostMessageW(screen.Launcher(), tray[0].callback, tray[0].id, WM_LBUTTONDOWN);
  screen.Until("as it was",
               [&] { return Screen::Shown(screen.Main()) && !IsIconic(screen.Main()); });
}

}  // namespace
}  // namespace vornalux::play
