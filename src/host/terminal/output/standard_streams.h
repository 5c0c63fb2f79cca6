// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace vornalux {

// A program started without one of its standard streams gives that stream's number to the next file
// that it opens: a volume, into which all that is printed would go. This takes the free numbers, to
// be called before anything is opened. Reading from a missing stream then finds its end, errors go
// nowhere, and writing a result fails, as it should. False when there is nothing to take them with.
inline bool OccupyStandardStreams() {
  constexpr struct {
    int descriptor;
    int access;
  } kStreams[] = {{STDIN_FILENO, O_RDONLY}, {STDOUT_FILENO, O_RDONLY}, {STDERR_FILENO, O_WRONLY}};
  for (const auto& [descriptor, access] : kStreams) {
    if (fcntl(descriptor, F_GETFD) != -1) continue;
    if (open("/dev/null", access) != descriptor) return false;
  }
  return true;
}

}  // namespace vornalux
