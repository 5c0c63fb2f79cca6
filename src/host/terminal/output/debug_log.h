// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "forms/controls.h"
#include "host/terminal/display/display_text.h"
#include "host/terminal/output/outputs.h"

namespace vornalux {

// Writes what the debug window logs to a file or to one of the standard streams: a line for each
// entry, harmless whatever names it holds.
class DebugLogFile {
 public:
  // charset is that of a terminal.
  explicit DebugLogFile(Charset charset) : charset_(charset) {}
  DebugLogFile(const DebugLogFile&) = delete;
  DebugLogFile& operator=(const DebugLogFile&) = delete;

  // Where it goes; what is given must outlive its use. A file's old content is replaced.
  void Use(OutputFile& file);
  void Use(StandardOutput& output);
  void UseStandardError();

  // The log box's text goes here from now on. The file must outlive the box's use.
  void Watch(LogBox& log);

  // It is written to a terminal.
  bool OnTerminal() const { return terminal_; }

  // Writes what is left of the last line. The reason of the first write that failed.
  std::error_code Finish();

 private:
  using Writer = std::function<std::error_code(std::string_view)>;

  void Use(int descriptor, Writer write);
  void Append(std::string_view text);
  void EndLine();

  Charset charset_;
  Writer write_;
  bool terminal_ = false;
  std::error_code error_;
  std::string line_;  // not yet complete
};

}  // namespace vornalux
