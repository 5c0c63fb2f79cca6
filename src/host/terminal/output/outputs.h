// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/terminal/command_line/options.h"
#include "host/terminal/output/output_file.h"
#include "host/terminal/output/run_log.h"

namespace vornalux {

// Standard output, whose reader may have seen enough and gone.
class StandardOutput {
 public:
  StandardOutput();

  // Writes all of it, or gives the reason why not. Once the reader has gone, text is dropped
  // without an error, unless whoever started the program wants it to be one.
  std::error_code Write(std::string_view text);

  // To be called when all is done. Where the reader has gone, ends the process by SIGPIPE.
  void EndIfReaderLeft() const;

 private:
  bool leaving_is_an_error_ = false;
  bool reader_left_ = false;
};

// All that one command writes to besides its volumes.
struct Outputs {
  StandardOutput standard;
  OutputFile debug_log;
  OutputFile log_file;
  RunLog log;  // into it
  OutputFile png;
  OutputFile report;
};

// Opens the files that the options name. Throws OutputRefused before any of them has changed, when
// one, or a standard stream, cannot be written, is a volume at work or its journal, or two are the
// same file. A standard error that must not be written is silent from then on.
void OpenOutputs(const Options& options, Outputs& outputs);

// Is a standard stream a file that one of the arguments names, by itself or behind a "="; or its
// journal, or a file that such a device is made of? Then nothing may be printed there when the
// command line makes no sense, since nobody knows what it was to do with the file.
bool IsNamedBy(int standard_stream, const std::vector<std::string>& arguments);

}  // namespace vornalux
