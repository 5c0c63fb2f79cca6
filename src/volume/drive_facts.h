// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>

#include "platform/platform.h"

namespace vornalux {

// What a drive says of itself.
struct DriveFacts {
  std::uint32_t type = 0;  // one of drive_type
  VolumeName names;        // without blanks at their ends
  FreeSpace space;
  std::string boot_text;  // what a FAT volume calls itself in its first sector
  bool answers = false;   // it gave figures and the name of its file system
};

// Of the drive with this root ("C:\"). Empty where it does not answer.
DriveFacts ReadDriveFacts(Platform& platform, const std::string& root);

}  // namespace vornalux
