// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/output/debug_log.h"

#include <unistd.h>

#include <utility>

#include "volume/debug_trace.h"

namespace vornalux {

void DebugLogFile::Use(int descriptor, Writer write) {
  write_ = std::move(write);
  terminal_ = isatty(descriptor) != 0;
}

void DebugLogFile::Use(OutputFile& file) {
  error_ = file.Start();
  Use(file.Descriptor(), [&file](std::string_view text) { return file.Append(text); });
}

void DebugLogFile::Use(StandardOutput& output) {
  Use(STDOUT_FILENO, [&output](std::string_view text) { return output.Write(text); });
}

void DebugLogFile::UseStandardError() {
  Use(STDERR_FILENO, [](std::string_view text) { return WriteAll(STDERR_FILENO, text); });
}

void DebugLogFile::Watch(LogBox& log) {
  log.appended = [this](std::string_view text) { Append(text); };
}

// The line break that ends an entry comes by itself; any other is part of a name.
void DebugLogFile::Append(std::string_view text) {
  if (text == kLineBreak) {
    EndLine();
  } else {
    line_ += text;
  }
}

// A line at a time, so that whoever follows the log sees whole lines at once.
void DebugLogFile::EndLine() {
  const std::string line = PrintableText(line_, terminal_ ? charset_ : Charset::Utf8) + "\n";
  line_.clear();
  if (const std::error_code error = write_(line); !error_) error_ = error;
}

std::error_code DebugLogFile::Finish() {
  if (!line_.empty()) EndLine();
  return error_;
}

}  // namespace vornalux
