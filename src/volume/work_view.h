// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>

#include "platform/types.h"

namespace vornalux {

namespace activity_colour {
inline constexpr Colour kMoving = 0x00FF00;
inline constexpr Colour kResting = 0x004000;
}  // namespace activity_colour

// The window as the walk and the movers see it: what they are at and how far.
class WorkView {
 public:
  virtual ~WorkView() = default;

  // The progress bar. Setters keep Value within Minimum and Maximum.
  virtual void SetRange(std::int64_t minimum, std::int64_t maximum) = 0;
  virtual void SetValue(std::int64_t value) = 0;
  virtual std::int64_t Value() const = 0;

  // The view may keep names to itself.
  virtual void SetCurrentFile(const std::string& path) = 0;
  virtual void SetActivity(Colour colour) = 0;

  // The walk runs: the counters are shown now and then.
  virtual void SetWalking(bool walking) = 0;
};

}  // namespace vornalux
