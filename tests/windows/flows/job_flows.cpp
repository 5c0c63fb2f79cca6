// SPDX-License-Identifier: GPL-2.0-or-later
// Jobs from the command line.
#include "host/windows/system_headers.h"

// After the header that it needs.
#include <shellapi.h>

#include <cstdlib>
#include <string>

#include "app/program.h"
#include "host/windows/ui/resource.h"
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

FLOW(JobRunsAndEnds, "/drv D: /o /min /low /close", Alone) {
  session.Start();
  EXPECT_EQ(session.End(), 0u);
  EXPECT_EQ(GetPriorityClass(GetCurrentProcess()), DWORD{IDLE_PRIORITY_CLASS});
  EXPECT_FALSE(Screen::Shown(session.screen.Main()));
  EXPECT_FALSE(Screen::Shown(session.screen.Launcher()));
  ASSERT_EQ(session.machine.tray.size(), 2u);
  EXPECT_EQ(session.machine.tray[0].message, DWORD{NIM_ADD});
  EXPECT_EQ(session.machine.tray[1].message, DWORD{NIM_DELETE});
  EXPECT_TRUE(session.machine.session_ends.empty());
  EXPECT_GT(session.machine.Drives().Log().Count(CallKind::MoveClusters), 100u);
  KeepImageOfD(session);
  EXPECT_TRUE(session.machine.ImageOfD() == ImageAfterJob("/drv D: /o"))
      << "the volume is not what the portable program makes of it";
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
