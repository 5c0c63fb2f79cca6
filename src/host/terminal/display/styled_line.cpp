// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/display/styled_line.h"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace vornalux {
namespace {

constexpr const char* kPlain = "\x1b[0m";

// The nearest of the 6 * 6 * 6 colours that terminals of 256 have from 16 on.
int CubeIndex(Colour colour) {
  constexpr std::array<int, 6> kLevels = {0, 95, 135, 175, 215, 255};
  const auto nearest = [&](unsigned shift) {
    const int value = static_cast<int>((colour >> shift) & 0xFF);
    int best = 0;
    for (int i = 1; i < 6; ++i) {
      const auto distance = [&](int level) {
        return std::abs(kLevels[static_cast<std::size_t>(level)] - value);
      };
      if (distance(i) < distance(best)) best = i;
    }
    return best;
  };
  return 16 + 36 * nearest(0) + 6 * nearest(8) + nearest(16);
}

std::string ColourCode(int target, Colour colour, ColourDepth depth) {
  std::string code = std::to_string(target);
  if (depth == ColourDepth::Indexed) return code + ";5;" + std::to_string(CubeIndex(colour));
  code += ";2";
  for (unsigned shift = 0; shift < 24; shift += 8) {
    code += ";" + std::to_string((colour >> shift) & 0xFF);
  }
  return code;
}

}  // namespace

std::optional<ColourDepth> DepthOf(const char* term, const char* colorterm) {
  const std::string_view type = term != nullptr ? term : "";
  const std::string_view colours = colorterm != nullptr ? colorterm : "";
  if (type.empty() || type == "dumb") return std::nullopt;
  if (colours == "truecolor" || colours == "24bit" || type.ends_with("-direct")) {
    return ColourDepth::Full;
  }
  if (type.find("256color") != std::string_view::npos) return ColourDepth::Indexed;
  for (const char* known :
       {"xterm", "linux", "tmux", "screen", "rxvt", "alacritty", "foot", "konsole", "putty"}) {
    if (type.starts_with(known) && !type.ends_with("-mono")) return ColourDepth::Indexed;
  }
  return ColourDepth::None;
}

void StyledLine::Style(const std::string& style) {
  if (style == style_) return;
  if (!style_.empty()) line_ += kPlain;
  line_ += style;
  style_ = style;
}

StyledLine& StyledLine::AddStyled(const char* on, std::string_view text) {
  Style(on);
  const std::string fitting = CutText(text, room_, look_.charset);
  line_ += fitting;
  room_ -= DisplayWidth(fitting, look_.charset);
  return *this;
}

StyledLine& StyledLine::Add(std::string_view text) { return AddStyled("", text); }
StyledLine& StyledLine::AddStrong(std::string_view text) { return AddStyled("\x1b[1m", text); }
StyledLine& StyledLine::AddReverse(std::string_view text) { return AddStyled("\x1b[7m", text); }
StyledLine& StyledLine::AddDim(std::string_view text) { return AddStyled("\x1b[2m", text); }

StyledLine& StyledLine::AddShortened(std::string_view text) {
  return Add(ShortenedText(text, std::max(room_, 0), look_.charset));
}

StyledLine& StyledLine::AddCell(std::string_view symbol, std::optional<Colour> ink,
                                std::optional<Colour> paper) {
  if (room_ < 1) return *this;
  std::string style;
  if (look_.depth != ColourDepth::None && (ink || paper)) {
    style = "\x1b[";
    if (ink) style += ColourCode(38, *ink, look_.depth);
    if (ink && paper) style += ";";
    if (paper) style += ColourCode(48, *paper, look_.depth);
    style += "m";
  }
  Style(style);
  line_ += symbol;
  --room_;
  return *this;
}

StyledLine& StyledLine::AddBlanks(int count) {
  Style("");
  count = std::clamp(count, 0, std::max(room_, 0));
  line_.append(static_cast<std::size_t>(count), ' ');
  room_ -= count;
  return *this;
}

std::string StyledLine::Finish() {
  Style("");
  return line_;
}

}  // namespace vornalux
