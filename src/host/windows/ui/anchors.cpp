// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/ui/anchors.h"

#include <algorithm>

namespace vornalux {

Anchors::Anchors(HWND dialog) : dialog_(dialog) {
  RECT area;
  GetClientRect(dialog, &area);
  client_ = {area.right, area.bottom};
  GetWindowRect(dialog, &area);
  frame_ = {area.right - area.left, area.bottom - area.top};
}

void Anchors::Add(int id, unsigned ways) {
  RECT area;
  GetWindowRect(GetDlgItem(dialog_, id), &area);
  MapWindowPoints(nullptr, dialog_, reinterpret_cast<POINT*>(&area), 2);
  controls_.push_back({id, ways, area});
}

void Anchors::Arrange() const {
  RECT now;
  GetClientRect(dialog_, &now);
  const LONG right = std::max<LONG>(now.right - client_.cx, 0);
  const LONG down = std::max<LONG>(now.bottom - client_.cy, 0);
  for (const Anchored& control : controls_) {
    const auto by = [&control](unsigned way, LONG change) {
      return (control.ways & way) != 0 ? change : 0;
    };
    const RECT& area = control.area;
    MoveWindow(GetDlgItem(dialog_, control.id), area.left + by(kMovesRight, right),
               area.top + by(kMovesDown, down), area.right - area.left + by(kGrowsRight, right),
               area.bottom - area.top + by(kGrowsDown, down), TRUE);
  }
}

void Anchors::LimitSize(MINMAXINFO& limits) const {
  limits.ptMinTrackSize.x = frame_.cx;
  limits.ptMinTrackSize.y = frame_.cy;
}

}  // namespace vornalux
