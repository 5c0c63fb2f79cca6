// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace vornalux {

using TimePoint = std::chrono::steady_clock::time_point;

// How far a phase has come.
struct ProgressState {
  std::int64_t done = 0;                     // of total
  std::int64_t total = 0;                    // 0: not known
  std::optional<std::chrono::seconds> left;  // until the phase is done
};

// Rounded down, 0 to 100; nothing when the total is not known.
std::optional<int> Percent(const ProgressState& state);

// How long it will still take, from how long it took so far.
class TimeLeft {
 public:
  // Nothing until enough has been seen to say something honest. Another total, or less done than
  // before, is the beginning of something else.
  std::optional<std::chrono::seconds> Update(TimePoint now, std::int64_t done, std::int64_t total);

 private:
  TimePoint started_;
  std::int64_t done_at_start_ = 0;
  std::int64_t done_ = 0;
  std::int64_t total_ = -1;
};

}  // namespace vornalux
