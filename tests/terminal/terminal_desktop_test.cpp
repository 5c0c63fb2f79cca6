// SPDX-License-Identifier: GPL-2.0-or-later
// The terminal's Stop button, keys, questions and progress, on a volume in memory and with a clock
// that the test winds.
#include "host/terminal/user/terminal_desktop.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <tuple>

#include "app/program.h"
#include "host/mounted/mounted_platform.h"
#include "host/simulated/random_volume.h"
#include "host/simulated/scripted_drive.h"

namespace vornalux {
namespace {

using std::chrono::milliseconds;
using namespace pending;

class FakeConsole final : public Console {
 public:
  std::function<void(milliseconds)> waited;
  bool can_ask = true;
  std::deque<std::string> answers;  // none left: the input is closed
  std::string shown;
  std::string progress;

  bool CanAsk() const override { return can_ask; }
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
  void Wait(milliseconds time) override { waited(time); }
};

// A terminal that keeps what is on it, and keys that somebody has typed ahead.
class FakeScreen final : public Screen {
 public:
  ScreenSize size = {80, 24};
  std::deque<Key> keys;
  std::function<void(milliseconds)> waited;  // for a key that did not come
  bool foreground = true;
  bool ready = true;
  bool taken = false;
  int sent = 0;
  std::vector<std::string> rows;

  bool Shows(const std::string& text) const {
    return std::any_of(rows.begin(), rows.end(),
                       [&](const std::string& row) { return row.find(text) != std::string::npos; });
  }

  Look look() const override { return {Charset::Ascii, ColourDepth::None}; }
  ScreenSize Size() const override { return size; }
  bool Take(bool& drawn) override {
    drawn = taken;
    if (!foreground) return false;
    taken = true;
    return true;
  }
  void Release() override { taken = false; }
  bool Ready() override { return ready; }
  void Send(std::string_view text) override {
    EXPECT_TRUE(ready && taken);
    ++sent;
    std::size_t row = 0;
    rows.resize(static_cast<std::size_t>(size.rows));
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (text[i] != '\x1b') {
        rows.at(row) += text[i];
        continue;
      }
      const std::size_t end = text.find_first_not_of("[0123456789;", i + 1);
      if (text[end] == 'J') rows.assign(rows.size(), "");
      if (text[end] == 'H') {
        row = static_cast<std::size_t>(std::atoi(text.data() + i + 2)) - 1;
        rows.at(row).clear();
      }
      i = end;
    }
  }
  std::optional<Key> ReadKey(milliseconds wait) override {
    if (keys.empty()) {
      if (waited && wait.count() > 0) waited(wait);
      return std::nullopt;
    }
    const Key next = keys.front();
    keys.pop_front();
    return next;
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
  std::function<void()> at_event;
  milliseconds move_time = milliseconds(0);

  ErrorCode MoveClusters(Handle volume, Handle file, std::int64_t vcn, std::int64_t lcn,
                         std::uint32_t count, const MoveCheckpoint& checkpoint) override {
    now += move_time;
    if (++moves == event_move) {
      events |= event;
      if (at_event) at_event();
    }
    if (move_time.count() > 0) events |= kTick;
    return MountedPlatform::MoveClusters(volume, file, vcn, lcn, count, checkpoint);
  }
};

// A program with a fragmented volume, and the user in front of it.
struct Scene {
  enum class Look { Plain, Quiet, Live };

  explicit Scene(Look look = Look::Plain)
      : volume(MakeRandomVolume({.geometry = {.total_clusters = 20000},
                                 .files = 300,
                                 .fragmented = 0.9,
                                 .locked = 0,
                                 .immovable = 0,
                                 .mft = false},
                                1)),
        desktop(
            console, look == Look::Live ? &screen : nullptr, platform.events,
            [this] { return platform.now; }, look == Look::Quiet) {
    platform.Mount('C', *volume);
    program = std::make_unique<Program>(platform.With(desktop));
    desktop.Bind(program->main_window, {.cluster_bytes = [] { return 1024; },
                                        .terminal_in_use = [this] { return terminal_in_use; }});
    program->launcher.SelectDrive("C:\\");
    program->main_window.OpenMenu();
  }

  // Moves that a run makes until it ends.
  int Defrag() {
    platform.moves = 0;
    program->main_window.cmdDefrag.Click();
    return platform.moves;
  }
  bool Stopped() const { return program->flags.StopRequested != False; }

  FakeConsole console;
  FakeScreen screen;
  bool terminal_in_use = false;
  EventfulPlatform platform;
  std::unique_ptr<SimulatedVolume> volume;
  TerminalDesktop desktop;
  std::unique_ptr<Program> program;
};

TEST(TerminalDesktop, StopAsksAndDoesAsToldAtOnce) {
  using enum Scene::Look;
  struct Case {
    const char* what;
    Scene::Look look;
    unsigned event;
    std::deque<std::string> answers;
    std::deque<Key> keys;  // not typed before: a key is obeyed at once
    bool stops, asks;      // asks: in a line of text
  };
  const Case kCases[] = {
      {"no", Quiet, kInterrupt, {"n"}, {}, false, true},
      {"nonsense, then no", Quiet, kInterrupt, {"", "what?", "no"}, {}, false, true},
      {"yes", Quiet, kInterrupt, {"y"}, {}, true, true},
      {"end of input", Quiet, kInterrupt, {}, {}, true, true},
      {"twice", Quiet, kInterrupt | kInsist, {"n"}, {}, true, true},
      {"terminate", Quiet, kTerminate, {"n"}, {}, true, false},
      {"interrupt and terminate", Quiet, kInterrupt | kTerminate, {"n"}, {}, true, false},
      {"no, later no again", Live, 0, {}, {'s', 'n', 's', key::kEscape}, false, false},
      {"other keys, then yes", Live, 0, {}, {'s', 'x', key::kUp, 'y'}, true, false},
      {"no, then yes", Live, 0, {}, {'s', 'n', 's', 'Y'}, true, false},
      {"Ctrl-C, no", Live, kInterrupt, {}, {'n'}, false, false},
      {"Ctrl-C, Ctrl-C", Live, kInterrupt | kInsist, {}, {}, true, false},
      {"terminate", Live, kTerminate, {}, {'n'}, true, false},
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.what);
    Scene scene(c.look);
    scene.console.answers = c.answers;
    scene.platform.event_move = 5;
    scene.platform.event = c.event;
    scene.platform.at_event = [&] { scene.screen.keys = c.keys; };
    scene.platform.move_time = milliseconds(c.look == Live ? 200 : 0);
    const int moves = scene.Defrag();
    EXPECT_EQ(scene.Stopped(), c.stops);
    EXPECT_TRUE(c.stops ? moves < 9 : moves > 50) << moves;
    EXPECT_TRUE(c.event == 0 || !c.stops || moves == 5) << moves;
    EXPECT_EQ(scene.console.shown.starts_with("Paused ... Are you sure? [y/n] "), c.asks);
    EXPECT_EQ(scene.platform.events & ~kTick, 0u) << "an event was left to stop the next run";
  }
}

TEST(TerminalDesktop, AStopBeforeThereIsAnythingToStopIsNotLost) {
  Scene scene;
  scene.console.can_ask = false;
  scene.platform.events |= kTerminate;
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
  // Enabled or not, milliseconds, ticks so far. Enabled again it starts its interval anew.
  const std::tuple<bool, int, int> passes[] = {{false, 10000, 0}, {true, 100, 0},  {true, 1999, 0},
                                               {true, 1, 1},      {true, 1999, 1}, {false, 5000, 1},
                                               {true, 1000, 1},   {true, 2000, 2}};
  for (const auto& [enabled, time, expected] : passes) {
    timer.enabled = enabled;
    scene.platform.now += milliseconds(time);
    scene.platform.events |= kTick;
    scene.desktop.DoEvents();
    EXPECT_EQ(ticks, expected) << "after " << time;
  }
}

TEST(TerminalDesktop, PlainProgressIsAFewLines) {
  for (const auto look : {Scene::Look::Plain, Scene::Look::Live, Scene::Look::Quiet}) {
    Scene scene(look);
    scene.terminal_in_use = look == Scene::Look::Live;
    scene.platform.move_time = milliseconds(1000);
    scene.Defrag();
    EXPECT_EQ(scene.screen.sent, 0);
    const std::string& lines = scene.console.progress;
    EXPECT_EQ(lines.find('\x1b'), std::string::npos);
    for (const char* line :
         {"Enumerating files on volume C:\\\n", "\nDefragmenting volume C:\\\n  1"}) {
      EXPECT_EQ(lines.find(line) == std::string::npos, look == Scene::Look::Quiet) << line;
    }
    EXPECT_LT(std::count(lines.begin(), lines.end(), '\n'), 15);
    scene.desktop.ShowBox("one\r\ntwo", "title", BoxButtons::Ok, BoxIcon::Warning);
    EXPECT_EQ(scene.console.shown, "vornalux: one\ntwo\n");
  }
}

// A live scene; its user may do something at the tenth move.
struct LiveScene : Scene {
  LiveScene() : Scene(Look::Live) {
    platform.move_time = milliseconds(200);
    platform.event_move = 10;
  }
  DefragWindow& Window() { return program->main_window; }
};

TEST(LiveView, ShowsTheRunAndGivesTheTerminalBack) {
  LiveScene scene;
  scene.platform.at_event = [&] {
    EXPECT_TRUE(scene.screen.taken);
    for (const char* part : {"Defragmenting volume C:\\", "candidate for:", " KiB moved"}) {
      EXPECT_TRUE(scene.screen.Shows(part)) << part;
    }
    EXPECT_TRUE(scene.screen.Shows("D#") || scene.screen.Shows("DD")) << "the map";
    scene.screen.keys = {'q'};
    scene.desktop.ShowBox("one\r\ntwo", "title", BoxButtons::Ok, BoxIcon::Warning);
    EXPECT_EQ(scene.console.shown, "");
  };
  bool refused = false;
  scene.Window().etfich.changed = [&] {
    refused = refused || scene.screen.Shows("Quit current operation first!");
  };
  EXPECT_GT(scene.Defrag(), 50);
  EXPECT_TRUE(refused);
  scene.desktop.Unbind();
  EXPECT_FALSE(scene.screen.taken);
  EXPECT_EQ(scene.console.shown, "vornalux: one\ntwo\n") << "said while only the view was seen";
}

TEST(LiveView, RedrawsTheMapOnceAtATime) {
  LiveScene scene;
  const Event redraw = scene.Window().Picdepartvolume.click;
  int depth = 0;
  int redraws = 0;
  scene.Window().Picdepartvolume.click = [&] {
    ++redraws;
    ASSERT_EQ(++depth, 1);
    scene.screen.keys = {'m'};
    scene.platform.events |= kTick;
    redraw();
    --depth;
  };
  scene.platform.at_event = [&] { scene.screen.keys = {'m'}; };
  EXPECT_GT(scene.Defrag(), 50);
  EXPECT_EQ(redraws, 1);
}

// Every few seconds, with what has become of the files, and the run goes on as if nobody looked.
TEST(LiveView, TheMapFollowsTheRun) {
  const auto candidates = [](const FakeScreen& screen) {
    std::ptrdiff_t count = 0;
    for (std::size_t row = 2; row < 14; ++row) count += std::ranges::count(screen.rows[row], 'D');
    return count;
  };
  LiveScene scene;
  std::ptrdiff_t first = 0;
  std::ptrdiff_t last = 0;
  scene.platform.at_event = [&] {
    (first == 0 ? first : last) = candidates(scene.screen);
    scene.Window().engine.geometry.constants.OptimizeArea = 4711;
    scene.platform.event_move = 180;
  };
  bool kept = true;
  scene.Window().etfich.changed = [&] {
    const std::int64_t now = scene.Window().engine.geometry.constants.OptimizeArea;
    kept = kept && (first == 0 || now == 4711);
  };
  EXPECT_GT(scene.Defrag(), 180);
  EXPECT_GT(first, 100);
  EXPECT_LT(last, first);
  EXPECT_GT(last, 0);
  EXPECT_TRUE(kept);
}

// Where nothing is written.
TEST(LiveView, ExitLeavesARunThatOnlyLooks) {
  LiveScene scene;
  scene.desktop.Bind(scene.Window(), {.cluster_bytes = [] { return 1024; },
                                      .terminal_in_use = [] { return false; },
                                      .image = [] { return "a.img"; },
                                      .writes = false});
  scene.platform.at_event = [&] {
    EXPECT_TRUE(scene.screen.Shows("a.img"));
    scene.screen.keys = {'q'};
  };
  EXPECT_LT(scene.Defrag(), 50);
  EXPECT_TRUE(scene.Stopped());
}

TEST(LiveView, ATerminalThatDoesNotKeepUpHoldsNothingUp) {
  LiveScene scene;
  scene.screen.ready = false;
  scene.platform.at_event = [&] {
    EXPECT_EQ(scene.screen.sent, 0);
    scene.screen.ready = true;
  };
  scene.Defrag();
  EXPECT_GT(scene.screen.sent, 10);
  EXPECT_LE(scene.screen.sent, scene.platform.moves) << "no more often than the ticks";

  LiveScene away;  // suspended and continued behind another program
  away.screen.foreground = false;
  away.Defrag();
  EXPECT_EQ(away.screen.sent, 0);
}

// A scene whose disk gets hot, with time that passes while the warning waits.
struct HotScene : Scene {
  HotScene(Look look, std::initializer_list<std::uint8_t> temperatures) : Scene(look) {
    platform.move_time = milliseconds(1000);
    drive.SetTemperatures(temperatures);
    volume->SetDrive(drive);
    console.waited = screen.waited = [this](milliseconds time) {
      platform.now += time;
      waited += time;
      if (Warning().visible && at_wait) std::exchange(at_wait, nullptr)();
    };
  }
  HDDTempWarning& Warning() { return program->main_window.temperature_warning; }

  ScriptedDrive drive;
  milliseconds waited{0};
  std::function<void()> at_wait;  // the first time that the warning waits
};

// In a box with three keys in front of the map, or told once where there is no view.
TEST(TerminalDesktop, AHotDiskIsWaitedFor) {
  struct Case {
    Scene::Look look;
    std::deque<Key> keys;  // without any the disk cools
    unsigned event;
    bool stops, watches;
  };
  using enum Scene::Look;
  for (const Case& c : {Case{Plain, {}, 0, false, true},
                        {Quiet, {}, 0, false, true},
                        {Plain, {}, kInterrupt, true, false},
                        {Quiet, {}, kTerminate, true, false},
                        {Live, {}, 0, false, true},
                        {Live, {'x', 'q', 'm', 'y', 'n', key::kEscape, '\n', 'c'}, 0, false, true},
                        {Live, {'s'}, 0, true, false},
                        {Live, {'d'}, 0, false, false},
                        {Live, {}, kInterrupt, true, false},
                        {Live, {}, kTerminate, true, false}}) {
    SCOPED_TRACE(std::to_string(static_cast<int>(c.look)) + " " + std::to_string(c.event) + " " +
                 std::to_string(c.keys.size()));
    HotScene scene(c.look, {58, 60, 50});
    DefragWindow& window = scene.program->main_window;
    // Typed before there was anything to see, and the details in front.
    window.tmrTemperatures.tick = [&, tick = window.tmrTemperatures.tick] {
      if (c.look == Live && scene.drive.Readings() == 0) {
        scene.screen.keys = {'s', 'd'};
        window.details.Show();
      }
      tick();
    };
    bool watches = false;
    scene.at_wait = [&] {
      for (const char* part : {"58C   Waiting for", " c  Continue ", " s  Stop ", " d  Disable ",
                               "C: temp 58 C", "+----"}) {
        EXPECT_EQ(scene.screen.Shows(part), c.look == Live) << part;
      }
      EXPECT_FALSE(scene.screen.Shows("candidate for:"));
      EXPECT_FALSE(scene.screen.Shows("View details"));
      scene.screen.keys = c.keys;
      scene.platform.events |= c.event;
      scene.Warning().unloaded = [&] { watches = window.tmrTemperatures.enabled; };
    };
    EXPECT_EQ(scene.Defrag() > 50, !c.stops);
    EXPECT_EQ(scene.Stopped(), c.stops);
    EXPECT_EQ(watches, c.watches);
    EXPECT_FALSE(scene.Warning().visible);
    EXPECT_GE(scene.waited, milliseconds(c.keys.empty() && c.event == 0 ? 60000 : 0));
    EXPECT_EQ(scene.console.shown,
              c.look == Live
                  ? ""
                  : "vornalux: Waiting for disk to cool down ... 58C. Vornalux is waiting for the "
                    "disk to cool off and will automatically continue.\n");
    EXPECT_EQ(scene.platform.events & ~kTick, 0U);
  }
}

}  // namespace
}  // namespace vornalux
