// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/ui/anchors.h"

#include <algorithm>

namespace vornalux {

Anchors::Anchors(HWND dialog) : dialog_(dialog) {
  TakeLeastSize();
  // As designed: a menu that takes more than a row has taken it from the dialog.
  RECT around = {};
  AdjustWindowRectEx(&around, static_cast<DWORD>(GetWindowLongW(dialog, GWL_STYLE)),
                     GetMenu(dialog) != nullptr,
                     static_cast<DWORD>(GetWindowLongW(dialog, GWL_EXSTYLE)));
  client_ = {frame_.cx - (around.right - around.left), frame_.cy - (around.bottom - around.top)};
}

void Anchors::Add(int id, unsigned ways, LONG height) {
  RECT area;
  GetWindowRect(GetDlgItem(dialog_, id), &area);
  MapWindowPoints(nullptr, dialog_, reinterpret_cast<POINT*>(&area), 2);
  if (height != 0) area.bottom = area.top + height;
  controls_.push_back({id, ways, area});
}

void Anchors::Arrange() const {
  RECT now;
  GetClientRect(dialog_, &now);
  const LONG right = std::max<LONG>(now.right - client_.cx, 0);
  const LONG down = std::max<LONG>(now.bottom - client_.cy, 0);
  HDWP moves = BeginDeferWindowPos(static_cast<int>(controls_.size()));
  for (const Anchored& control : controls_) {
    const auto by = [&control](unsigned way, LONG change) {
      return (control.ways & way) != 0 ? change : 0;
    };
    const RECT& area = control.area;
    const HWND window = GetDlgItem(dialog_, control.id);
    const int x = area.left + by(kMovesRight, right), y = area.top + by(kMovesDown, down);
    const int width = area.right - area.left + by(kGrowsRight, right);
    const int height = area.bottom - area.top + by(kGrowsDown, down);
    // What was painted stays behind: it may show a neighbour that lay over it.
    constexpr UINT kHow = SWP_NOZORDER | SWP_NOACTIVATE | SWP_NOCOPYBITS;
    if (moves != nullptr) moves = DeferWindowPos(moves, window, nullptr, x, y, width, height, kHow);
  }
  if (moves != nullptr) EndDeferWindowPos(moves);
  RedrawWindow(dialog_, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_ALLCHILDREN);
}

void Anchors::TakeLeastSize() {
  RECT area;
  GetWindowRect(dialog_, &area);
  frame_ = {area.right - area.left, area.bottom - area.top};
}

void Anchors::LimitSize(MINMAXINFO& limits) const {
  limits.ptMinTrackSize.x = frame_.cx;
  limits.ptMinTrackSize.y = frame_.cy;
}

}  // namespace vornalux
