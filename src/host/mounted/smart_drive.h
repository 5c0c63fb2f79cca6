// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "platform/drive_commands.h"
#include "platform/types.h"

namespace vornalux {

// The disk that a mounted volume lies on, as far as it takes commands by its registers. Nothing of
// a command's answer is kept from one to the next.
class SmartDrive {
 public:
  virtual ~SmartDrive() = default;

  // A command without data.
  virtual ErrorCode Send(const DriveRegisters& registers) = 0;
  // A command that answers with a sector, given as zeros where it does not come.
  virtual ErrorCode Receive(const DriveRegisters& registers, DriveSector& data) = 0;
};

}  // namespace vornalux
