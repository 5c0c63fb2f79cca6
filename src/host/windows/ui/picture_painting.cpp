// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/ui/picture_painting.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "engine/run_view.h"

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

bool IsCandidate(Colour c) {
  return c == map_colour::kDefrag || c == map_colour::kOptimize || c == map_colour::kSystemArea;
}

// What shows at place x of `room`. The system would blend columns that it puts together, red with
// green to black; drawn at this width, candidates would lie over the rest.
Colour ColourAt(const std::vector<Colour>& columns, std::int64_t x, std::int64_t room) {
  const auto width = static_cast<std::int64_t>(columns.size());
  const std::int64_t end = ((x + 1) * width + room - 1) / room;
  for (std::int64_t i = x * width / room; width > room && i < end; ++i) {
    const Colour c = columns[static_cast<std::size_t>(i)];
    if (IsCandidate(c)) return c;
  }
  return columns[static_cast<std::size_t>((2 * x + 1) * width / (2 * room))];
}

}  // namespace

void ShowPicture(HDC dc, const RECT& area, const PictureBox& picture) {
  const ColumnRange places = PlacesIn(dc, area);
  if (places.Empty()) return;
  const std::int64_t room = area.right - area.left;
  BITMAPINFO info = {};
  info.bmiHeader.biSize = sizeof info.bmiHeader;
  info.bmiHeader.biWidth = places.end - places.first;
  info.bmiHeader.biHeight = 1;
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 32;
  std::vector<std::uint32_t> row;
  row.reserve(static_cast<std::size_t>(info.bmiHeader.biWidth));
  for (std::int64_t x = places.first; x < places.end; ++x) {
    const Colour c = ColourAt(picture.shown(), x, room);
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
