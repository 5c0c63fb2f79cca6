// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "check/byte_source.h"
#include "check/report.h"

namespace vornalux {

// Judges a FAT12, FAT16 or FAT32 volume from its raw bytes. Never throws for what a volume says;
// everything wrong with it is in the report. Checked: boot sector and its copy, equal FAT copies,
// chains (ends, loops, cross links, free or bad members), lost clusters, file sizes against chains,
// "." and "..", long names against their short ones, equal names in one folder, FSInfo.
CheckReport CheckFat(const ByteSource& source, const CheckOptions& options = {});

// The same for an image file or block device. Throws std::system_error when it cannot be opened.
CheckReport CheckFat(const std::string& image_path, const CheckOptions& options = {});

}  // namespace vornalux
