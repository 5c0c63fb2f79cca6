// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "forms/picture_box.h"
#include "host/windows/system_headers.h"

namespace vornalux {

// One row of pixels, which the system makes as high as the area. What another window covered comes
// back as it was; of what need not be painted anew nothing is made. On an area of another width
// each place shows one of the columns that come to it.
void ShowPicture(HDC dc, const RECT& area, const PictureBox& picture);

// Where columns show on a control that may have another width than the picture.
RECT AreaOf(ColumnRange columns, HWND control, const PictureBox& picture);

}  // namespace vornalux
