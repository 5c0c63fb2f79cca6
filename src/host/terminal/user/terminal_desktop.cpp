// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/user/terminal_desktop.h"

#include <utility>

namespace vornalux {
namespace {

constexpr auto kWaitStep = std::chrono::milliseconds(100);
constexpr unsigned kStops = pending::kInterrupt | pending::kInsist | pending::kTerminate;

}  // namespace

TerminalDesktop::TerminalDesktop(Console& console, Screen* screen, PendingEvents& events,
                                 Clock clock, bool quiet)
    : console_(console),
      events_(events),
      clock_(std::move(clock)),
      quiet_(quiet),
      live_(screen != nullptr && !quiet ? std::make_unique<LiveView>(*screen) : nullptr),
      plain_(console) {}

void TerminalDesktop::Bind(DefragWindow& window, RunSurroundings surroundings) {
  window_ = &window;
  surroundings_ = std::move(surroundings);
  timers_.clear();
  for (Timer* timer : {&window.UpdateTimer, &window.tmrTemperatures,
                       &window.temperature_warning.tmrTemperatures}) {
    timers_.push_back({timer, false, {}});
  }
  window.changed = [this] { OnWindowChanged(); };
  if (live_) live_->Bind(window, surroundings_.cluster_bytes, surroundings_.max_rate);
  window.Show();
}

void TerminalDesktop::Unbind() {
  if (window_ == nullptr) return;
  window_->changed = nullptr;
  window_ = nullptr;
  timers_.clear();
  if (live_) live_->Unbind();
  for (const std::string& text : std::exchange(unseen_, {})) Say(text);
}

void TerminalDesktop::Say(const std::string& text) {
  if (live_ && live_->Shown()) {
    live_->ShowMessage(text);
    if (!obeying_exit_) unseen_.push_back(text);
    return;
  }
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
    HandleKeys();
    Redraw();
  }
  handling_ = false;
}

void TerminalDesktop::Wait(std::chrono::milliseconds time) {
  console_.Wait(time);
  DoEvents();
}

bool TerminalDesktop::StopWanted() const { return (events_.load() & kStops) != 0; }

void TerminalDesktop::HandleStop(unsigned events) {
  answer_yes_ = (events & pending::kTerminate) != 0;
  // Pressed twice before anybody looked: the second one stays, as the answer.
  const bool insist = (events & pending::kInsist) != 0;
  events_.fetch_and(~(insist ? pending::kInsist | pending::kTerminate : kStops));
  window_->Arretdefrag.Click();
}

void TerminalDesktop::HandleKeys() {
  // Between two runs there is nothing that a key could mean.
  if (!live_ || window_ == nullptr || !window_->Busy()) return;
  while (const std::optional<RunCommand> command = live_->TakeCommand()) {
    switch (*command) {
      case RunCommand::Stop:
        window_->Arretdefrag.Click();
        break;
      case RunCommand::RedrawMap:
        RedrawMap();
        break;
      case RunCommand::Exit:
        obeying_exit_ = true;
        window_->QueryUnload(CloseReason::CloseBox);
        obeying_exit_ = false;
        break;
    }
  }
}

// Long enough on a large volume to be watched and stopped itself.
void TerminalDesktop::RedrawMap() {
  if (std::exchange(redrawing_map_, true)) return;
  handling_ = false;
  Raise(window_->Picdepartvolume.click);
  handling_ = true;
  redrawing_map_ = false;
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

void TerminalDesktop::ShowModal(Form& form) {
  if (window_ == nullptr || &form != &window_->temperature_warning) return;
  HDDTempWarning& warning = window_->temperature_warning;
  warning.Show();
  if (UsesLiveView()) {
    live_->DropKeys();
  } else {
    const std::string degrees = WithDegrees(warning.LblHDDTemp.caption, console_.Characters());
    Say(warning.caption.get() + " " + degrees + ". " + warning.Label1.caption.get());
  }
  // Whatever called this, nothing that happens meanwhile is for anybody else.
  const bool outer = std::exchange(handling_, true);
  while (warning.visible) WaitInWarning(warning);
  handling_ = outer;
}

void TerminalDesktop::WaitInWarning(HDDTempWarning& warning) {
  if (PressedStop(warning)) return;
  TickTimers();
  if (!warning.visible) return;
  if (UsesLiveView()) {
    live_->ObeyWarning(kWaitStep);
  } else {
    console_.Wait(kWaitStep);
  }
}

// Who presses Ctrl-C in front of a window that offers to stop has chosen.
bool TerminalDesktop::PressedStop(HDDTempWarning& warning) {
  const unsigned stops = events_.fetch_and(~kStops) & kStops;
  if (stops == 0) return false;
  if (stops & pending::kTerminate) answer_yes_ = true;
  warning.Command2.Click();
  return true;
}

BoxAnswer TerminalDesktop::Ask(const std::string& question) {
  const bool nobody = answer_yes_ || !console_.CanAsk();
  const BoxAnswer answer = nobody           ? BoxAnswer::Yes
                           : UsesLiveView() ? live_->Ask(question, events_, kStops)
                                            : AskForLine(question);
  // What asked for it, and what insisted on it.
  if (answer == BoxAnswer::Yes) events_.fetch_and(~kStops);
  return answer;
}

BoxAnswer TerminalDesktop::AskForLine(const std::string& question) {
  std::string line;
  for (;;) {
    console_.Print(PrintableText(question, console_.Characters()) + " [y/n] ");
    if (console_.ReadLine(events_, kStops, line) != Console::Reply::Line) {
      console_.Print("\n");
      return BoxAnswer::Yes;
    }
    if (line == "y" || line == "Y" || line == "yes") return BoxAnswer::Yes;
    if (line == "n" || line == "N" || line == "no") return BoxAnswer::No;
  }
}

void TerminalDesktop::OnWindowChanged() {
  const std::string& caption = window_->caption.get();
  if (caption == phase_) return;
  phase_ = caption;
  if (!quiet_ && window_->visible && !UsesLiveView()) plain_.ShowPhase(phase_, clock_());
}

bool TerminalDesktop::UsesLiveView() const {
  return live_ && window_ != nullptr && !surroundings_.terminal_in_use();
}

void TerminalDesktop::Redraw() {
  if (quiet_ || window_ == nullptr || !window_->visible || !window_->Busy()) return;
  const TimePoint now = clock_();
  ProgressState state;
  // A range of one is the bar's rest position: how far there is to go is not known.
  if (window_->progress.maximum > 1) {
    state.done = window_->progress.value;
    state.total = window_->progress.maximum;
    state.left = time_left_.Update(now, state.done, state.total);
  }
  if (UsesLiveView()) {
    live_->Draw(state, now);
  } else {
    plain_.Show(state, now);
  }
}

}  // namespace vornalux
