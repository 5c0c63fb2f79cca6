// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/terminal/display/styled_line.h"
#include "host/terminal/live/map_grid.h"
#include "host/terminal/live/run_progress.h"
#include "host/terminal/live/screen.h"
#include "host/terminal/picture/map_image.h"
#include "ui/details_window.h"

namespace vornalux {

// The lines of a screen from the top; what is missing below is blank.
using ScreenLines = std::vector<std::string>;

// The temperature warning, a box in front of the map.
struct WarningBox {
  std::string title;
  std::string temperature;
  std::string text;
  std::vector<std::string> choices;  // captions of buttons
};

// The key of a button: the letter after the caption's "&", in lower case. 0 for none.
char AccessKey(std::string_view caption);

// What the main window shows at one moment.
struct LiveState {
  std::string caption;
  std::string image;  // of the volume at work
  std::string place;  // of it among several, "2 of 3"
  MapColumns map;
  bool redrawing = false;
  Legend legend;
  std::string item;  // the current file, or counters
  ProgressState progress;
  std::int64_t bytes_moved = 0;
  std::int64_t max_rate = 0;  // bytes per second; 0 for no limit
  std::string temperature;
  std::string message;  // the last one; empty for none
  std::optional<WarningBox> warning;
  std::string question;  // a box that waits for yes or no; empty for none
};

// The main window as a frame; the map has all the room that is left. A low screen loses what
// matters least: blanks, then the temperature, the help line, the legend.
ScreenLines ComposeMain(const LiveState& state, ScreenSize size, Look look);

// The places that the map has on a screen of this size, or nearly so.
MapGrid GridOf(ScreenSize size);

// The details window as a frame, its list from row `first` on. The question stands below it.
ScreenLines ComposeDetails(const FrmDetails& details, std::size_t first,
                           const std::string& question, ScreenSize size, Look look);

// Rows of the list that a details frame of this size has.
std::size_t DetailsRows(ScreenSize size);

}  // namespace vornalux
