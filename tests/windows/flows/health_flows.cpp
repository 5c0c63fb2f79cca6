// SPDX-License-Identifier: GPL-2.0-or-later
// A disk that grows too hot, and cools down.
#include <string>

#include "host/simulated/scripted_drive.h"
#include "host/windows/system_headers.h"
#include "host/windows/ui/resource.h"
#include "windows/flows/flow.h"

namespace vornalux::play {
namespace {

constexpr UINT kTemperatureInterval = 30000;

// The disk of C: has these temperatures, and the main window asks for them at these moves. Up to
// the first warning.
const Screen& Heat(Session& session, ScriptedDrive& disk,
                   std::initializer_list<std::uint8_t> degrees,
                   std::initializer_list<int> at_moves) {
  disk.SetTemperatures(degrees);
  session.machine.C().SetDrive(disk);
  for (const int nth : at_moves) {
    session.machine.Drives().Faults().BeforeMove({.path = {}, .nth = nth}, [&session] {
      EXPECT_TRUE(session.screen.Tick(session.screen.Main(), kTemperatureInterval));
    });
  }
  session.Start();
  session.screen.UntilShown("the warning", &Screen::Warning);
  return session.screen;
}

std::string Degrees(const Screen& screen) {
  return Screen::Text(screen.Warning(), IDC_WARNING_TEMPERATURE);
}

FLOW(HotDiskHoldsAJobUp, "/drv C: /o /dbg /close", Alone) {
  ScriptedDrive disk;
  const Screen& screen = Heat(session, disk, {41, 58, 60, 0, 55}, {5, 8});
  const CallLog& log = session.machine.Drives().Log();
  EXPECT_EQ(Degrees(screen), "58\u00B0C");
  EXPECT_EQ(Screen::Text(screen.Warning(), IDC_WARNING_DRIVE), "Drive C:");
  EXPECT_EQ(Screen::Text(screen.Main(), IDC_TEMPERATURE), "C: temp 58 \u00B0C");
  EXPECT_FALSE(IsWindowEnabled(screen.Main()));
  const std::size_t moves = log.Count(CallKind::MoveClusters);
  // The main window's timer goes on, and asks nothing.
  EXPECT_TRUE(screen.Tick(screen.Main(), kTemperatureInterval));
  EXPECT_TRUE(screen.Tick(screen.Warning(), kTemperatureInterval));
  screen.Until("it is hotter", [&] { return Degrees(screen) == "60\u00B0C"; });
  EXPECT_TRUE(screen.Tick(screen.Warning(), kTemperatureInterval));  // no reading
  screen.Until("no reading", [&] { return disk.Readings() == 4; });
  EXPECT_TRUE(Screen::Shown(screen.Warning()));
  EXPECT_EQ(log.Count(CallKind::MoveClusters), moves) << "moved behind the warning";

  EXPECT_TRUE(screen.Tick(screen.Warning(), kTemperatureInterval));
  screen.Until("it has cooled", [&] { return !Screen::Shown(screen.Warning()); });
  EXPECT_EQ(session.End(), 0u);
  EXPECT_GT(log.Count(CallKind::MoveClusters), moves + 50);
  EXPECT_TRUE(session.machine.C().ContentIntact());
  const std::string text = Screen::Text(screen.Debug(), IDC_LOG);
  EXPECT_LT(text.find("HD Temp HIGH: 60\r\n"), text.find("HD Temp HIGH: 58\r\n"));
  EXPECT_NE(text.find("HD Temp HIGH: 58\r\n"), std::string::npos);
}

FLOW(HotDiskMayBeUsedOn, "/drv C: /o /close", Alone) {
  ScriptedDrive disk;
  const Screen& screen = Heat(session, disk, {58, 59, 60}, {5, 10});
  screen.Press(screen.Warning(), IDC_WARNING_CONTINUE);
  screen.Until("the next warning",
               [&] { return Screen::Shown(screen.Warning()) && Degrees(screen) == "59\u00B0C"; });
  screen.Press(screen.Warning(), IDC_WARNING_DISABLE);
  EXPECT_EQ(session.End(), 0u);
  EXPECT_EQ(disk.Readings(), 2u);
}

FLOW(HotDiskMayEndTheRun, "/drv C: /o /close", Alone) {
  ScriptedDrive disk;
  const Screen& screen = Heat(session, disk, {58}, {5});
  // Neither of these means anything here; Enter does.
  PostMessageW(screen.Warning(), WM_CLOSE, 0, 0);
  PostMessageW(screen.Warning(), WM_KEYDOWN, VK_ESCAPE, 1);
  EXPECT_TRUE(screen.Tick(screen.Warning(), kTemperatureInterval));
  screen.Until("another reading", [&] { return disk.Readings() == 2; });
  EXPECT_TRUE(Screen::Shown(screen.Warning()));
  PostMessageW(GetDlgItem(screen.Warning(), IDC_WARNING_STOP), WM_KEYDOWN, VK_RETURN, 1);
  screen.UntilIdle();
  EXPECT_FALSE(session.HasEnded()) << "a stopped job does not close";
  EXPECT_FALSE(screen.Tick(screen.Main(), kTemperatureInterval));
  EXPECT_LT(session.machine.Drives().Log().Count(CallKind::MoveClusters), 12u);
}

// The question is older than the warning, and may be answered behind it.
FLOW(HotDiskWaitsBehindAPause, "/drv C: /o /close", Alone) {
  session.machine.Drives().Faults().BeforeMove({.path = {}, .nth = 5}, [&session] {
    PostMessageW(session.screen.Main(), WM_COMMAND, IDM_STOP, 0);
  });
  ScriptedDrive disk;
  disk.SetTemperatures({58});
  session.machine.C().SetDrive(disk);
  session.Start();
  const Screen& screen = session.screen;
  screen.Until("the question", [&screen] { return screen.Box() != nullptr; });
  EXPECT_TRUE(screen.Tick(screen.Main(), kTemperatureInterval));
  screen.UntilShown("the warning", &Screen::Warning);
  PostMessageW(screen.Box(), WM_COMMAND, IDNO, 0);
  screen.Until("the question goes", [&screen] { return screen.Box() == nullptr; });
  EXPECT_FALSE(IsWindowEnabled(screen.Main()));
  screen.Press(screen.Warning(), IDC_WARNING_DISABLE);
  screen.Until("the warning goes", [&screen] { return !Screen::Shown(screen.Warning()); });
  EXPECT_TRUE(IsWindowEnabled(screen.Main()));
  EXPECT_EQ(session.End(), 0u);
}

FLOW(EndOfTheSessionFindsAHotDisk, "/drv C: /o", Alone) {
  ScriptedDrive disk;
  const Screen& screen = Heat(session, disk, {58}, {5});
  EXPECT_EQ(screen.Vetoes(), "");
  SendMessageW(screen.Warning(), WM_ENDSESSION, FALSE, 0);
  EXPECT_TRUE(Screen::Shown(screen.Warning())) << "the session goes on";
  SendNotifyMessageW(screen.Warning(), WM_ENDSESSION, TRUE, 0);
  screen.Answer("Quit current operation first!");
  EXPECT_EQ(session.End(), 0u);
}

}  // namespace
}  // namespace vornalux::play
