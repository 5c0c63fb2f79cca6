// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/live/run_progress.h"

#include <algorithm>

namespace vornalux {
namespace {

constexpr auto kLeastElapsed = std::chrono::seconds(2);
constexpr std::int64_t kLeastShare = 50;  // a 50th of the way

}  // namespace

std::optional<int> Percent(const ProgressState& state) {
  if (state.total <= 0) return std::nullopt;
  const std::int64_t done = std::clamp<std::int64_t>(state.done, 0, state.total);
  return static_cast<int>(static_cast<double>(done) / static_cast<double>(state.total) * 100);
}

std::optional<std::chrono::seconds> TimeLeft::Update(TimePoint now, std::int64_t done,
                                                     std::int64_t total) {
  if (total != total_ || done < done_) {
    started_ = now;
    done_at_start_ = done;
    total_ = total;
  }
  done_ = done;
  const auto elapsed = now - started_;
  const std::int64_t seen = done - done_at_start_;
  if (elapsed < kLeastElapsed || seen <= 0 || done > total || seen < total / kLeastShare) {
    return std::nullopt;
  }
  const std::chrono::duration<double> seconds = elapsed;
  const double left =
      seconds.count() * static_cast<double>(total - done) / static_cast<double>(seen);
  return std::chrono::seconds(static_cast<std::int64_t>(left + 0.5));
}

}  // namespace vornalux
