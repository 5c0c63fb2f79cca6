// SPDX-License-Identifier: GPL-2.0-or-later
#include "health/disk_check.h"

namespace vornalux {
namespace {

constexpr std::uint32_t kProgress = 0;
constexpr std::uint32_t kDone = 11;
constexpr std::uint32_t kOutput = 14;

// False when the sink wants the check to stop.
bool Tell(DiskCheckSink& sink, const CheckMessage& message) {
  bool cancel = false;
  switch (message.command) {
    case kProgress:
      sink.Progress(message.number, cancel);
      break;
    case kDone:
      sink.Done(message.number == 0);
      break;
    case kOutput:
      if (message.line) sink.Status(*message.line, cancel);
      break;
    default:
      break;
  }
  return !cancel;
}

}  // namespace

void CheckVolumeBy(CheckLibrary& library, Volumes& volumes, const std::string& root,
                   CheckOptions options, DiskCheckSink& sink) {
  if (root.empty() || !library.Load()) return;
  VolumeName names;
  if (volumes.VolumeNames(root, names) == error::kSuccess) {
    // A volume in use is checked all the same.
    if (options.correct_errors && !library.CanOpenForWriting("\\\\.\\" + root.substr(0, 1) + ":")) {
      options.correct_errors = false;
    }
    library.Check(root, names.file_system, options,
                  [&sink](const CheckMessage& message) { return Tell(sink, message); });
  }
  library.Free();
}

}  // namespace vornalux
