// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "host/windows/system_headers.h"

struct ITaskbarList3;

namespace vornalux {

// How far a run is, on its window's button in the taskbar, where the system has that.
class TaskbarProgress {
 public:
  TaskbarProgress() = default;
  ~TaskbarProgress();
  TaskbarProgress(const TaskbarProgress&) = delete;
  TaskbarProgress& operator=(const TaskbarProgress&) = delete;

  static constexpr int kNone = -1;
  // Percent, or kNone for a button as any other. Cheap where nothing has changed.
  void Show(HWND window, int percent);

 private:
  ITaskbarList3* list_ = nullptr;
  bool tried_ = false;
  int shown_ = kNone;
};

}  // namespace vornalux
