// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/live/map_grid.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "engine/run_view.h"

namespace vornalux {
namespace {

// From what says least to what says most, after the shades of green.
struct Layer {
  Colour colour;
  const char* symbol;
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

// What can be read on the colour.
Colour InkOn(Colour paper) {
  const auto part = [paper](unsigned shift) { return static_cast<int>((paper >> shift) & 0xFF); };
  const int brightness = 299 * part(0) + 587 * part(8) + 114 * part(16);
  return brightness > 128'000 ? 0x000000 : 0xFFFFFF;
}

void AddPlace(StyledLine& line, Colour colour, Look look) {
  if (look.depth == ColourDepth::None) {
    line.AddCell(Symbol(colour, look.charset), std::nullopt, std::nullopt);
  } else if (const std::size_t rank = Rank(colour); rank > 0) {
    line.AddCell(kLayers[rank - 1].symbol, InkOn(colour), colour);
  } else {
    line.AddCell(" ", std::nullopt, colour);
  }
}

struct LegendPiece {
  const LegendEntry* entry;  // null for a caption alone
  const std::string* caption;

  int Boxes() const { return entry == nullptr ? 0 : entry->has_inner ? 2 : 1; }
  // Without the blanks behind it.
  int Width(Look look) const {
    const int box = look.depth == ColourDepth::None ? 1 : 2;
    const int boxes = Boxes() * box;
    return boxes + (boxes > 0 ? 1 : 0) + static_cast<int>(caption->size());
  }
};

}  // namespace

void AddMapRow(StyledLine& line, const MapColumns& map, MapGrid grid, int row, Look look) {
  if (map.empty() || grid.columns < 1) return;
  const auto places = static_cast<std::size_t>(grid.Places());
  const std::size_t begin = static_cast<std::size_t>(row) * static_cast<std::size_t>(grid.columns);
  const int cells = std::min(grid.columns, line.Room());
  for (std::size_t i = begin; i < begin + static_cast<std::size_t>(std::max(cells, 0)); ++i) {
    const std::size_t first = i * map.size() / places;
    const std::size_t end = std::max(first + 1, (i + 1) * map.size() / places);
    AddPlace(line, MostTelling(std::span(map).subspan(first, end - first)), look);
  }
}

void AddLegendBox(StyledLine& line, Colour colour, Look look) {
  AddPlace(line, colour, look);
  if (look.depth != ColourDepth::None) line.AddCell(" ", std::nullopt, colour);
}

std::vector<StyledLine> LegendLines(const Legend& legend, int margin, int columns, Look look) {
  std::vector<LegendPiece> pieces;
  for (const LegendEntry& entry : legend.density) pieces.push_back({&entry, &entry.caption});
  const std::size_t density = pieces.size();
  pieces.push_back({nullptr, &legend.candidates_caption});
  for (const LegendEntry& entry : legend.candidates) pieces.push_back({&entry, &entry.caption});
  int all = margin - 2;
  for (const LegendPiece& piece : pieces) all += piece.Width(look) + 2;
  std::vector<StyledLine> lines;
  for (std::size_t i = 0; i < pieces.size(); ++i) {
    const LegendPiece& piece = pieces[i];
    const bool next = i == density && all > columns;
    if (lines.empty() || next || lines.back().Room() < piece.Width(look)) {
      lines.emplace_back(look, columns).AddBlanks(margin);
    }
    StyledLine& line = lines.back();
    if (piece.entry != nullptr) {
      AddLegendBox(line, piece.entry->box, look);
      if (piece.entry->has_inner) AddLegendBox(line, piece.entry->inner, look);
      line.AddBlanks(1);
    }
    line.Add(*piece.caption).AddBlanks(2);
  }
  return lines;
}

}  // namespace vornalux
