// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/ui/redraw_glyph.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

namespace vornalux {
namespace {

struct Point {
  double x, y;  // from the centre, y up; the area reaches to 1
};

constexpr double kInner = 0.46, kOuter = 0.76;  // of the arrow's body
constexpr double kBegin = 2.9, kHead = 0.75;    // radians, from left over the top to the right
constexpr double kHeadInner = 0.2, kHeadOuter = 1;
constexpr double kTip = -0.2;

Point At(double angle, double radius) {
  return {radius * std::cos(angle), radius * std::sin(angle)};
}

bool IsLeftOf(Point p, Point from, Point to) {
  return (to.x - from.x) * (p.y - from.y) > (to.y - from.y) * (p.x - from.x);
}

bool IsInArrow(Point p) {
  const double radius = std::hypot(p.x, p.y);
  const double angle = std::atan2(p.y, p.x);
  if (radius >= kInner && radius <= kOuter && angle >= kHead && angle <= kBegin) return true;
  const Point inner = At(kHead, kHeadInner), outer = At(kHead, kHeadOuter);
  const Point tip = At(kTip, (kInner + kOuter) / 2);
  return IsLeftOf(p, outer, inner) && IsLeftOf(p, inner, tip) && IsLeftOf(p, tip, outer);
}

// How much of the pixel is in one of the arrows, of kSamples * kSamples.
constexpr int kSamples = 4;
std::uint32_t Coverage(int x, int y, SIZE size) {
  const double scale = 2.0 / static_cast<double>(std::min(size.cx, size.cy));
  std::uint32_t count = 0;
  for (int i = 0; i < kSamples * kSamples; ++i) {
    const double right = x + (i % kSamples + 0.5) / kSamples;
    const double down = y + (i / kSamples + 0.5) / kSamples;
    const Point p = {(right - size.cx / 2.0) * scale, (size.cy / 2.0 - down) * scale};
    if (IsInArrow(p) || IsInArrow({-p.x, -p.y})) ++count;
  }
  return count;
}

}  // namespace

void PaintRedrawGlyph(HDC dc, const RECT& area, Colour colour) {
  const SIZE size = {area.right - area.left, area.bottom - area.top};
  if (size.cx <= 0 || size.cy <= 0) return;
  std::vector<std::uint32_t> pixels;
  for (int y = 0; y < size.cy; ++y) {
    for (int x = 0; x < size.cx; ++x) {
      const std::uint32_t share = Coverage(x, y, size);
      const auto part = [share, colour](int shift) {
        return (colour >> shift & 0xFF) * share / (kSamples * kSamples);
      };
      pixels.push_back(part(0) << 16 | part(8) << 8 | part(16));
    }
  }
  BITMAPINFO info = {};
  info.bmiHeader.biSize = sizeof info.bmiHeader;
  info.bmiHeader.biWidth = size.cx;
  info.bmiHeader.biHeight = -size.cy;  // from the top
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 32;
  StretchDIBits(dc, area.left, area.top, size.cx, size.cy, 0, 0, size.cx, size.cy, pixels.data(),
                &info, DIB_RGB_COLORS, SRCCOPY);
}

}  // namespace vornalux
