// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/ui/picture_painting.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace vornalux {
namespace {

// What of the area shows in the clip box, from its left edge on.
ColumnRange PlacesIn(HDC dc, const RECT& area) {
  const LONG room = std::max<LONG>(area.right - area.left, 0);
  RECT clip;
  if (GetClipBox(dc, &clip) == ERROR) return {0, static_cast<std::int32_t>(room)};
  const auto place = [&](LONG x) {
    return static_cast<std::int32_t>(std::clamp<LONG>(x - area.left, 0, room));
  };
  return {place(clip.left), place(clip.right)};
}

}  // namespace

void ShowPicture(HDC dc, const RECT& area, const PictureBox& picture) {
  const ColumnRange places = PlacesIn(dc, area);
  if (places.Empty()) return;
  const std::int64_t room = area.right - area.left;
  const auto width = static_cast<std::int64_t>(picture.shown().size());
  BITMAPINFO info = {};
  info.bmiHeader.biSize = sizeof info.bmiHeader;
  info.bmiHeader.biWidth = places.end - places.first;
  info.bmiHeader.biHeight = 1;
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 32;
  std::vector<std::uint32_t> row;
  row.reserve(static_cast<std::size_t>(info.bmiHeader.biWidth));
  for (std::int64_t x = places.first; x < places.end; ++x) {
    // The system would blend columns that it puts together, red with green to black.
    const Colour c = picture.shown()[static_cast<std::size_t>((2 * x + 1) * width / (2 * room))];
    row.push_back((c & 0xFF) << 16 | (c & 0xFF00) | (c >> 16 & 0xFF));
  }
  StretchDIBits(dc, area.left + places.first, area.top, info.bmiHeader.biWidth,
                area.bottom - area.top, 0, 0, info.bmiHeader.biWidth, 1, row.data(), &info,
                DIB_RGB_COLORS, SRCCOPY);
}

RECT AreaOf(ColumnRange columns, HWND control, const PictureBox& picture) {
  RECT area;
  GetClientRect(control, &area);
  const auto shown = [width = area.right, &picture](std::int32_t x) {
    return static_cast<LONG>(std::int64_t{x} * width / picture.width());
  };
  const bool stretched = area.right != picture.width();
  const LONG margin = stretched ? 1 + area.right / picture.width() : 0;
  area.left = shown(columns.first) - margin;
  area.right = shown(columns.end) + margin;
  return area;
}

}  // namespace vornalux
