// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>

#include "platform/check_library.h"
#include "platform/volumes.h"

namespace vornalux {

// Hears how a disk check goes on. Setting cancel asks it to stop.
class DiskCheckSink {
 public:
  virtual ~DiskCheckSink() = default;
  virtual void Done(bool failed) = 0;
  virtual void Progress(std::int32_t percent, bool& cancel) = 0;
  virtual void Status(const std::string& line, bool& cancel) = 0;
};

// Runs the system's check of the volume with this root ("C:\") and tells the sink what it says.
// Where there is no such check, or the volume does not say what it is, the sink hears nothing.
void CheckVolumeBy(CheckLibrary& library, Volumes& volumes, const std::string& root,
                   DiskCheckOptions options, DiskCheckSink& sink);

}  // namespace vornalux
