// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <span>
#include <utility>
#include <vector>

#include "forms/controls.h"

namespace vornalux {

// Columns of a picture, the end excluded.
struct ColumnRange {
  std::int32_t first = 0;
  std::int32_t end = 0;

  bool Empty() const { return first >= end; }
};

// A picture of upright lines, each one pixel wide and of a single colour, so that however high it
// is shown, it costs one row. Drawing shows at the next Refresh() only. A new width is taken on by
// the next Clear(); until then the host shows the picture stretched.
class PictureBox : public Control {
 public:
  PictureBox(std::int32_t width, Colour back) : back_colour(back) { Resize(width); }

  const Colour back_colour;
  Event click;
  // Shows the columns that look otherwise than the last time, in ascending order and apart; set by
  // the host.
  std::function<void(std::span<const ColumnRange>)> refreshed;

  std::int32_t width() const { return static_cast<std::int32_t>(columns_.size()); }
  const std::vector<Colour>& columns() const { return columns_; }

  // As they were at the last Refresh(), perhaps of another width: what the user is to see.
  const std::vector<Colour>& shown() const { return shown_; }

  void Resize(std::int32_t width) {
    next_width_ = std::max(width, 1);
    Clear();
    shown_ = columns_;
  }
  void ResizeAtNextClear(std::int32_t width) { next_width_ = std::max(width, 1); }
  bool ResizePending() const { return next_width_ != width(); }

  void Clear() {
    columns_.assign(static_cast<std::size_t>(next_width_), back_colour);
    drawn_ = {0, width()};
  }

  // Nothing when x is off the picture.
  void DrawColumn(std::int64_t x, Colour colour) {
    if (x < 0 || x >= width()) return;
    const auto column = static_cast<std::int32_t>(x);
    columns_[static_cast<std::size_t>(x)] = colour;
    drawn_ = drawn_.Empty()
                 ? ColumnRange{column, column + 1}
                 : ColumnRange{std::min(drawn_.first, column), std::max(drawn_.end, column + 1)};
  }
  void Refresh() {
    const ColumnRange drawn = std::exchange(drawn_, {});
    const std::vector<ColumnRange> others = TakeChanges(drawn);
    if (refreshed) refreshed(others);
  }

 private:
  // A picture of another width is another picture.
  std::vector<ColumnRange> TakeChanges(ColumnRange drawn) {
    if (shown_.size() != columns_.size()) {
      shown_ = columns_;
      return {{0, width()}};
    }
    std::vector<ColumnRange> others;
    for (std::int32_t x = drawn.first; x < drawn.end; ++x) {
      const auto at = static_cast<std::size_t>(x);
      if (std::exchange(shown_[at], columns_[at]) == columns_[at]) continue;
      if (others.empty() || others.back().end != x) others.push_back({x, x});
      others.back().end = x + 1;
    }
    return others;
  }

  std::int32_t next_width_ = 1;
  std::vector<Colour> columns_;
  std::vector<Colour> shown_;
  ColumnRange drawn_;  // since the last Refresh()
};

}  // namespace vornalux
