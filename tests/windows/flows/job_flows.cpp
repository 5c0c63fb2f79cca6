// SPDX-License-Identifier: GPL-2.0-or-later
// Jobs from the command line.
#include "host/windows/system_headers.h"

// After the header that it needs.
#include <shellapi.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "app/program.h"
#include "host/windows/ui/resource.h"
#include "play/import_patch.h"
#include "windows/flows/flow.h"

namespace vornalux::play {
namespace {

// On another copy of the same drives, by the portable program alone.
std::vector<std::uint8_t> ImageAfterJob(const std::string& tail) {
  ImaginaryMachine machine(std::getenv("VORNALUX_FLOW_IMAGE"));
  Program portable(machine.Drives().All());
  EXPECT_EQ(portable.launcher.process_cmd_line(tail), JobOutcome::Done);
  EXPECT_EQ(machine.D().Close(), error::kSuccess);
  return machine.ImageOfD();
}

int shown_windows = 0;
BOOL WINAPI NoteShown(HWND window, int how) {
  shown_windows += how != SW_HIDE && GetParent(window) == nullptr;
  return ShowWindow(window, how);
}

FLOW(JobRunsAndEnds, "/drv D: /o /min /low /close", Alone) {
  Patch("ShowWindow", NoteShown);
  session.Start();
  EXPECT_EQ(session.End(), 0u);
  EXPECT_EQ(shown_windows, 0) << "none at any moment";
  EXPECT_EQ(GetPriorityClass(GetCurrentProcess()), DWORD{IDLE_PRIORITY_CLASS});
  EXPECT_FALSE(Screen::Shown(session.screen.Main()));
  EXPECT_FALSE(Screen::Shown(session.screen.Launcher()));
  ASSERT_GT(session.machine.tray.size(), 2u);
  EXPECT_EQ(session.machine.tray.front().message, DWORD{NIM_ADD});
  EXPECT_EQ(session.machine.tray.back().message, DWORD{NIM_DELETE});
  EXPECT_TRUE(session.machine.session_ends.empty());
  EXPECT_GT(session.machine.Drives().Log().Count(CallKind::MoveClusters), 100u);
  KeepImageOfD(session);
  EXPECT_TRUE(session.machine.ImageOfD() == ImageAfterJob("/drv D: /o"))
      << "the volume is not what the portable program makes of it";
}

std::vector<EXECUTION_STATE> wakes;
EXECUTION_STATE WINAPI NoteWake(EXECUTION_STATE state) {
  wakes.push_back(state);
  return ES_CONTINUOUS;
}

// As much of the taskbar's object as the program calls; the button's percents, -1 for none.
std::vector<int> button;
ULONG WINAPI Release(void*) { return 0; }
HRESULT WINAPI Begin(void*) { return S_OK; }
HRESULT WINAPI SetValue(void*, HWND, ULONGLONG done, ULONGLONG whole) {
  button.push_back(static_cast<int>(100 * done / whole));
  return S_OK;
}
HRESULT WINAPI SetState(void*, HWND, int state) {
  if (state == 0) button.push_back(-1);
  return S_OK;
}
template <typename Function>
void* Address(Function* function) {
  return reinterpret_cast<void*>(function);
}
HRESULT WINAPI CreateTaskbar(const IID&, void*, DWORD, const IID&, void** out) {
  static void* calls[11] = {};
  static void** object = calls;
  calls[2] = Address(Release);
  calls[3] = Address(Begin);
  calls[9] = Address(SetValue);
  calls[10] = Address(SetState);
  *out = &object;
  return S_OK;
}

FLOW(HowFarItIsShowsOutsideToo, "/drv D: /o /min", Alone) {
  Patch("SetThreadExecutionState", NoteWake);
  Patch("CoCreateInstance", CreateTaskbar);
  session.Start();
  const Screen& screen = session.screen;
  const std::vector<TrayCall>& tray = session.machine.tray;
  screen.Until("a balloon", [&] { return !tray.empty() && !tray.back().balloon.empty(); });
  EXPECT_EQ(tray.back().balloon, Screen::Text(screen.Main(), IDC_RESULT_LINE));
  EXPECT_EQ(tray[tray.size() - 2].tip, "Volume D:\\");
  const auto percents = std::count_if(tray.begin(), tray.end(), [](const TrayCall& call) {
    return call.message == NIM_MODIFY && call.tip.ends_with("%");
  });
  EXPECT_GT(percents, 20);
  EXPECT_GE(std::ssize(button), percents);
  EXPECT_EQ(button.back(), -1);
  EXPECT_EQ(wakes,
            (std::vector<EXECUTION_STATE>{ES_CONTINUOUS | ES_SYSTEM_REQUIRED, ES_CONTINUOUS}))
      << "awake during the run, and only then";
  PostMessageW(screen.Launcher(), WM_MOUSEMOVE, 1, WM_LBUTTONDOWN);
  screen.UntilShown("the main window", &Screen::Main);
}

FLOW(JobPowersOff, "/drv C: /c /down /close", Alone) {
  session.Start();
  EXPECT_EQ(session.End(), 0u);
  EXPECT_EQ(session.machine.session_ends,
            std::vector<std::uint64_t>{std::uint64_t{0xFFFFFFFF} << 32 | 12});
}

FLOW(JobWithLog, "/dir \"S:\\My Games\\Saved Ones\" /d /dbg", Alone) {
  SimulatedVolume own({.total_clusters = 4096});
  own.AddFile("My Games\\Saved Ones\\one.sav", {{100, 1}, {200, 1}, {300, 1}});
  own.AddFile("two.sav", {{400, 1}, {500, 1}});
  session.machine.Drives().AddVolume('S', own);
  session.Start();
  const Screen& screen = session.screen;
  screen.UntilShown("the log", &Screen::Debug);
  screen.Until("the job begins", [&] { return screen.RunsBegun() == 1; });
  screen.UntilIdle();
  EXPECT_EQ(own.RunsOf("My Games\\Saved Ones\\one.sav").size(), 1u);
  EXPECT_EQ(own.RunsOf("two.sav").size(), 2u) << "not in the folder";
  const std::string log = Screen::Text(screen.Debug(), IDC_LOG);
  const DWORD version = GetVersion();
  EXPECT_TRUE(log.starts_with(
      "OS= Win" + std::to_string(LOBYTE(version)) + "." + std::to_string(HIBYTE(version)) +
      "\r\nIsWow64Process=False \r\n"
      "Backup privilege granted=True\r\nRestore privilege granted=True\r\n"))
      << log.substr(0, 200);
  EXPECT_NE(log.find("CDM_line arguments: /dir \"S:\\My Games\\Saved Ones\" /d /dbg\r\n"),
            std::string::npos);
}

FLOW(UnseenJobThatDoesNotRunShowsTheLauncher, "/drv R: /d /min", WithCheckLibrary) {
  session.Start();
  const Screen& screen = session.screen;
  screen.Until("the warning", [&screen] { return screen.Box() != nullptr; });
  EXPECT_EQ(Screen::Text(screen.Box()), "Vornalux - R:");
  EXPECT_FALSE(Screen::Shown(screen.Launcher()));
  screen.Answer("One or more volumes are 'dirty'!\r\nYou should run Chkdsk to correct errors.");
  screen.UntilShown("the launcher", &Screen::Launcher);
}

FLOW(JobOnASolidStateDiskSaysSo, "/drv C: /d /dbg", Alone) {
  session.machine.solid_state = "C";
  session.Start();
  const Screen& screen = session.screen;
  screen.Until("the job begins", [&] { return screen.RunsBegun() == 1; });
  screen.UntilIdle();
  EXPECT_NE(Screen::Text(screen.Debug(), IDC_LOG).find("drive C: is a solid-state disk\r\n"),
            std::string::npos);
}

FLOW(WrongSwitchRunsNothing, "/drv C: /nonsense /d", Alone) {
  session.Start();
  session.screen.Answer("Invalid argument: /nonsense");
  session.screen.UntilShown("the launcher", &Screen::Launcher);
  EXPECT_FALSE(Screen::Shown(session.screen.Main()));
  EXPECT_EQ(session.machine.Drives().Log().Count(CallKind::MoveClusters), 0u);
}

// The library tells of one line after another until it is asked to end.
FLOW(CheckCanBeCancelled, "/drv D: /close", WithCheckLibrary) {
  session.Start();
  const Screen& screen = session.screen;
  screen.Until("the check can be cancelled",
               [&] { return Screen::Shown(GetDlgItem(screen.Launcher(), IDC_CANCEL_CHECK)); });
  EXPECT_EQ(Screen::Text(screen.Launcher(), IDC_CHECKING), "Checking drive D: ...");
  screen.Press(screen.Launcher(), IDC_CANCEL_CHECK);
  screen.Answer("Disk check was cancelled!");
  EXPECT_EQ(session.End(), 0u);
}

// Wine refuses the bitmap and answers the rest with nonsense.
FLOW(RealDriveThatRefuses, "/drv C: /d /close", OnRealDrives) {
  session.Start();
  session.screen.Answer("Error reading the drive information.");
  EXPECT_EQ(session.End(), 0u);
}

}  // namespace
}  // namespace vornalux::play
