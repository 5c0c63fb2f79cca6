// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/image/opening/image_source.h"
#include "host/mounted/mounted_volume.h"

namespace vornalux {

// What became of a volume's free clusters. All numbers are bytes.
struct DiscardResult {
  std::uint64_t free_bytes = 0;
  // Of them, in whole units of the file or device: those given back; in a dry run, those that would
  // be.
  std::uint64_t discarded = 0;
  // What the file system that an image lies on keeps for it. A dry run reckons what is kept after.
  std::optional<std::uint64_t> stored_before;
  std::optional<std::uint64_t> stored_after;
  bool stopped = false;  // before the end
  bool cannot = false;   // there is nothing that gives space back; note says so
  bool failed = false;   // note says how
  std::string note;

  // Nothing where nobody counts.
  std::optional<std::uint64_t> GivenBack() const;
};

// Gives the clusters that are free on a volume at rest back to what it lies on: its journal is gone
// and all is made durable first. Which ones are free only the volume says, read anew and proven as
// before a pass; what lies behind or beside it is never touched. stop is asked now and then. With a
// scratch device, or a file open for reading, nothing is written and the result says what would be
// given back. Facts get those of the volume. Throws VolumeRefused, with nothing given back.
DiscardResult DiscardFree(const ImageSource& source, bool dry_run,
                          const std::function<bool()>& stop, VolumeFacts& facts);

struct TrimReport {
  OpenReport opening;
  std::vector<std::string> remarks;  // what was done besides, each a sentence
  VolumeFacts facts;
  DiscardResult discard;
};

// The same for a volume that nobody has open: finished first when an earlier run was interrupted.
TrimReport TrimImage(const std::string& path, const OpenOptions& options,
                     const std::function<bool()>& stop);

}  // namespace vornalux
