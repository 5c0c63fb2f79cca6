// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "host/image/drive/drive_node.h"
#include "platform/drive_commands.h"

namespace vornalux {

// Asks the controller for its SMART / health log, which is as long as a sector.
NvmeCommand HealthLogCommand();

// The log as the attribute sector of an ATA drive: its composite temperature as attribute 194, in
// the second entry, since readers skip the first one. No attribute when the log has no temperature
// above 0 °C, or one that no disk survives.
DriveSector AttributesFromHealthLog(const DriveSector& log);

}  // namespace vornalux
