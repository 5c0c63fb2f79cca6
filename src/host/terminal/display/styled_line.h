// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/terminal/display/display_text.h"
#include "platform/types.h"

namespace vornalux {

enum class ColourDepth { None, Indexed, Full };  // no colour, 256 of them, 24 bits

// What a terminal can show.
struct Look {
  Charset charset = Charset::Ascii;
  ColourDepth depth = ColourDepth::None;
};

// The look by what the environment's TERM and COLORTERM say; either may be null. Nothing for a
// terminal that cannot place its cursor.
std::optional<ColourDepth> DepthOf(const char* term, const char* colorterm);

// One line of a screen, made from left to right with attributes. What does not fit is left out, so
// that no line ever breaks.
class StyledLine {
 public:
  StyledLine(Look look, int columns) : look_(look), room_(columns) {}

  int Room() const { return room_; }

  // Text that is made printable first and cut at the end of the line.
  StyledLine& Add(std::string_view text);
  StyledLine& AddStrong(std::string_view text);
  StyledLine& AddReverse(std::string_view text);
  StyledLine& AddDim(std::string_view text);
  // The same with its middle left out where it is too long.
  StyledLine& AddShortened(std::string_view text);
  // A trusted symbol of one column, in colours where there are any.
  StyledLine& AddCell(std::string_view symbol, std::optional<Colour> ink,
                      std::optional<Colour> paper);
  StyledLine& AddBlanks(int count);

  // The line with its attributes switched off at the end.
  std::string Finish();

 private:
  StyledLine& AddStyled(const char* on, std::string_view text);
  void Style(const std::string& style);

  Look look_;
  int room_;
  std::string style_;  // in force, as an escape sequence; empty for none
  std::string line_;
};

}  // namespace vornalux
