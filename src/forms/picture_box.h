// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <vector>

#include "forms/controls.h"

namespace vornalux {

// A surface of pixels that keeps what was drawn. Drawing shows at the next Refresh() only. A new
// size is taken on by the next Clear(); until then the host shows the surface stretched.
class PictureBox : public Control {
 public:
  PictureBox(std::int32_t width, std::int32_t height, Colour back) : back_colour(back) {
    Resize(width, height);
  }

  const Colour back_colour;
  Event click;
  // Shows the surface; set by the host.
  std::function<void()> refreshed;

  std::int32_t width() const { return width_; }
  std::int32_t height() const { return height_; }
  Colour Pixel(std::int32_t x, std::int32_t y) const { return pixels_[Index(x, y)]; }

  void Resize(std::int32_t width, std::int32_t height) {
    width_ = next_width_ = std::max(width, 1);
    height_ = next_height_ = std::max(height, 1);
    pixels_.assign(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_),
                   back_colour);
  }
  void ResizeAtNextClear(std::int32_t width, std::int32_t height) {
    next_width_ = width;
    next_height_ = height;
  }
  void Clear() { Resize(next_width_, next_height_); }

  // A vertical line, one pixel wide, over the whole height. Nothing when x is off the surface.
  void DrawColumn(std::int64_t x, Colour colour) {
    if (x < 0 || x >= width_) return;
    for (std::int32_t y = 0; y < height_; ++y) {
      pixels_[Index(static_cast<std::int32_t>(x), y)] = colour;
    }
  }
  void Refresh() const {
    if (refreshed) refreshed();
  }

 private:
  std::size_t Index(std::int32_t x, std::int32_t y) const {
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
           static_cast<std::size_t>(x);
  }

  std::int32_t width_ = 1;
  std::int32_t height_ = 1;
  std::int32_t next_width_ = 1;
  std::int32_t next_height_ = 1;
  std::vector<Colour> pixels_;
};

}  // namespace vornalux
