// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>

#include "platform/system.h"

namespace vornalux {

// Ends the session or the machine's work, without regard to other programs.
class clsExitWindows {
 public:
  static constexpr std::int16_t kLogOff = 0;
  static constexpr std::int16_t kShutDown = 1;
  static constexpr std::int16_t kRestart = 2;
  static constexpr std::int16_t kPowerOff = 8;

  explicit clsExitWindows(System& system) : system_(system) {}

  // Does nothing for any other code.
  void ExitWindows(std::int16_t how);

 private:
  System& system_;
};

}  // namespace vornalux
