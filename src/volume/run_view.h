// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>

#include "platform/types.h"

namespace vornalux {

struct VolumeBitmapImage;

namespace map_colour {
inline constexpr Colour kUsed = 0x00FF00;
inline constexpr Colour kFree = 0x004000;
inline constexpr Colour kMftZone = 0xC0FFFF;
inline constexpr Colour kMft = 0x00C0C0;
inline constexpr Colour kDefrag = 0x0000FF;
inline constexpr Colour kOptimize = 0xFF0000;
inline constexpr Colour kSystemArea = 0xFFC0C0;
}  // namespace map_colour

namespace activity_colour {
inline constexpr Colour kMoving = 0x00FF00;
inline constexpr Colour kResting = 0x004000;
}  // namespace activity_colour

// The progress bar. Setters keep Value within Minimum and Maximum.
class ProgressView {
 public:
  virtual ~ProgressView() = default;
  virtual void SetRange(std::int64_t minimum, std::int64_t maximum) = 0;
  virtual void SetValue(std::int64_t value) = 0;
  virtual std::int64_t Value() const = 0;
};

// The main window as the walk, the movers and the passes see it.
class RunView : public ProgressView {
 public:
  virtual void SetCaption(const std::string& caption) = 0;
  virtual void SetCurrentFile(const std::string& path) = 0;
  virtual void SetActivity(Colour colour) = 0;
  virtual bool HidesFileNames() const = 0;
  virtual bool RedrawsAfterEachFile() const = 0;

  virtual void EnterBusy() = 0;
  virtual void EnterIdle() = 0;

  // Status bar panels, counted from 0, and the numbers beside the details window's categories.
  virtual void SetStatusPanel(int panel, const std::string& text) = 0;
  virtual void SetDetailsCounts(const std::string& fragmented, const std::string& system_area,
                                const std::string& optimize) = 0;

  // The walk runs: the counters are shown now and then.
  virtual void SetWalking(bool walking) = 0;

  // The map: the density layer from the whole bitmap, a single column, a full redraw in class
  // colours, and showing what has been painted.
  virtual void DrawVolumeBitmap(const VolumeBitmapImage& image) = 0;
  virtual void PaintCluster(std::int64_t cluster, Colour colour) = 0;
  virtual void RefreshMap() = 0;
  virtual void RedrawClusterMap() = 0;
};

}  // namespace vornalux
