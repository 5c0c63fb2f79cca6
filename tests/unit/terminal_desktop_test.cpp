// SPDX-License-Identifier: GPL-2.0-or-later
// The Stop button, questions and progress of the terminal, on a volume in memory and with a clock
// that the test winds.
#include "host/terminal/terminal_desktop.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <memory>
#include <string>

#include "app/program.h"
#include "host/mounted/mounted_platform.h"
#include "host/simulated/random_volume.h"

namespace vornalux {
namespace {

using std::chrono::milliseconds;

class FakeConsole final : public Console {
 public:
  bool can_redraw = true;
  bool can_ask = true;
  std::deque<std::string> answers;  // none left: the input is closed
  std::string shown;
  std::string progress;

  bool CanRedraw() const override { return can_redraw; }
  bool CanAsk() const override { return can_ask; }
  int Columns() const override { return 80; }
  Charset Characters() const override { return Charset::Ascii; }
  void Print(std::string_view text) override { shown += text; }
  void PrintIfReady(std::string_view text) override { progress += text; }
  Reply ReadLine(const PendingEvents& events, unsigned interrupting, std::string& line) override {
    if (events & interrupting) return Reply::Interrupted;
    if (answers.empty()) return Reply::Closed;
    line = answers.front();
    answers.pop_front();
    return Reply::Line;
  }
};

// Sets events when the run gets as far as a certain move, and winds the clock with each.
class EventfulPlatform final : public MountedPlatform {
 public:
  PendingEvents events = 0;
  TimePoint now;
  int moves = 0;
  int event_move = 0;
  unsigned event = 0;
  milliseconds move_time = milliseconds(0);

  ErrorCode MoveClusters(Handle volume, Handle file, std::int64_t vcn, std::int64_t lcn,
                         std::uint32_t count) override {
    now += move_time;
    if (++moves == event_move) events |= event;
    if (move_time.count() > 0) events |= pending::kTick;
    return MountedPlatform::MoveClusters(volume, file, vcn, lcn, count);
  }
};

// A program with a fragmented volume, and the user in front of it.
struct Scene {
  explicit Scene(bool quiet = false)
      : volume(MakeRandomVolume(VolumeOptions(), 1)),
        desktop(
            console, platform.events, [this] { return platform.now; }, quiet) {
    platform.Mount('C', *volume);
    program = std::make_unique<Program>(Platform{platform, platform, platform, desktop});
    desktop.Bind(program->main_window);
    program->launcher.SelectDrive("C:\\");
  }

  static RandomVolumeOptions VolumeOptions() {
    RandomVolumeOptions options;
    options.geometry.total_clusters = 20000;
    options.files = 300;
    options.fragmented = 0.9;
    options.immovable = 0;
    options.locked = 0;
    options.mft = false;
    return options;
  }

  // Moves that a run makes until it ends.
  int Defrag() {
    platform.moves = 0;
    program->main_window.cmdDefrag.Click();
    return platform.moves;
  }
  bool Stopped() const { return program->flags.StopRequested != False; }

  FakeConsole console;
  EventfulPlatform platform;
  std::unique_ptr<SimulatedVolume> volume;
  TerminalDesktop desktop;
  std::unique_ptr<Program> program;
};

TEST(TerminalDesktop, StopAsksAndDoesAsToldAtOnce) {
  struct Case {
    const char* what;
    unsigned event;
    bool can_ask;
    std::deque<std::string> answers;
    bool stops;
    bool asks;
  };
  const Case kCases[] = {
      {"no", pending::kInterrupt, true, {"n"}, false, true},
      {"nonsense, then no", pending::kInterrupt, true, {"", "what?", "no"}, false, true},
      {"yes", pending::kInterrupt, true, {"y"}, true, true},
      {"end of input", pending::kInterrupt, true, {}, true, true},
      {"twice", pending::kInterrupt | pending::kInsist, true, {"n"}, true, true},
      {"nobody to ask", pending::kInterrupt, false, {"n"}, true, false},
      {"nobody, twice", pending::kInterrupt | pending::kInsist, false, {"n"}, true, false},
      {"terminate", pending::kTerminate, true, {"n"}, true, false},
      {"interrupt and terminate",
       pending::kInterrupt | pending::kTerminate,
       true,
       {"n"},
       true,
       false},
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.what);
    Scene scene(true);
    scene.console.can_ask = c.can_ask;
    scene.console.answers = c.answers;
    scene.platform.event_move = 5;
    scene.platform.event = c.event;
    const int moves = scene.Defrag();
    EXPECT_EQ(scene.Stopped(), c.stops);
    if (c.stops) {
      EXPECT_EQ(moves, 5);
    } else {
      EXPECT_GT(moves, 50);
    }
    EXPECT_EQ(scene.console.shown.find("Paused ... Are you sure? [y/n] ") != std::string::npos,
              c.asks)
        << scene.console.shown;
    EXPECT_EQ(scene.platform.events, 0u) << "an event was left to stop the next run";
  }
}

TEST(TerminalDesktop, AStopBeforeThereIsAnythingToStopIsNotLost) {
  Scene scene;
  scene.console.can_ask = false;
  scene.platform.events |= pending::kTerminate;
  scene.desktop.DoEvents();
  EXPECT_FALSE(scene.Stopped());
  EXPECT_EQ(scene.Defrag(), 0);
  EXPECT_TRUE(scene.Stopped());
}

TEST(TerminalDesktop, TimerTicksByTheClock) {
  Scene scene;
  int ticks = 0;
  Timer& timer = scene.program->main_window.UpdateTimer;
  timer.tick = [&] { ++ticks; };
  const auto pass = [&](milliseconds time) {
    scene.platform.now += time;
    scene.platform.events |= pending::kTick;
    scene.desktop.DoEvents();
    return ticks;
  };
  EXPECT_EQ(pass(milliseconds(10000)), 0) << "not enabled";
  timer.enabled = true;
  EXPECT_EQ(pass(milliseconds(100)), 0);
  EXPECT_EQ(pass(milliseconds(1999)), 0);
  EXPECT_EQ(pass(milliseconds(1)), 1);
  EXPECT_EQ(pass(milliseconds(1999)), 1);
  timer.enabled = false;
  EXPECT_EQ(pass(milliseconds(5000)), 1);
  timer.enabled = true;
  EXPECT_EQ(pass(milliseconds(1000)), 1) << "its interval starts anew";
  EXPECT_EQ(pass(milliseconds(2000)), 2);
}

TEST(TerminalDesktop, ProgressIsDrawnInPlaceAndMessagesStartOnACleanLine) {
  Scene scene;
  scene.platform.move_time = milliseconds(1000);
  scene.Defrag();
  EXPECT_NE(scene.console.progress.find("\r\x1b[KDefragmenting  ####"), std::string::npos);
  EXPECT_NE(scene.console.progress.find(" left  C:\\"), std::string::npos);
  EXPECT_EQ(scene.console.progress.find('\n'), std::string::npos);
  scene.desktop.ShowBox("one\r\ntwo", "title", BoxButtons::Ok, BoxIcon::Warning);
  EXPECT_EQ(scene.console.shown, "\r\x1b[Kvornalux: one\ntwo\n");
}

TEST(TerminalDesktop, WithoutATerminalProgressIsAFewPlainLines) {
  Scene scene;
  scene.console.can_redraw = false;
  scene.platform.move_time = milliseconds(1000);
  scene.Defrag();
  EXPECT_EQ(scene.console.progress.find('\x1b'), std::string::npos);
  EXPECT_NE(scene.console.progress.find("Enumerating files on volume C:\\\n"), std::string::npos);
  EXPECT_NE(scene.console.progress.find("\nDefragmenting volume C:\\\n  1"), std::string::npos);
  EXPECT_LT(std::count(scene.console.progress.begin(), scene.console.progress.end(), '\n'), 15);
}

TEST(TerminalDesktop, QuietShowsNoProgress) {
  Scene scene(true);
  scene.platform.move_time = milliseconds(1000);
  scene.Defrag();
  EXPECT_EQ(scene.console.progress, "");
}

}  // namespace
}  // namespace vornalux
