// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/terminal/console.h"
#include "host/terminal/pending_events.h"
#include "host/terminal/progress_line.h"
#include "platform/desktop.h"
#include "ui/defrag_window.h"

namespace vornalux {

// The desktop of a program on a terminal: the main window is a progress line, boxes are messages,
// Ctrl-C is its Stop button.
class TerminalDesktop final : public Desktop {
 public:
  using Clock = std::function<TimePoint()>;

  // console and events outlive the desktop. quiet: no progress, only messages.
  TerminalDesktop(Console& console, PendingEvents& events, Clock clock, bool quiet);

  // Shows the window, ticks its timer and clicks its Stop from now on, until Unbind().
  void Bind(DefragWindow& window);
  void Unbind();

  // One line to the user, progress out of the way.
  void Say(const std::string& text);

  void DoEvents() override {
    if (events_.load(std::memory_order_relaxed) != 0) HandleEvents();
  }
  bool InputPending() override { return events_.load(std::memory_order_relaxed) != 0; }
  BoxAnswer ShowBox(const std::string& text, const std::string& title, BoxButtons buttons,
                    BoxIcon icon) override;

 private:
  struct ArmedTimer {
    Timer* timer = nullptr;
    bool armed = false;
    TimePoint due;
  };

  void HandleEvents();
  void HandleStop(unsigned events);
  void TickTimers();
  BoxAnswer Ask(const std::string& question);
  void OnWindowChanged();
  ProgressState State(TimePoint now);
  void Redraw();
  void PrintPlainProgress(const ProgressState& state, TimePoint now);
  void ClearLine();

  Console& console_;
  PendingEvents& events_;
  Clock clock_;
  bool quiet_;
  DefragWindow* window_ = nullptr;
  std::vector<ArmedTimer> timers_;
  bool handling_ = false;
  bool answer_yes_ = false;  // the system wants an end: nobody is asked

  std::string phase_;
  TimeLeft time_left_;
  std::string drawn_;  // the progress line on the screen
  int plain_percent_ = 0;
  TimePoint plain_printed_;
};

}  // namespace vornalux
