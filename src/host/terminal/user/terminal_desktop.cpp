// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/user/terminal_desktop.h"

#include <algorithm>
#include <utility>

namespace vornalux {
namespace {

constexpr auto kWaitStep = std::chrono::milliseconds(100);
// How often the map is drawn anew while files move; and what it may take of the time.
constexpr auto kMapPeriod = std::chrono::seconds(3);
constexpr int kMapShare = 20;  // a 20th
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
  map_fails_ = false;
  map_shows_ = 0;
  if (live_) {
    live_->Bind(window, surroundings_.cluster_bytes, surroundings_.image, surroundings_.place,
                surroundings_.max_rate);
  }
  window.Show();
}

void TerminalDesktop::Unbind() {
  if (window_ == nullptr) return;
  window_->changed = nullptr;
  window_ = nullptr;
  timers_.clear();
  if (live_) live_->Unbind();
  for (const std::string& text : std::exchange(unseen_, {})) Print(text);
}

void TerminalDesktop::Tell(const std::string& text) {
  if (log_ != nullptr) log_->Write(text);
  if (!quiet_) plain_.ShowPhase(text, clock_());
}

bool TerminalDesktop::StopPending() const { return (events_.load() & kStops) != 0; }

void TerminalDesktop::Say(const std::string& text) {
  if (log_ != nullptr) log_->Write(text);
  Print(text);
}

void TerminalDesktop::Print(const std::string& text) {
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
    RefreshMap();
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
        if (!surroundings_.writes) {
          const bool before = std::exchange(answer_yes_, true);
          window_->Arretdefrag.Click();
          answer_yes_ = before;
          break;
        }
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
  // Which shows the candidates that the analysis found.
  if (!window_->engine.context.flags.ClassListsValid) DrawMapAsItIs();
  handling_ = true;
  redrawing_map_ = false;
}

void TerminalDesktop::FitMap() {
  if (!UsesLiveView()) return;
  const Engine& engine = window_->engine;
  std::int64_t clusters = engine.geometry.constants.TotalClusters;
  FreeSpace space;
  if (clusters == 0 && engine.volume.IsChosen() &&
      engine.context.platform.volumes.FreeSpaceFigures(engine.volume.Target().Root(), space) ==
          error::kSuccess) {
    clusters = space.total_clusters;
  }
  if (clusters > 0) live_->FitMap(clusters);
}

// Where the lists are of fragmented files only, those that are whole by now are left out, and the
// others shown with all their pieces. False when the volume could not be read.
bool TerminalDesktop::DrawMapAsItIs() {
  constexpr std::size_t kFilesUnheard = 64;
  Engine& engine = window_->engine;
  const RunFlags& flags = engine.context.flags;
  if (flags.ClassListsValid) return window_->RedrawMap(MapLayers::Candidates);
  if (!window_->RedrawMap(MapLayers::Volume)) return false;
  const std::vector<std::string>& names = engine.analysis.lists.FragNames;
  for (std::size_t i = 0; i < names.size() && !flags.StopRequested; ++i) {
    if (i % kFilesUnheard == 0) DoEvents();
    if (i >= names.size() || names[i].empty()) continue;
    const ExtentRecord record = engine.extents.ReadExtents(names[i], false, false);
    if (CountFragments(record.extents, engine.volume.Target().Ntfs()) <= 1) continue;
    record.EachRun(0, record.SizeInClusters(), [this](std::int64_t lcn, std::int64_t length) {
      window_->PaintExtent(lcn, length, map_colour::kDefrag);
    });
  }
  window_->RefreshMap();
  return true;
}

void TerminalDesktop::RefreshMap() {
  if (!UsesLiveView() || !live_->Shown() || !window_->Busy() || map_fails_) return;
  FitMap();
  const MoveStatistics& moved = window_->engine.movers.statistics;
  const std::int64_t clusters = moved.clusters_moved + moved.clusters_in_hand;
  const TimePoint now = clock_();
  if (clusters == map_shows_ || now < next_map_ || std::exchange(redrawing_map_, true)) return;
  map_shows_ = clusters;
  // The run goes on with the figures that it has begun with, whenever it is looked at.
  VolumeConstants& constants = window_->engine.geometry.constants;
  const VolumeConstants before = constants;
  handling_ = false;
  map_fails_ = !DrawMapAsItIs();
  handling_ = true;
  redrawing_map_ = false;
  constants = before;
  const TimePoint end = clock_();
  next_map_ = end + std::max<TimePoint::duration>(kMapPeriod, (end - now) * kMapShare);
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
  const std::string degrees = WithDegrees(warning.LblHDDTemp.caption, console_.Characters());
  const std::string text =
      warning.caption.get() + " " + degrees + ". " + warning.Label1.caption.get();
  if (log_ != nullptr) log_->Write(text);
  if (UsesLiveView()) {
    live_->DropKeys();
  } else {
    Print(text);
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
  if (log_ != nullptr) log_->Write(question + (answer == BoxAnswer::Yes ? " Yes" : " No"));
  // What asked for it, and what insisted on it.
  if (answer == BoxAnswer::Yes) events_.fetch_and(~kStops);
  return answer;
}

BoxAnswer TerminalDesktop::AskForLine(const std::string& question) {
  std::string line;
  for (;;) {
    const std::string image = surroundings_.image ? surroundings_.image() : "";
    console_.Print(
        PrintableText((image.empty() ? "" : image + ": ") + question, console_.Characters()) +
        " [y/n] ");
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
  FitMap();
  phase_ = caption;
  if (log_ != nullptr && IsPhase(phase_)) log_->Write(phase_);
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
