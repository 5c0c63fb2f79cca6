// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "check/byte_source.h"
#include "check/report.h"

namespace vornalux {

// Judges an NTFS volume from its raw bytes. Never throws for what a volume says; everything wrong
// with it is in the report. Checked: boot sector and its copy, fixups, $MFT and $MFTMirr, record
// use against $MFT's bitmap, attributes and attribute lists both ways, VCN continuity and sizes,
// every cluster against $Bitmap, folder indexes (order, blocks, references, parents), names both
// ways, compressed units, link counts.
CheckReport CheckNtfs(const ByteSource& source, const CheckOptions& options = {});

// The same for an image file or block device. Throws std::system_error when it cannot be opened.
CheckReport CheckNtfs(const std::string& image_path, const CheckOptions& options = {});

}  // namespace vornalux
