// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "check/fat_check.h"
#include "check/ntfs_check.h"

namespace vornalux {

// Checks whatever file system the boot sector names. Neither NTFS nor FAT: file_system is empty and
// a problem says so.
CheckReport CheckVolume(const ByteSource& source, const CheckOptions& options = {});

// The same for an image file or block device. Throws std::system_error when it cannot be opened.
CheckReport CheckVolume(const std::string& image_path, const CheckOptions& options = {});

}  // namespace vornalux
