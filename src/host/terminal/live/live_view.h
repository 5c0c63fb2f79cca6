// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "host/terminal/live/live_frame.h"
#include "host/terminal/live/pending_events.h"
#include "host/terminal/live/screen.h"
#include "platform/desktop.h"
#include "ui/defrag_window.h"

namespace vornalux {

// What a key asks of the main window.
enum class RunCommand { Stop, RedrawMap, Exit };

// The main window on a whole terminal, with its details window.
class LiveView {
 public:
  // The screen outlives the view.
  explicit LiveView(Screen& screen) : screen_(screen) {}

  // cluster_bytes tells the size of a cluster of the volume at work, image its name, which stands
  // at `place` among several; max_rate: what of it may be moved in a second, 0 for no limit. The
  // window outlives the use.
  void Bind(DefragWindow& window, std::function<std::int64_t()> cluster_bytes,
            std::function<std::string()> image, std::string place, std::int64_t max_rate);
  // Gives the terminal back.
  void Unbind();

  // The terminal shows the view.
  bool Shown() const { return shown_; }

  // Shows the window as it is now, once it has been at work for a moment: what is over at once
  // does not flash up. Does nothing while the terminal does not keep up.
  void Draw(const ProgressState& progress, TimePoint now);

  // From its next drawing on the window's map has as many columns as the screen has places, or
  // fewer where the volume has not as many clusters.
  void FitMap(std::int64_t clusters);

  // The next key that is for the main window; keys of the details window are obeyed on the way.
  std::optional<RunCommand> TakeCommand();

  // A line that stays until the next key.
  void ShowMessage(const std::string& text) { message_ = text; }

  // Forgets what was typed so far: it was not meant for what comes now.
  void DropKeys();
  // Shows the temperature warning in front of the window and presses the button of a key, waited
  // for at most this long.
  void ObeyWarning(std::chrono::milliseconds wait);

  // Waits for yes or no. Yes as soon as any of the events is set.
  BoxAnswer Ask(const std::string& question, const PendingEvents& events, unsigned interrupting);

 private:
  bool TakeScreen();
  void DrawFrame();
  ScreenLines Compose() const;
  std::optional<WarningBox> CurrentWarning() const;
  bool ObeyInDetails(Key pressed);
  void Scroll(std::int64_t rows);

  Screen& screen_;
  DefragWindow* window_ = nullptr;
  std::function<std::int64_t()> cluster_bytes_;
  std::function<std::string()> image_;
  std::string place_;
  std::int64_t max_rate_ = 0;
  ScreenSize fitted_ = {0, 0};  // the size that the map was fitted to
  std::int64_t fitted_clusters_ = 0;
  ProgressState progress_;
  std::optional<TimePoint> at_work_since_;
  bool shown_ = false;
  ScreenSize size_;
  ScreenLines drawn_;
  std::size_t first_row_ = 0;  // of the details list
  std::string message_;
  std::string question_;
};

}  // namespace vornalux
