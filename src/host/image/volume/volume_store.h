// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>

#include "host/image/device/block_device.h"
#include "host/image/journal/journal_home.h"
#include "host/image/journal/volume_identity.h"
#include "host/image/volume/commit_pace.h"
#include "host/mounted/smart_drive.h"

namespace vornalux {

// What a file system's volume stands on.
struct VolumeStore {
  std::unique_ptr<BlockDevice> device;        // the volume alone, locked against others
  std::shared_ptr<JournalHome> journal_home;  // null: the volume is open for reading only
  VolumeIdentity identity;
  std::unique_ptr<SmartDrive> drive;  // the disk below; null when there is none to be asked
  bool recovering = false;  // an interrupted run of ours left the dirty flag set; Recover() ends it
  bool allow_dirty = false;  // a volume marked dirty may be looked at, though not moved on
  // Nothing reaches the disk: what would refuse the volume to a pass is kept in Objections().
  bool only_looking = false;
  CommitLimits limits;
  bool drop_restore_points = false;  // give up the snapshots of a volume before anything moves
};

}  // namespace vornalux
