// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/live/map_strip.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "engine/run_view.h"

namespace vornalux {
namespace {

constexpr std::string_view kLeftHalf = "\xE2\x96\x8C";

// From what says least to what says most, after the shades of green.
struct Layer {
  Colour colour;
  const char* symbol;  // where there are no colours
};
constexpr std::array kLayers = {Layer{map_colour::kMftZone, "z"}, Layer{map_colour::kMft, "M"},
                                Layer{map_colour::kSystemArea, "S"},
                                Layer{map_colour::kOptimize, "O"}, Layer{map_colour::kDefrag, "D"}};

// 0 for a shade of how full, else 1 + the layer.
std::size_t Rank(Colour colour) {
  for (std::size_t i = 0; i < kLayers.size(); ++i) {
    if (kLayers[i].colour == colour) return i + 1;
  }
  return 0;
}

Colour Mean(std::span<const Colour> colours) {
  Colour mean = 0;
  for (unsigned shift = 0; shift < 24; shift += 8) {
    std::uint64_t sum = 0;
    for (const Colour colour : colours) sum += (colour >> shift) & 0xFF;
    mean |= static_cast<Colour>(sum / colours.size()) << shift;
  }
  return mean;
}

Colour MostTelling(std::span<const Colour> colours) {
  const auto by_rank = [](Colour a, Colour b) { return Rank(a) < Rank(b); };
  const Colour most = *std::max_element(colours.begin(), colours.end(), by_rank);
  return Rank(most) == 0 ? Mean(colours) : most;
}

std::string_view Symbol(Colour colour, Charset charset) {
  if (const std::size_t rank = Rank(colour); rank > 0) return kLayers[rank - 1].symbol;
  constexpr std::array<std::string_view, 5> kBlocks = {"\xC2\xB7", "\xE2\x96\x91", "\xE2\x96\x92",
                                                       "\xE2\x96\x93", "\xE2\x96\x88"};
  constexpr std::array<std::string_view, 5> kSigns = {".", "-", "+", "*", "#"};
  const auto green = [](Colour c) { return static_cast<double>((c >> 8) & 0xFF); };
  const double share = (green(colour) - green(map_colour::kFree)) /
                       (green(map_colour::kUsed) - green(map_colour::kFree));
  // Only a wholly free or wholly used place looks like one.
  const double inner = 1 + std::clamp(share, 0.0, 0.999) * 3;
  const std::size_t level = share <= 0 ? 0 : share >= 1 ? 4 : static_cast<std::size_t>(inner);
  return charset == Charset::Utf8 ? kBlocks[level] : kSigns[level];
}

}  // namespace

void AddMap(StyledLine& line, const MapColumns& columns, int cells, Look look) {
  cells = std::min(cells, line.Room());
  if (columns.empty() || cells < 1) return;
  const bool halves = look.depth != ColourDepth::None && look.charset == Charset::Utf8;
  const std::size_t places = static_cast<std::size_t>(cells) * (halves ? 2 : 1);
  const auto place = [&](std::size_t i) {
    const std::size_t first = i * columns.size() / places;
    const std::size_t end = std::max(first + 1, (i + 1) * columns.size() / places);
    return MostTelling(std::span(columns).subspan(first, end - first));
  };
  for (std::size_t i = 0; i < places; i += halves ? 2 : 1) {
    const Colour colour = place(i);
    if (look.depth == ColourDepth::None) {
      line.AddCell(Symbol(colour, look.charset), std::nullopt, std::nullopt);
    } else if (const Colour right = halves ? place(i + 1) : colour; right != colour) {
      line.AddCell(kLeftHalf, colour, right);
    } else {
      line.AddCell(" ", std::nullopt, colour);
    }
  }
}

void AddLegendBox(StyledLine& line, Colour colour, Look look) {
  if (look.depth == ColourDepth::None) {
    line.AddCell(Symbol(colour, look.charset), std::nullopt, std::nullopt);
  } else {
    line.AddCell(" ", std::nullopt, colour).AddCell(" ", std::nullopt, colour);
  }
}

}  // namespace vornalux
