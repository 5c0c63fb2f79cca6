// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/types.h"

namespace vornalux {

// An image in memory, one Colour a pixel. Whatever is drawn off it is left out.
class Raster {
 public:
  Raster(std::int32_t width, std::int32_t height, Colour background);

  std::int32_t width() const { return width_; }
  std::int32_t height() const { return height_; }
  Colour Pixel(std::int32_t x, std::int32_t y) const { return pixels_[Index(x, y)]; }

  void Fill(std::int32_t x, std::int32_t y, std::int32_t width, std::int32_t height, Colour colour);

  // Small print letters of `scale` pixels a dot, upper left corner at x, y. Returns the x behind
  // the text. Characters without a glyph leave a gap.
  std::int32_t Print(std::int32_t x, std::int32_t y, std::string_view text, std::int32_t scale,
                     Colour colour);
  static std::int32_t TextWidth(std::string_view text, std::int32_t scale);

 private:
  std::size_t Index(std::int32_t x, std::int32_t y) const {
    return static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
           static_cast<std::size_t>(x);
  }

  std::int32_t width_;
  std::int32_t height_;
  std::vector<Colour> pixels_;
};

}  // namespace vornalux
