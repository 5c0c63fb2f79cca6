// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/ui/picture_painting.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace vornalux {
namespace {

// The columns of a picture that is to fill the area and of which something in the clip box shows.
ColumnRange ColumnsIn(HDC dc, const RECT& area, const PictureBox& picture) {
  const auto width = static_cast<std::int32_t>(picture.shown().size());
  RECT clip;
  const bool as_wide = area.right - area.left == width;
  if (!as_wide || GetClipBox(dc, &clip) == ERROR) return {0, width};
  const auto column = [&](LONG x) {
    return static_cast<std::int32_t>(std::clamp<LONG>(x - area.left, 0, width));
  };
  return {column(clip.left), column(clip.right)};
}

}  // namespace

void ShowPicture(HDC dc, const RECT& area, const PictureBox& picture) {
  const auto width = static_cast<std::int32_t>(picture.shown().size());
  const ColumnRange columns = ColumnsIn(dc, area, picture);
  if (columns.Empty()) return;
  const bool whole = columns.first == 0 && columns.end == width;
  const LONG left = area.left + columns.first;
  const LONG right = whole ? area.right : area.left + columns.end;
  BITMAPINFO info = {};
  info.bmiHeader.biSize = sizeof info.bmiHeader;
  info.bmiHeader.biWidth = columns.end - columns.first;
  info.bmiHeader.biHeight = 1;
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 32;
  std::vector<std::uint32_t> row;
  row.reserve(static_cast<std::size_t>(columns.end - columns.first));
  for (std::int32_t x = columns.first; x < columns.end; ++x) {
    const Colour c = picture.shown()[static_cast<std::size_t>(x)];
    row.push_back((c & 0xFF) << 16 | (c & 0xFF00) | (c >> 16 & 0xFF));
  }
  StretchDIBits(dc, left, area.top, right - left, area.bottom - area.top, 0, 0,
                info.bmiHeader.biWidth, 1, row.data(), &info, DIB_RGB_COLORS, SRCCOPY);
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
