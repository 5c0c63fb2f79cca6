// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/terminal/live/live_view.h"
#include "host/terminal/live/pending_events.h"
#include "host/terminal/output/run_log.h"
#include "host/terminal/user/console.h"
#include "host/terminal/user/plain_progress.h"
#include "platform/desktop.h"
#include "ui/defrag_window.h"

namespace vornalux {

// What the desktop has to know of a run besides its window.
struct RunSurroundings {
  std::function<std::int64_t()> cluster_bytes;  // of the volume at work
  // Something else writes to the terminal, so that it must not be drawn over.
  std::function<bool()> terminal_in_use;
  std::function<std::string()> image = {};  // the name of the volume at work
  std::string place = {};                   // of it among several, "2 of 3"
  bool writes = true;                       // else leaving does no harm at any time
  std::int64_t max_rate = 0;                // of moved data, bytes per second; 0 for no limit
};

// The desktop of a program on a terminal: the main window is a live view, or plain lines where
// there is none; boxes are messages; Ctrl-C is its Stop button.
class TerminalDesktop final : public Desktop {
 public:
  using Clock = std::function<TimePoint()>;

  // All outlive the desktop. screen: null for plain lines. quiet: no progress, only messages.
  TerminalDesktop(Console& console, Screen* screen, PendingEvents& events, Clock clock, bool quiet);

  // Shows the window, ticks its timer and clicks its commands from now on, until Unbind().
  void Bind(DefragWindow& window, RunSurroundings surroundings);
  void Unbind();

  // What is told from now on is logged as well. The log outlives the desktop.
  void LogTo(RunLog& log) { log_ = &log; }

  // A stop was asked for, and nothing has heard it yet.
  bool StopPending() const;

  // Progress, as a line.
  void Tell(const std::string& text);

  // One line to the user.
  void Say(const std::string& text);

  TimePoint Now() const { return clock_(); }
  // Lets so much time pass, with the user and the timers heard.
  void Wait(std::chrono::milliseconds time);

  // An end is wanted where nothing is left to be asked about it.
  bool StopWanted() const;

  void DoEvents() override {
    if (events_.load(std::memory_order_relaxed) != 0) HandleEvents();
  }
  bool InputPending() override { return events_.load(std::memory_order_relaxed) != 0; }
  BoxAnswer ShowBox(const std::string& text, const std::string& title, BoxButtons buttons,
                    BoxIcon icon) override;
  // For the temperature warning only, whose buttons have keys. Ctrl-C presses its Stop button.
  void ShowModal(Form& form) override;

 private:
  struct ArmedTimer {
    Timer* timer = nullptr;
    bool armed = false;
    TimePoint due;
  };

  void Print(const std::string& text);
  void HandleEvents();
  void HandleStop(unsigned events);
  void HandleKeys();
  void RedrawMap();
  void FitMap();
  void RefreshMap();
  bool DrawMapAsItIs();
  void TickTimers();
  void WaitInWarning(HDDTempWarning& warning);
  bool PressedStop(HDDTempWarning& warning);
  BoxAnswer Ask(const std::string& question);
  BoxAnswer AskForLine(const std::string& question);
  void OnWindowChanged();
  bool UsesLiveView() const;
  void Redraw();

  Console& console_;
  PendingEvents& events_;
  Clock clock_;
  bool quiet_;
  std::unique_ptr<LiveView> live_;
  PlainProgress plain_;
  RunLog* log_ = nullptr;
  DefragWindow* window_ = nullptr;
  RunSurroundings surroundings_;
  std::vector<ArmedTimer> timers_;
  bool handling_ = false;
  bool redrawing_map_ = false;
  bool map_fails_ = false;           // the user has been told
  TimePoint next_map_;               // when the map is drawn anew, at the earliest
  std::int64_t map_shows_ = 0;       // clusters that had been moved when it was drawn
  bool answer_yes_ = false;          // the system wants an end: nobody is asked
  bool obeying_exit_ = false;        // who pressed the key sees what is said
  std::vector<std::string> unseen_;  // said while the live view was shown

  std::string phase_;
  TimeLeft time_left_;
};

}  // namespace vornalux
