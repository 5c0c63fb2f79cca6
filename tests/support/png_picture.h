// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <gtest/gtest.h>
#include <png.h>

#include "engine/run_view.h"
#include "platform/types.h"
#include "support/devices.h"

namespace vornalux::test {

struct Picture {
  std::size_t width = 0;
  std::size_t height = 0;
  std::vector<Colour> pixels;  // row by row

  const Colour* Row(std::size_t y) const { return &pixels[y * width]; }
};

// What a PNG file shows, as libpng reads it.
inline Picture ReadPng(const Bytes& file) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  EXPECT_TRUE(png_image_begin_read_from_memory(&image, file.data(), file.size())) << image.message;
  image.format = PNG_FORMAT_RGB;
  Bytes bytes(PNG_IMAGE_SIZE(image));
  EXPECT_TRUE(png_image_finish_read(&image, nullptr, bytes.data(), 0, nullptr)) << image.message;
  Picture picture{image.width, image.height, {}};
  for (std::size_t i = 0; i + 2 < bytes.size(); i += 3) {
    picture.pixels.push_back(bytes[i] | Colour{bytes[i + 1]} << 8 | Colour{bytes[i + 2]} << 16);
  }
  return picture;
}

}  // namespace vornalux::test
