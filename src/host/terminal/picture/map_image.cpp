// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/picture/map_image.h"

#include <png.h>

#include <algorithm>
#include <stdexcept>

namespace vornalux {
namespace {

constexpr Colour kBackground = 0x20150F;
constexpr Colour kText = 0xE5DCD2;
constexpr std::int32_t kColumnWidth = 2;
constexpr std::int32_t kStripHeight = 58;
constexpr std::int32_t kMargin = 12;
constexpr std::int32_t kBox = 16;
constexpr std::int32_t kGap = 8;
constexpr std::int32_t kTextScale = 1;
constexpr std::int32_t kTextDrop = 4;  // from the box's top to the letters'

std::int32_t DrawEntry(Raster& raster, std::int32_t x, std::int32_t y, const LegendEntry& entry) {
  raster.Fill(x, y, kBox, kBox, entry.box);
  if (entry.has_inner) raster.Fill(x + 4, y + 4, kBox - 8, kBox - 8, entry.inner);
  x = raster.Print(x + kBox + kGap, y + kTextDrop, entry.caption, kTextScale, kText);
  return x + 2 * kGap;
}

std::int32_t EntryWidth(const LegendEntry& entry) {
  return kBox + 3 * kGap + Raster::TextWidth(entry.caption, kTextScale);
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

Raster DrawMapWithLegend(const MapColumns& columns, const Legend& legend) {
  std::int32_t legend_width = Raster::TextWidth(legend.candidates_caption, kTextScale) + 2 * kGap;
  for (const LegendEntry& entry : legend.density) legend_width += EntryWidth(entry);
  for (const LegendEntry& entry : legend.candidates) legend_width += EntryWidth(entry);
  const std::int32_t strip_width = static_cast<std::int32_t>(columns.size()) * kColumnWidth;

  Raster raster(std::max(strip_width, legend_width) + 2 * kMargin,
                kStripHeight + kBox + 3 * kMargin, kBackground);
  for (std::size_t i = 0; i < columns.size(); ++i) {
    raster.Fill(kMargin + static_cast<std::int32_t>(i) * kColumnWidth, kMargin, kColumnWidth,
                kStripHeight, columns[i]);
  }
  const std::int32_t y = 2 * kMargin + kStripHeight;
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
