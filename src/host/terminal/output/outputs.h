// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/terminal/command_line/options.h"
#include "host/terminal/output/output_file.h"

namespace vornalux {

// Standard output, whose reader may have seen enough and gone.
class StandardOutput {
 public:
  StandardOutput();

  // Writes all of it, or gives the reason why not. With the reader gone it goes nowhere, and is
  // well, unless whoever started the program wants that to be an error.
  std::error_code Write(std::string_view text);

  // To be called when all is done: ends the process as it ends others that write to nobody.
  void EndIfReaderLeft() const;

 private:
  bool leaving_is_an_error_ = false;
  bool reader_left_ = false;
};

// All that one command writes to besides its volumes.
struct Outputs {
  StandardOutput standard;
  OutputFile debug_log;
  OutputFile png;
  OutputFile report;
};

// Opens the files that the options name. Throws OutputRefused before any of them has changed, when
// one, or a standard stream, cannot be written, is a volume at work or its journal, or two are the
// same file. A standard error that must not be written is silent from then on.
void OpenOutputs(const Options& options, Outputs& outputs);

// Is a standard stream something that one of the arguments names? What a command line that makes no
// sense asks for is not known, so nothing may be printed there. A file by itself or behind any "=".
// The same goes for a journal and a file that a device is made of.
bool IsNamedBy(int standard_stream, const std::vector<std::string>& arguments);

}  // namespace vornalux
