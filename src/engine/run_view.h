// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>

#include "platform/types.h"
#include "volume/work_view.h"

namespace vornalux {

namespace map_colour {
inline constexpr Colour kUsed = 0x00FF00;
inline constexpr Colour kFree = 0x004000;
inline constexpr Colour kMftZone = 0xC0FFFF;
inline constexpr Colour kMft = 0x00C0C0;
inline constexpr Colour kDefrag = 0x0000FF;
inline constexpr Colour kOptimize = 0xFF0000;
inline constexpr Colour kSystemArea = 0xFFC0C0;
}  // namespace map_colour

// What a redraw of the map shows: the volume alone, or its candidates as well.
enum class MapLayers { Volume, Candidates };

// The main window as the passes see it.
class RunView : public WorkView {
 public:
  virtual void SetCaption(const std::string& caption) = 0;
  virtual bool RedrawsAfterEachFile() const = 0;

  virtual void EnterBusy() = 0;
  virtual void EnterIdle() = 0;

  // Status bar panels, counted from 0, and the numbers beside the details window's categories.
  virtual void SetStatusPanel(int panel, const std::string& text) = 0;
  virtual void SetDetailsCounts(const std::string& fragmented, const std::string& system_area,
                                const std::string& optimize) = 0;

  // Draws the map anew from the volume as it is now, whose constants are fresh then. False, and
  // the user told, when it could not be read.
  virtual bool RedrawMap(MapLayers layers) = 0;

  // Paints clusters onto the map as it was drawn last, and shows what has been painted.
  virtual void PaintExtent(std::int64_t lcn, std::int64_t length, Colour colour) = 0;
  virtual void RefreshMap() = 0;
};

}  // namespace vornalux
