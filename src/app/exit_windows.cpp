// SPDX-License-Identifier: GPL-2.0-or-later
#include "app/exit_windows.h"

namespace vornalux {
namespace {

// As the system numbers them.
constexpr std::uint32_t kShutDownFlag = 1;
constexpr std::uint32_t kRebootFlag = 2;
constexpr std::uint32_t kForceFlag = 4;
constexpr std::uint32_t kPowerOffFlag = 8;
constexpr std::uint32_t kReason = 0xFFFFFFFF;

}  // namespace

void clsExitWindows::ExitWindows(std::int16_t how) {
  // Whether it was granted shows when the system is asked.
  system_.EnablePrivilege("SeShutdownPrivilege");
  switch (how) {
    case kLogOff:
      return system_.ExitWindows(kForceFlag, kReason);
    case kShutDown:
      return system_.ExitWindows(kShutDownFlag | kForceFlag, kReason);
    case kRestart:
      return system_.ExitWindows(kShutDownFlag | kRebootFlag | kForceFlag, kReason);
    case kPowerOff:
      return system_.ExitWindows(kPowerOffFlag | kForceFlag, kReason);
    default:
      return;
  }
}

}  // namespace vornalux
