// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/terminal_desktop.h"

#include <utility>

namespace vornalux {
namespace {

constexpr unsigned kStops = pending::kInterrupt | pending::kInsist | pending::kTerminate;
// A log of a long run stays readable.
constexpr int kPlainStep = 10;  // percent
constexpr auto kPlainPause = std::chrono::seconds(5);
constexpr const char* kClearLine = "\r\x1b[K";

// The window's title while it is doing something; else it names the volume only.
bool IsPhase(const std::string& caption) {
  return !caption.empty() && !caption.starts_with("Volume ");
}

// Without "[on] volume C:\", which the current file's path says as well.
std::string ShortPhase(const std::string& caption) {
  for (const char* rest : {" on volume ", " volume "}) {
    if (const std::size_t at = caption.find(rest); at != std::string::npos) {
      return caption.substr(0, at);
    }
  }
  return caption;
}

}  // namespace

TerminalDesktop::TerminalDesktop(Console& console, PendingEvents& events, Clock clock, bool quiet)
    : console_(console), events_(events), clock_(std::move(clock)), quiet_(quiet) {}

void TerminalDesktop::Bind(DefragWindow& window) {
  window_ = &window;
  timers_ = {{&window.UpdateTimer, false, {}}};
  window.changed = [this] { OnWindowChanged(); };
  window.Show();
}

void TerminalDesktop::Unbind() {
  if (window_ == nullptr) return;
  ClearLine();
  window_->changed = nullptr;
  window_ = nullptr;
  timers_.clear();
}

void TerminalDesktop::Say(const std::string& text) {
  ClearLine();
  console_.Print("vornalux: " + PrintableLines(text, console_.Characters()) + "\n");
}

void TerminalDesktop::HandleEvents() {
  // Events that a timer or a box brings about wait for the outer call.
  if (handling_) return;
  handling_ = true;
  const unsigned events = events_.load();
  // A stop that comes too early waits until there is something to stop.
  if ((events & kStops) && window_ != nullptr && window_->Arretdefrag.enabled) HandleStop(events);
  if (events & pending::kTick) {
    events_.fetch_and(~pending::kTick);
    TickTimers();
    Redraw();
  }
  handling_ = false;
}

void TerminalDesktop::HandleStop(unsigned events) {
  answer_yes_ = (events & pending::kTerminate) != 0;
  // Pressed twice before anybody looked: the second one stays, as the answer.
  const bool insist = (events & pending::kInsist) != 0;
  events_.fetch_and(~(insist ? pending::kInsist | pending::kTerminate : kStops));
  window_->Arretdefrag.Click();
}

void TerminalDesktop::TickTimers() {
  const TimePoint now = clock_();
  for (ArmedTimer& armed : timers_) {
    if (!armed.timer->enabled) {
      armed.armed = false;
      continue;
    }
    const auto interval = std::chrono::milliseconds(armed.timer->interval);
    if (!std::exchange(armed.armed, true)) armed.due = now + interval;
    if (now < armed.due) continue;
    armed.due = now + interval;
    Raise(armed.timer->tick);
  }
}

BoxAnswer TerminalDesktop::ShowBox(const std::string& text, const std::string& title,
                                   BoxButtons buttons, BoxIcon /*icon*/) {
  if (buttons == BoxButtons::Ok) {
    Say(text);
    return BoxAnswer::Ok;
  }
  return Ask(title.empty() ? text : title + " " + text);
}

BoxAnswer TerminalDesktop::Ask(const std::string& question) {
  const auto yes = [this] {
    events_.fetch_and(~kStops);
    return BoxAnswer::Yes;
  };
  if (answer_yes_ || !console_.CanAsk()) return yes();
  ClearLine();
  std::string line;
  for (;;) {
    console_.Print(PrintableText(question, console_.Characters()) + " [y/n] ");
    switch (console_.ReadLine(events_, kStops, line)) {
      case Console::Reply::Interrupted:
      case Console::Reply::Closed:
        console_.Print("\n");
        return yes();
      case Console::Reply::Line:
        break;
    }
    if (line == "y" || line == "Y" || line == "yes") return BoxAnswer::Yes;
    if (line == "n" || line == "N" || line == "no") return BoxAnswer::No;
  }
}

void TerminalDesktop::OnWindowChanged() {
  const std::string& caption = window_->caption.get();
  if (caption == phase_) return;
  phase_ = caption;
  plain_percent_ = 0;
  plain_printed_ = clock_();
  if (quiet_ || console_.CanRedraw() || !window_->visible || !IsPhase(phase_)) return;
  console_.PrintIfReady(PrintableText(phase_, console_.Characters()) + "\n");
}

ProgressState TerminalDesktop::State(TimePoint now) {
  ProgressState state;
  state.phase = ShortPhase(phase_);
  state.item = window_->etfich.caption;
  // A range of one is the bar's rest position: how far there is to go is not known.
  if (window_->progress.maximum > 1) {
    state.done = window_->progress.value;
    state.total = window_->progress.maximum;
    state.left = time_left_.Update(now, state.done, state.total);
  }
  return state;
}

void TerminalDesktop::Redraw() {
  if (quiet_ || window_ == nullptr || !window_->visible || !window_->Busy()) return;
  const TimePoint now = clock_();
  const ProgressState state = State(now);
  if (!console_.CanRedraw()) {
    PrintPlainProgress(state, now);
    return;
  }
  // The last column stays free: some terminals break the line after it.
  std::string line = ProgressText(state, console_.Columns() - 1, console_.Characters());
  if (line == drawn_) return;
  console_.PrintIfReady(kClearLine + line);
  drawn_ = std::move(line);
}

void TerminalDesktop::PrintPlainProgress(const ProgressState& state, TimePoint now) {
  const int percent = Percent(state).value_or(0);
  if (percent < plain_percent_ + kPlainStep || now - plain_printed_ < kPlainPause) return;
  plain_percent_ = percent - percent % kPlainStep;
  plain_printed_ = now;
  console_.PrintIfReady("  " + std::to_string(percent) + "%" +
                        (state.left ? ", " + ClockText(*state.left) + " left" : "") + "\n");
}

void TerminalDesktop::ClearLine() {
  if (drawn_.empty()) return;
  drawn_.clear();
  console_.Print(kClearLine);
}

}  // namespace vornalux
