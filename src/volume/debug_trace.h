// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string_view>

#include "volume/run_flags.h"

namespace vornalux {

inline constexpr std::string_view kLineBreak = "\r\n";

// Takes finished log text. The writer supplies the line breaks.
class LogSink {
 public:
  virtual ~LogSink() = default;
  virtual void Append(std::string_view text) = 0;
};

// The debug log as its writers see it: nothing is written while DebugLog is off.
class DebugTrace {
 public:
  DebugTrace(const RunFlags& flags, LogSink& sink) : flags_(flags), sink_(sink) {}

  bool On() const { return flags_.DebugLog != False; }

  // Appends the line and its line break.
  void Line(std::string_view line) const {
    if (!On()) return;
    sink_.Append(line);
    sink_.Append(kLineBreak);
  }

 private:
  const RunFlags& flags_;
  LogSink& sink_;
};

}  // namespace vornalux
