// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <vector>

#include "host/windows/system_headers.h"

namespace vornalux {

// What a dialog's controls do when it is made larger than it was designed. They never shrink below
// their design.
class Anchors {
 public:
  enum Way : unsigned { kMovesRight = 1, kGrowsRight = 2, kMovesDown = 4, kGrowsDown = 8 };

  // To be made while the dialog has its first size.
  explicit Anchors(HWND dialog);

  // Height, where it is not the one on the screen: of a combo box with its list.
  void Add(int id, unsigned ways, LONG height = 0);
  // After the dialog has a new size.
  void Arrange() const;
  // The dialog must not get smaller than it is now.
  void TakeLeastSize();
  SIZE LeastSize() const { return frame_; }
  void LimitSize(MINMAXINFO& limits) const;

 private:
  struct Anchored {
    int id;
    unsigned ways;
    RECT area;  // in the dialog, pixels
  };

  HWND dialog_;
  SIZE client_;
  SIZE frame_;
  std::vector<Anchored> controls_;
};

}  // namespace vornalux
