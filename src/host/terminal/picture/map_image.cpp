// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/picture/map_image.h"

#include <png.h>

#include <algorithm>
#include <stdexcept>

namespace vornalux {
namespace {

constexpr Colour kBackground = 0x20150F;
constexpr Colour kText = 0xE5DCD2;
constexpr std::int32_t kMapWidth = 800;
constexpr std::int32_t kMargin = 12;
constexpr std::int32_t kBox = 16;
constexpr std::int32_t kGap = 8;
constexpr std::int32_t kTextScale = 1;
constexpr std::int32_t kTextDrop = 4;  // from the box's top to the letters'

// Of a square: more of them are smaller.
std::int32_t SquareFor(std::size_t columns) {
  return columns <= 800 ? 20 : columns <= 1600 ? 16 : columns <= 6400 ? 8 : 4;
}

// Within a square; the corner up on the left keeps its colour.
void DrawPattern(Raster& raster, std::int32_t x, std::int32_t y, std::int32_t size, Colour colour) {
  const std::int32_t thick = std::max(size / 8, 1);
  const std::int32_t inner = size - 2 * thick;
  const Colour ink =
      colour == map_colour::kDefrag || colour == map_colour::kOptimize ? 0xFFFFFF : 0;
  if (colour == map_colour::kDefrag) {  // a cross
    for (std::int32_t i = 0; i < inner; ++i) {
      raster.Fill(x + thick + i, y + thick + i, thick, thick, ink);
      raster.Fill(x + thick + inner - 1 - i, y + thick + i, thick, thick, ink);
    }
  } else if (colour == map_colour::kOptimize) {  // a line across
    raster.Fill(x + thick, y + (size - thick) / 2, inner, thick, ink);
  } else if (colour == map_colour::kSystemArea) {  // an upright line
    raster.Fill(x + (size - thick) / 2, y + thick, thick, inner, ink);
  } else if (colour == map_colour::kMft) {  // a block
    raster.Fill(x + size / 4, y + size / 4, (size + 1) / 2, (size + 1) / 2, ink);
  } else if (colour == map_colour::kMftZone) {  // a dot
    raster.Fill(x + (size - thick) / 2, y + (size - thick) / 2, thick, thick, ink);
  }
}

std::int32_t DrawEntry(Raster& raster, std::int32_t x, std::int32_t y, const LegendEntry& entry) {
  const auto box = [&](Colour colour) {
    raster.Fill(x, y, kBox, kBox, colour);
    DrawPattern(raster, x, y, kBox, colour);
    x += kBox;
  };
  box(entry.box);
  if (entry.has_inner) box(entry.inner);
  return raster.Print(x + kGap, y + kTextDrop, entry.caption, kTextScale, kText) + 2 * kGap;
}

std::int32_t EntryWidth(const LegendEntry& entry) {
  return (entry.has_inner ? 2 : 1) * kBox + 3 * kGap + Raster::TextWidth(entry.caption, kTextScale);
}

}  // namespace

Legend CollectLegend(const DefragWindow& window) {
  const auto plain = [](const Shape& box, const Label& caption) {
    return LegendEntry{box.fill_colour, false, 0, caption.caption};
  };
  Legend legend;
  legend.density = {plain(window.Shape2[1], window.Label4[0]),
                    plain(window.Shape2[0], window.Label1[0]),
                    plain(window.Shape2[5], window.Label1[1])};
  legend.density.back().has_inner = true;
  legend.density.back().inner = window.Shape4.fill_colour;
  legend.candidates_caption = window.Label5.caption;
  for (std::size_t i = 0; i < 3; ++i) {
    legend.candidates.push_back(plain(window.Shape2[2 + i], window.Label4[1 + i]));
  }
  return legend;
}

std::int32_t MapWidthFor(std::int64_t clusters, std::int64_t places) {
  const std::int64_t bytes = std::max<std::int64_t>(clusters, 0) / 8 + 1;
  places = std::max<std::int64_t>(places, 1);
  // One byte for each column leaves gaps in what is painted cluster by cluster.
  constexpr std::int64_t kFewBytes = 512;
  const std::int64_t least = bytes > kFewBytes ? 2 : 1;
  const std::int64_t each = std::max((bytes + places - 1) / places, least);
  return static_cast<std::int32_t>(bytes / each);
}

Raster DrawMapWithLegend(const MapColumns& columns, const Legend& legend) {
  std::int32_t legend_width = Raster::TextWidth(legend.candidates_caption, kTextScale) + 2 * kGap;
  for (const LegendEntry& entry : legend.density) legend_width += EntryWidth(entry);
  for (const LegendEntry& entry : legend.candidates) legend_width += EntryWidth(entry);
  const std::int32_t square = SquareFor(columns.size());
  const std::int32_t in_row = kMapWidth / square;
  const std::int32_t rows = (static_cast<std::int32_t>(columns.size()) + in_row - 1) / in_row;
  const std::int32_t height = rows * square;

  Raster raster(std::max(kMapWidth, legend_width) + 2 * kMargin, height + kBox + 3 * kMargin,
                kBackground);
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const auto place = static_cast<std::int32_t>(i);
    const std::int32_t left = kMargin + place % in_row * square;
    const std::int32_t top = kMargin + place / in_row * square;
    // What lies between them is the background.
    raster.Fill(left, top, square - 1, square - 1, columns[i]);
    DrawPattern(raster, left, top, square - 1, columns[i]);
  }
  const std::int32_t y = 2 * kMargin + height;
  std::int32_t x = kMargin;
  for (const LegendEntry& entry : legend.density) x = DrawEntry(raster, x, y, entry);
  x = raster.Print(x, y + kTextDrop, legend.candidates_caption, kTextScale, kText) + 2 * kGap;
  for (const LegendEntry& entry : legend.candidates) x = DrawEntry(raster, x, y, entry);
  return raster;
}

std::vector<std::uint8_t> EncodePng(const Raster& raster) {
  std::vector<std::uint8_t> rgb;
  rgb.reserve(static_cast<std::size_t>(raster.width()) * static_cast<std::size_t>(raster.height()) *
              3);
  for (std::int32_t y = 0; y < raster.height(); ++y) {
    for (std::int32_t x = 0; x < raster.width(); ++x) {
      const Colour colour = raster.Pixel(x, y);
      for (unsigned shift = 0; shift < 24; shift += 8) {
        rgb.push_back(static_cast<std::uint8_t>(colour >> shift));
      }
    }
  }
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  image.width = static_cast<png_uint_32>(raster.width());
  image.height = static_cast<png_uint_32>(raster.height());
  image.format = PNG_FORMAT_RGB;
  png_alloc_size_t size = 0;
  if (!png_image_write_to_memory(&image, nullptr, &size, 0, rgb.data(), 0, nullptr)) {
    throw std::runtime_error(std::string("the map cannot be made a PNG: ") + image.message);
  }
  std::vector<std::uint8_t> file(size);
  if (!png_image_write_to_memory(&image, file.data(), &size, 0, rgb.data(), 0, nullptr)) {
    throw std::runtime_error(std::string("the map cannot be made a PNG: ") + image.message);
  }
  file.resize(size);
  return file;
}

}  // namespace vornalux
