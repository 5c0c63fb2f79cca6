// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>
#include <vector>

#include "platform/platform.h"
#include "volume/extent_reader.h"
#include "volume/run_flags.h"

namespace vornalux {

// A file, folder or named stream with clusters, and where all of it lies.
struct CensusEntry {
  std::string path;
  bool folder = false;
  std::vector<Extent> extents;
};

// Everything below the folder (ending in "\") that can be opened, streams where the file system has
// them. As far as it got when a stop is requested.
std::vector<CensusEntry> TakeCensus(Platform& platform, ExtentReader& extents,
                                    const RunFlags& flags, const std::string& folder, bool streams);

}  // namespace vornalux
