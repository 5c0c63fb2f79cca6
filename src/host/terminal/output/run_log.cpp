// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/output/run_log.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <string>

#include "host/terminal/display/display_text.h"

namespace vornalux {

std::string LocalTimeText(const char* format) {
  const std::time_t now = std::time(nullptr);
  std::tm local = {};
  std::array<char, 64> text = {};
  if (::localtime_r(&now, &local) == nullptr ||
      std::strftime(text.data(), text.size(), format, &local) == 0) {
    return std::to_string(now);
  }
  return text.data();
}

void RunLog::Write(std::string_view text) {
  if (file_ == nullptr) return;
  const std::string begin =
      LocalTimeText("%Y-%m-%dT%H:%M:%S%z") + " [" + std::to_string(::getpid()) + "] ";
  std::string lines;
  while (!text.empty()) {
    const std::size_t length = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, length);
    text.remove_prefix(std::min(length + 1, text.size()));
    line = line.substr(0, line.find_last_not_of(" \r") + 1);
    if (!line.empty()) lines += begin + PrintableText(line, Charset::Utf8) + "\n";
  }
  if (lines.empty()) return;
  // In one piece, so that runs that share the file do not tear each other's lines.
  if (const std::error_code error = file_->Append(lines); !error_) error_ = error;
}

}  // namespace vornalux
