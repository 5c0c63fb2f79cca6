// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "host/image/drive/drive_node.h"
#include "platform/drive_commands.h"
#include "platform/types.h"

namespace vornalux {

// Whether the drive sends a sector for this command. Waiting for data from a command that has none
// makes some USB bridges reset the drive, in the middle of a run.
bool AnswersWithSector(const DriveRegisters& registers);

// ATA PASS-THROUGH (16) with these registers.
ScsiCommand PackAtaCommand(const DriveRegisters& registers, bool with_sector);

// How such a command ended: kNotSupported when nobody passed it through, kGenFailure when the drive
// did not carry it out; for an error of the kernel, the nearest code.
ErrorCode AtaResult(const ScsiReply& reply);

// The Windows error code nearest to an errno of a refused request.
ErrorCode FromRefusal(int refused);

}  // namespace vornalux
