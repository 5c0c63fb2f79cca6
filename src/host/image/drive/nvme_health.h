// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "host/image/drive/drive_node.h"
#include "platform/drive_commands.h"

namespace vornalux {

// Asks the controller for its SMART / health log, which is as long as a sector.
NvmeCommand HealthLogCommand();

// The log's composite temperature as the attribute sector of an ATA drive.
DriveSector AttributesFromHealthLog(const DriveSector& log);

}  // namespace vornalux
