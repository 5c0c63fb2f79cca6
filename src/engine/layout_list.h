// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "platform/files.h"
#include "volume/extent_reader.h"
#include "volume/file_table.h"

namespace vornalux {

// Adds the files that Windows reads at start-up, as "layout.ini" in the prefetch folder lists them
// and in its order, to prefetch_files; the list's count stays. Only when the prefetch folder lies
// on this drive. Lines of another drive and files that cannot be opened or have no place are
// skipped. A missing "layout.ini" leaves the list 1,000 slots longer.
void ReadLayoutList(Files& files, ExtentReader& extents, const std::string& prefetch_dir,
                    const std::string& drive, PathList& prefetch_files);

}  // namespace vornalux
