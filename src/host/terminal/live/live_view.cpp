// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/live/live_view.h"

#include <algorithm>
#include <utility>

namespace vornalux {
namespace {

constexpr auto kShowAfter = std::chrono::milliseconds(250);
constexpr auto kKeyWait = std::chrono::milliseconds(100);

}  // namespace

void LiveView::Bind(DefragWindow& window, std::function<std::int64_t()> cluster_bytes,
                    std::function<std::string()> image, std::string place, std::int64_t max_rate) {
  max_rate_ = max_rate;
  window_ = &window;
  cluster_bytes_ = std::move(cluster_bytes);
  image_ = std::move(image);
  place_ = std::move(place);
  fitted_clusters_ = 0;
}

void LiveView::FitMap(std::int64_t clusters) {
  const ScreenSize size = screen_.Size();
  if (size == fitted_ && clusters == fitted_clusters_) return;
  fitted_ = size;
  fitted_clusters_ = clusters;
  window_->Picdepartvolume.ResizeAtNextClear(MapWidthFor(clusters, GridOf(size).Places()));
}

void LiveView::Unbind() {
  if (window_ == nullptr) return;
  window_ = nullptr;
  shown_ = false;
  screen_.Release();
}

void LiveView::Draw(const ProgressState& progress, TimePoint now) {
  if (!at_work_since_) at_work_since_ = now;
  progress_ = progress;
  if (shown_ || now - *at_work_since_ >= kShowAfter) DrawFrame();
}

// False while the terminal belongs to somebody else.
bool LiveView::TakeScreen() {
  bool drawn = false;
  if (!screen_.Take(drawn)) return false;
  const ScreenSize size = screen_.Size();
  if (!drawn || size != size_) drawn_.clear();
  size_ = size;
  shown_ = true;
  return true;
}

void LiveView::DrawFrame() {
  if (!TakeScreen() || !screen_.Ready()) return;
  ScreenLines frame = Compose();
  frame.resize(static_cast<std::size_t>(std::max(size_.rows, 1)));
  std::string text;
  if (drawn_.empty()) {
    text = "\x1b[2J";
    drawn_.resize(frame.size());
  }
  for (std::size_t row = 0; row < frame.size(); ++row) {
    if (frame[row] == drawn_[row]) continue;
    text += "\x1b[" + std::to_string(row + 1) + ";1H" + frame[row] + "\x1b[K";
  }
  drawn_ = std::move(frame);
  if (!text.empty()) screen_.Send(text);
}

ScreenLines LiveView::Compose() const {
  if (window_->details.visible && !window_->temperature_warning.visible) {
    return ComposeDetails(window_->details, first_row_, question_, size_, screen_.look());
  }
  LiveState state;
  state.caption = window_->caption;
  state.image = image_ ? image_() : "";
  state.place = place_;
  state.map = window_->Picdepartvolume.shown();
  state.redrawing = window_->LblRedraw.fore_colour == activity_colour::kMoving;
  state.legend = CollectLegend(*window_);
  state.item = window_->etfich.caption;
  state.progress = progress_;
  const MoveStatistics& moved = window_->engine.movers.statistics;
  state.bytes_moved = (moved.clusters_moved + moved.clusters_in_hand) * cluster_bytes_();
  state.max_rate = max_rate_;
  state.temperature = window_->Label6.caption;
  state.message = message_;
  state.question = question_;
  state.warning = CurrentWarning();
  return ComposeMain(state, size_, screen_.look());
}

std::optional<WarningBox> LiveView::CurrentWarning() const {
  const HDDTempWarning& warning = window_->temperature_warning;
  if (!warning.visible) return std::nullopt;
  return WarningBox{
      .title = warning.caption,
      .temperature = warning.LblHDDTemp.caption,
      .text = warning.Label1.caption,
      .choices = {warning.Command3.caption, warning.Command2.caption, warning.Command1.caption}};
}

std::optional<RunCommand> LiveView::TakeCommand() {
  while (shown_) {
    const std::optional<Key> pressed = screen_.ReadKey(std::chrono::milliseconds(0));
    if (!pressed) break;
    message_.clear();
    if (ObeyInDetails(*pressed)) continue;
    switch (*pressed) {
      case 's':
        return RunCommand::Stop;
      case 'm':
        return RunCommand::RedrawMap;
      case 'q':
        return RunCommand::Exit;
      case 'd':
        first_row_ = 0;
        Raise(window_->Label4[1].click);
        if (!window_->details.visible) message_ = "There are details once the files are analyzed.";
        break;
      default:
        break;
    }
  }
  return std::nullopt;
}

void LiveView::Scroll(std::int64_t rows) {
  const std::int64_t last =
      std::ssize(window_->details.ListView1.rows()) - static_cast<std::int64_t>(DetailsRows(size_));
  first_row_ = static_cast<std::size_t>(std::clamp<std::int64_t>(
      static_cast<std::int64_t>(first_row_) + rows, 0, std::max<std::int64_t>(last, 0)));
}

// Stop stays Stop while the details are in front.
bool LiveView::ObeyInDetails(Key pressed) {
  FrmDetails& details = window_->details;
  if (!details.visible || pressed == 's') return false;
  const auto page = static_cast<std::int64_t>(DetailsRows(size_));
  const std::int64_t all = std::ssize(details.ListView1.rows());
  switch (pressed) {
    case '1':
    case '2':
    case '3': {
      Button* const buttons[] = {&details.Command1, &details.Command2, &details.Command3};
      buttons[pressed - '1']->Click();
      first_row_ = 0;
      break;
    }
    case key::kUp:
      Scroll(-1);
      break;
    case key::kDown:
      Scroll(1);
      break;
    case key::kPageUp:
      Scroll(-page);
      break;
    case key::kPageDown:
    case ' ':
      Scroll(page);
      break;
    case key::kHome:
      Scroll(-all);
      break;
    case key::kEnd:
      Scroll(all);
      break;
    case 'd':
    case 'q':
    case key::kEscape:
      details.Hide();
      break;
    default:
      break;
  }
  return true;
}

void LiveView::DropKeys() {
  while (shown_ && screen_.ReadKey(std::chrono::milliseconds(0))) {
  }
}

void LiveView::ObeyWarning(std::chrono::milliseconds wait) {
  DrawFrame();
  const std::optional<Key> pressed = screen_.ReadKey(wait);
  HDDTempWarning& warning = window_->temperature_warning;
  for (Button* button : {&warning.Command3, &warning.Command2, &warning.Command1}) {
    if (pressed && *pressed == AccessKey(button->caption.get())) return button->Click();
  }
}

BoxAnswer LiveView::Ask(const std::string& question, const PendingEvents& events,
                        unsigned interrupting) {
  question_ = question;
  std::optional<BoxAnswer> answer;
  while (!answer) {
    DrawFrame();
    if (events.load() & interrupting) {
      answer = BoxAnswer::Yes;
    } else if (const std::optional<Key> pressed = screen_.ReadKey(kKeyWait)) {
      if (*pressed == 'y' || *pressed == 'Y') answer = BoxAnswer::Yes;
      if (*pressed == 'n' || *pressed == 'N' || *pressed == key::kEscape) answer = BoxAnswer::No;
    }
  }
  question_.clear();
  return *answer;
}

}  // namespace vornalux
