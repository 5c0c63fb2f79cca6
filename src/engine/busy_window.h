// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "engine/run_view.h"

namespace vornalux {

// Shows the window as busy for as long as it lives.
class BusyWindow {
 public:
  explicit BusyWindow(RunView& view) : view_(view) { view_.EnterBusy(); }
  ~BusyWindow() { view_.EnterIdle(); }
  BusyWindow(const BusyWindow&) = delete;
  BusyWindow& operator=(const BusyWindow&) = delete;

 private:
  RunView& view_;
};

}  // namespace vornalux
