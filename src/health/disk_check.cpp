// SPDX-License-Identifier: GPL-2.0-or-later
#include "health/disk_check.h"

namespace vornalux {
namespace {

// False when the sink wants the check to stop.
bool Tell(DiskCheckSink& sink, const CheckMessage& message) {
  bool cancel = false;
  switch (message.command) {
    case check_command::kProgress:
      sink.Progress(message.number, cancel);
      break;
    case check_command::kDone:
      sink.Done(message.number == 0);
      break;
    case check_command::kOutput:
      if (message.line) sink.Status(*message.line, cancel);
      break;
    default:
      break;
  }
  return !cancel;
}

}  // namespace

void CheckVolumeBy(CheckLibrary& library, Volumes& volumes, const std::string& root,
                   DiskCheckOptions options, DiskCheckSink& sink) {
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
