// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/debug_log.h"

#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace vornalux {

DebugLogFile::~DebugLogFile() {
  if (owned_) std::fclose(file_);
}

void DebugLogFile::Open(const std::string& path) {
  file_ = std::fopen(path.c_str(), "we");
  if (file_ == nullptr) {
    throw std::system_error(errno, std::generic_category(), "The debug log " + path);
  }
  owned_ = true;
  terminal_ = isatty(fileno(file_)) != 0;
}

void DebugLogFile::Use(std::FILE* stream) {
  file_ = stream;
  terminal_ = isatty(fileno(file_)) != 0;
}

void DebugLogFile::Watch(LogBox& log) {
  log.appended = [this](std::string_view text) { Append(text); };
}

// A line at a time, so that whoever follows the log sees whole lines at once.
void DebugLogFile::Append(std::string_view text) {
  for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
    line_ += text.substr(0, end);
    text.remove_prefix(end + 1);
    if (line_.ends_with('\r')) line_.pop_back();
    if (terminal_) line_ = PrintableText(line_, charset_);
    line_ += '\n';
    failed_ |= std::fwrite(line_.data(), 1, line_.size(), file_) != line_.size();
    failed_ |= std::fflush(file_) != 0;
    line_.clear();
  }
  line_ += text;
}

bool DebugLogFile::Finish() {
  if (file_ == nullptr) return true;
  if (!line_.empty()) Append("\n");
  return !failed_;
}

}  // namespace vornalux
