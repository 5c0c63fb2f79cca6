// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/picture/raster.h"

#include <algorithm>
#include <array>

namespace vornalux {
namespace {

constexpr std::int32_t kGlyphWidth = 5;
constexpr std::int32_t kGlyphHeight = 9;  // two rows below the line for descenders
constexpr std::int32_t kAdvance = kGlyphWidth + 1;

struct Glyph {
  char character;
  std::array<std::string_view, kGlyphHeight> rows;
};

// Only what the legend says.
constexpr std::array kGlyphs = {
    Glyph{'a', {"", "", " ###", "    #", " ####", "#   #", " ####", "", ""}},
    Glyph{'c', {"", "", " ### ", "#    ", "#    ", "#   #", " ### ", "", ""}},
    Glyph{'d', {"    #", "    #", " ## #", "#  ##", "#   #", "#   #", " ####", "", ""}},
    Glyph{'e', {"", "", " ### ", "#   #", "#####", "#    ", " ### ", "", ""}},
    Glyph{'f', {"  ## ", " #  #", " #   ", "###  ", " #   ", " #   ", " #   ", "", ""}},
    Glyph{'g', {"", "", " ####", "#   #", "#   #", "#   #", " ####", "    #", " ### "}},
    Glyph{'i', {"  #  ", "", " ##  ", "  #  ", "  #  ", "  #  ", " ### ", "", ""}},
    Glyph{'m', {"", "", "## # ", "# # #", "# # #", "# # #", "# # #", "", ""}},
    Glyph{'n', {"", "", "# ## ", "##  #", "#   #", "#   #", "#   #", "", ""}},
    Glyph{'o', {"", "", " ### ", "#   #", "#   #", "#   #", " ### ", "", ""}},
    Glyph{'p', {"", "", "#### ", "#   #", "#   #", "#   #", "#### ", "#    ", "#    "}},
    Glyph{'r', {"", "", "# ## ", "##  #", "#    ", "#    ", "#    ", "", ""}},
    Glyph{'s', {"", "", " ####", "#    ", " ### ", "    #", "#### ", "", ""}},
    Glyph{'t', {" #   ", " #   ", "###  ", " #   ", " #   ", " #  #", "  ## ", "", ""}},
    Glyph{'u', {"", "", "#   #", "#   #", "#   #", "#  ##", " ## #", "", ""}},
    Glyph{'y', {"", "", "#   #", "#   #", "#   #", "#   #", " ####", "    #", " ### "}},
    Glyph{'z', {"", "", "#####", "   # ", "  #  ", " #   ", "#####", "", ""}},
    Glyph{'M', {"#   #", "## ##", "# # #", "# # #", "#   #", "#   #", "#   #", "", ""}},
    Glyph{'F', {"#####", "#    ", "#    ", "#### ", "#    ", "#    ", "#    ", "", ""}},
    Glyph{'T', {"#####", "  #  ", "  #  ", "  #  ", "  #  ", "  #  ", "  #  ", "", ""}},
    Glyph{'(', {"   # ", "  #  ", " #   ", " #   ", " #   ", "  #  ", "   # ", "", ""}},
    Glyph{')', {" #   ", "  #  ", "   # ", "   # ", "   # ", "  #  ", " #   ", "", ""}},
    Glyph{':', {"", "", "  #  ", "", "", "", "  #  ", "", ""}},
};

}  // namespace

Raster::Raster(std::int32_t width, std::int32_t height, Colour background)
    : width_(std::max(width, 1)),
      height_(std::max(height, 1)),
      pixels_(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_), background) {}

void Raster::Fill(std::int32_t x, std::int32_t y, std::int32_t width, std::int32_t height,
                  Colour colour) {
  const std::int32_t right = std::min(x + width, width_);
  const std::int32_t bottom = std::min(y + height, height_);
  for (std::int32_t row = std::max(y, 0); row < bottom; ++row) {
    for (std::int32_t column = std::max(x, 0); column < right; ++column) {
      pixels_[Index(column, row)] = colour;
    }
  }
}

std::int32_t Raster::Print(std::int32_t x, std::int32_t y, std::string_view text,
                           std::int32_t scale, Colour colour) {
  for (const char c : text) {
    const auto glyph = std::find_if(kGlyphs.begin(), kGlyphs.end(),
                                    [c](const Glyph& each) { return each.character == c; });
    if (glyph != kGlyphs.end()) {
      for (std::int32_t row = 0; row < kGlyphHeight; ++row) {
        const std::string_view dots = glyph->rows[static_cast<std::size_t>(row)];
        for (std::size_t dot = 0; dot < dots.size(); ++dot) {
          if (dots[dot] != '#') continue;
          Fill(x + static_cast<std::int32_t>(dot) * scale, y + row * scale, scale, scale, colour);
        }
      }
    }
    x += kAdvance * scale;
  }
  return x;
}

std::int32_t Raster::TextWidth(std::string_view text, std::int32_t scale) {
  return static_cast<std::int32_t>(text.size()) * kAdvance * scale;
}

}  // namespace vornalux
