// SPDX-License-Identifier: GPL-2.0-or-later
// The disk's temperature: what the probe asks for and makes of the answers, and runs that wait
// while it is too high.
#include <algorithm>
#include <regex>

#include "host/simulated/scripted_drive.h"
#include "unit/rig.h"

namespace vornalux::testing {
namespace {

// A probe of drive C:, whose disk is scripted, and what it told.
struct Probe {
  Probe() {
    machine.AddVolume('C', volume);
    volume.SetDrive(drive);
    target.drive = "C:\\";
    temperatures.HDDTempOK = [this](std::int16_t t) { told += "OK " + std::to_string(t); };
    temperatures.HDDTempNA = [this](std::int16_t t) { told += "NA " + std::to_string(t); };
    temperatures.HDDTempCritical = [this](std::int16_t t) { told += "HOT " + std::to_string(t); };
  }
  std::string Query() {
    told.clear();
    temperatures.QueryHDDTemperature();
    EXPECT_EQ(machine.OpenHandles(), 0U);
    return told;
  }

  ScriptedDrive drive;
  SimulatedVolume volume{{}};
  SimulatedPlatform machine;
  RunTarget target;
  clsTemperatures temperatures{machine, target};
  std::string told;
};

TEST(Probe, FindsTheTemperatureInTheAttributes) {
  struct Case {
    const char* what;
    std::initializer_list<ScriptedAttribute> attributes;
    const char* tells;
  };
  const Case kCases[] = {
      {"none at all", {}, "NA 0"},
      {"just cool enough", {{2, 194, 55}}, "OK 55"},
      {"just too hot", {{2, 194, 56}}, "HOT 56"},
      {"no sign", {{2, 194, 255}}, "HOT 255"},
      {"nought", {{2, 194, 0}}, "NA 0"},
      {"the first entry", {{0, 194, 41}}, "NA 0"},
      {"the last entry", {{29, 194, 41}}, "OK 41"},
      {"several", {{0, 194, 60}, {3, 194, 70}, {9, 194, 40}}, "OK 40"},
      {"several, the last without", {{3, 194, 70}, {9, 194, 0}}, "NA 0"},
      {"other attributes", {{1, 190, 70}, {2, 231, 70}, {3, 5, 194}}, "NA 0"},
      {"all above it", {{5, 194, 0xFFFFFFFFFF29}}, "OK 41"},
      {"above it only", {{5, 194, 0xFFFFFFFFFF00}}, "NA 0"},
  };
  for (const auto& [what, attributes, tells] : kCases) {
    Probe probe;
    probe.drive.SetAttributes(attributes);
    EXPECT_EQ(probe.Query(), tells) << what;
  }
}

TEST(Probe, AsksForAllThatItKeepsAndWhateverFailsIsNoReading) {
  const DriveRegisters expected[] = {{0xD8, 1, 1, 0x4F, 0xC2, 0, 0xB0},
                                     {0xD0, 1, 1, 0x4F, 0xC2, 0, 0xB0},
                                     {0xD1, 1, 1, 0x4F, 0xC2, 0, 0xB0},
                                     {0, 1, 1, 0, 0, 0, 0}};
  struct Case {
    const char* what;
    std::uint8_t refused;
    ErrorCode error;
    std::size_t bytes;
    std::size_t requests;
    const char* tells;
  };
  constexpr std::size_t kEntryEnd = 2 + 12 + 6;  // up to the temperature
  const Case kCases[] = {
      {"nothing fails", 0, 0, 512, 4, "OK 41"},
      {"enable is unknown", 0xD8, error::kInvalidFunction, 512, 4, "OK 41"},
      {"enable is refused", 0xD8, error::kAccessDenied, 512, 1, "NA 0"},
      {"no attributes", 0xD0, error::kGenFailure, 512, 4, "NA 0"},
      {"no thresholds", 0xD1, error::kGenFailure, 512, 4, "OK 41"},
      {"no identity", 0, error::kGenFailure, 512, 4, "OK 41"},
      {"short, but enough", 0, 0, kEntryEnd, 4, "OK 41"},
      {"too short", 0, 0, kEntryEnd - 1, 4, "NA 0"},
      {"empty", 0, 0, 0, 4, "NA 0"},
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.what);
    Probe probe;
    probe.drive.SetTemperatures({41});
    if (c.error != 0) probe.drive.Refuse(c.refused, c.error);
    probe.drive.BreakOffAfter(c.bytes);
    EXPECT_EQ(probe.Query(), c.tells);
    ASSERT_EQ(probe.drive.Requests().size(), c.requests);
    for (std::size_t i = 0; i < c.requests; ++i) {
      EXPECT_EQ(probe.drive.Requests()[i].registers, expected[i]) << i;
      EXPECT_EQ(probe.drive.Requests()[i].wants_data, i != 0) << i;
    }
  }
  Probe probe;
  probe.drive.SetTemperatures({41});
  EXPECT_EQ(probe.Query(), "OK 41");
  EXPECT_EQ(probe.temperatures.Attributes()[1].id, 194);
  EXPECT_EQ(probe.temperatures.Thresholds()[1].id, 0);
  EXPECT_EQ(probe.temperatures.Identity().model, "SCRIPTED DRIVE" + std::string(26, ' '));
  EXPECT_EQ(probe.temperatures.Identity().serial, std::string(20, ' '));
  probe.drive.AtEveryCommand([] { throw std::runtime_error("a driver gone mad"); });
  EXPECT_EQ(probe.Query(), "NA 0") << "nothing of the reading before";
  EXPECT_EQ(probe.temperatures.Temperature(), 0);
  probe.target.drive = "D:\\";
  EXPECT_EQ(probe.Query(), "NA 0") << "no such drive";
}

// A pass during which the main window's timer ticks twice.
struct Guard {
  explicit Guard(std::initializer_list<std::uint8_t> temperatures) {
    drive.SetTemperatures(temperatures);
    rig.volume.SetDrive(drive);
    rig.DebugOn();
    for (const std::size_t checkpoint : {40U, 60U}) {
      rig.machine->User().AtDoEvents(rig.machine->User().DoEventsCount() + checkpoint, [this] {
        if (!rig.program.flags.StopRequested) Tick(window.tmrTemperatures);
      });
    }
  }

  // What a letter of a script does while the warning is up.
  void Plan(char step) {
    rig.machine->User().WhileModal([this, step] {
      EXPECT_TRUE(warning.tmrTemperatures.enabled);
      EXPECT_TRUE(window.Busy());
      if (step == 't') Tick(warning.tmrTemperatures);
      if (step == 'm') Tick(window.tmrTemperatures);
      if (step == 'x') window.QueryUnload(CloseReason::EndOfSession);
      if (step == '1') warning.Command1.Click();
      if (step == '2') warning.Command2.Click();
      if (step == '3') warning.Command3.Click();
      if (!warning.visible) states += State();
    });
  }
  // The window when the warning has gone: whether it watches, and its line's colour.
  std::string State() const {
    return std::string(window.tmrTemperatures.enabled ? "on" : "off") +
           (warning.tmrTemperatures.enabled ? " waiting" : "") +
           (window.Label6.fore_colour == 0x00FF00U ? " bright;" : " dark;");
  }
  static void Tick(const Timer& timer) {
    if (timer.enabled) timer.tick();
  }
  // Temperatures in the log, in its order.
  std::string Logged() const {
    static const std::regex kLine("HD Temp HIGH: (\\d+)");
    std::string logged;
    for (std::sregex_iterator it(rig.Log().begin(), rig.Log().end(), kLine), end; it != end; ++it) {
      logged += it->str(1) + " ";
    }
    return logged;
  }

  ScriptedDrive drive;
  SmallRig rig{3};
  DefragWindow& window = rig.window;
  HDDTempWarning& warning = window.temperature_warning;
  std::string states;
};

TEST(TemperatureGuard, HoldsTheRunUpUntilTheDiskHasCooledOrTheUserHasChosen) {
  struct Case {
    const char* what;
    std::initializer_list<std::uint8_t> temperatures;  // the last one for good
    const char* steps;  // t, m: its timer and the main one's; 1 to 3: buttons; x: end of session
    std::size_t readings;
    int last;  // of the readings, 0 for none; in the window
    bool stops;
    const char* states;  // one for each warning
    const char* logged;
  };
  const Case kCases[] = {
      {"never hot", {55, 1}, "", 2, 1, false, "", ""},
      {"says nothing", {0}, "", 2, 0, false, "", ""},
      {"cools to the bound", {56, 60, 55, 41}, "tt", 4, 41, false, "on dark;", "60 56 "},
      {"silent while it waits", {58, 0, 0, 55, 0}, "ttt", 5, 0, false, "on dark;", "58 "},
      {"one reads at a time", {58, 50, 50}, "mmt", 3, 50, false, "on dark;", "58 "},
      {"continue", {58, 70}, "33", 2, 70, false, "on dark;on dark;", "58 70 "},
      {"bright stays bright", {50, 58}, "3", 2, 58, false, "on bright;", "58 "},
      {"stop", {58}, "2", 1, 58, true, "off dark;", "58 "},
      {"stop after a while", {50, 58, 59}, "t2", 3, 58, true, "off dark;", "59 58 "},
      {"switched off", {58}, "1", 1, 58, false, "off dark;", "58 "},
      {"end of session", {58}, "x", 1, 58, true, "on waiting dark;", "58 "},
  };
  for (const Case& c : kCases) {
    for (const Pass pass : {Pass::Defrag, Pass::Optimize}) {
      SCOPED_TRACE(PassName(pass) + ": " + c.what);
      Guard guard(c.temperatures);
      for (const char* step = c.steps; *step != 0; ++step) guard.Plan(*step);
      guard.rig.Run(pass);
      const ScriptedDesktop& user = guard.rig.machine->User();
      EXPECT_EQ(std::ssize(user.Modals()), std::ranges::count(std::string(c.states), ';'));
      EXPECT_EQ(user.ModalStepsLeft(), 0U);
      EXPECT_EQ(guard.drive.Readings(), c.readings);
      EXPECT_EQ(guard.rig.program.flags.StopRequested != False, c.stops);
      EXPECT_EQ(guard.states, c.states);
      EXPECT_EQ(guard.Logged(), c.logged);
      const std::string last = c.last == 0 ? "N/A" : std::to_string(c.last) + " \xC2\xB0\x43";
      EXPECT_EQ(guard.window.Label6.caption.get(), "C: temp " + last);
      ExpectSound(guard.rig);
    }
  }
}

TEST(TemperatureGuard, WhatTheWarningShowsAndStopClears) {
  Guard guard({58, 61, 50});
  const CallLog& log = guard.rig.machine->Log();
  guard.Plan('t');
  guard.rig.machine->User().WhileModal([&] {
    EXPECT_EQ(guard.warning.LblHDDTemp.caption.get(), "61\xC2\xB0\x43");
    guard.window.etfich.caption = "a file";
    const std::size_t bitmaps = log.Count(CallKind::VolumeBitmap);
    guard.warning.Command2.Click();
    EXPECT_EQ(guard.window.etfich.caption.get(), "");
    EXPECT_GT(log.Count(CallKind::VolumeBitmap), bitmaps) << "the map anew";
  });
  guard.rig.Run(Pass::Defrag);
  EXPECT_EQ(guard.rig.Boxes(), std::vector<std::string>()) << "nobody is asked twice";
}

}  // namespace
}  // namespace vornalux::testing
