// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "host/terminal/live/run_progress.h"
#include "host/terminal/user/console.h"

namespace vornalux {

// The window's title while it is doing something; else it names the volume only.
bool IsPhase(const std::string& caption);

// Progress as lines that stay readable in a log: what is being done, and now and then how far.
class PlainProgress {
 public:
  explicit PlainProgress(Console& console) : console_(console) {}

  // The window's title has changed.
  void ShowPhase(const std::string& caption, TimePoint now);
  void Show(const ProgressState& state, TimePoint now);

 private:
  Console& console_;
  int percent_ = 0;
  TimePoint printed_;
};

}  // namespace vornalux
