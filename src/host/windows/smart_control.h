// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "platform/drive_commands.h"
#include "platform/types.h"

namespace vornalux {

// Commands to the disk below an open volume, through the system's SMART driver. Answers come from
// drivers: whatever is missing in them is given as zeros.
ErrorCode GetDriverVersion(Handle device, DriverVersion& version);
ErrorCode SendSmartCommand(Handle device, const DriveRegisters& registers);
ErrorCode ReceiveSmartData(Handle device, const DriveRegisters& registers, DriveSector& data);

}  // namespace vornalux
