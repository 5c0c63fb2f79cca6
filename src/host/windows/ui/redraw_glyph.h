// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "host/windows/system_headers.h"

namespace vornalux {

// Two arrows that chase each other round a circle, in this colour on black, as large as the area
// allows. A letter of a font of symbols would not be there on every system.
void PaintRedrawGlyph(HDC dc, const RECT& area, Colour colour);

}  // namespace vornalux
