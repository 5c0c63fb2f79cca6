// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "forms/controls.h"
#include "host/terminal/display_text.h"

namespace vornalux {

// Writes what the debug window logs to a file or to one of the standard streams, line by line.
class DebugLogFile {
 public:
  // charset is that of a terminal.
  explicit DebugLogFile(Charset charset) : charset_(charset) {}
  ~DebugLogFile();
  DebugLogFile(const DebugLogFile&) = delete;
  DebugLogFile& operator=(const DebugLogFile&) = delete;

  // Throws std::system_error when the file cannot be made. An old one is replaced.
  void Open(const std::string& path);
  // Not closed at the end. What goes to a terminal is made harmless first.
  void Use(std::FILE* stream);

  // The log box's text goes here from now on. The file must outlive the box's use.
  void Watch(LogBox& log);

  // It is written to a terminal.
  bool OnTerminal() const { return terminal_; }

  // Everything so far has been written. False when something was lost.
  bool Finish();

 private:
  void Append(std::string_view text);

  Charset charset_;
  std::FILE* file_ = nullptr;
  bool owned_ = false;
  bool terminal_ = false;
  bool failed_ = false;
  std::string line_;  // not yet complete
};

}  // namespace vornalux
