// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

namespace vornalux {

// What the program tells its caller.
enum class ExitCode {
  Done = 0,
  Failed = 1,    // something went wrong while reading, moving or finishing
  Usage = 2,     // the command line or the job line cannot be carried out; nothing was touched
  Refused = 3,   // the volume cannot or must not be worked on; nothing was touched
  Stopped = 4,   // the user ended the run early; the volume is in order
  InPieces = 5,  // done, but of the files that were named not all are in one piece
};

}  // namespace vornalux
