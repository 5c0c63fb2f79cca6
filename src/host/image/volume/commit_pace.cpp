// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/volume/commit_pace.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace vornalux {
namespace {

std::uint64_t SteadyMilliseconds() {
  using namespace std::chrono;
  const auto now = steady_clock::now().time_since_epoch();
  return static_cast<std::uint64_t>(duration_cast<milliseconds>(now).count());
}

}  // namespace

CommitPace::CommitPace(CommitLimits limits)
    : limits_(std::move(limits)), most_(limits_.first_bytes) {
  if (!limits_.clock) limits_.clock = SteadyMilliseconds;
}

void CommitPace::Begin() {
  if (!moving_) start_ = limits_.clock();
  moving_ = true;
}

void CommitPace::Moved(std::uint64_t bytes) { bytes_ += bytes; }

bool CommitPace::Due(std::uint64_t waiting, std::uint64_t record) const {
  return bytes_ >= most_ || waiting >= limits_.waiting || record >= limits_.record ||
         limits_.clock() - start_ >= limits_.time;
}

void CommitPace::Committed() {
  const std::uint64_t took = moving_ ? limits_.clock() - start_ : 0;
  if (took > limits_.time) {
    most_ = std::max(std::min(most_, bytes_) / 2, limits_.least_bytes);
  } else if (took < limits_.time / 2 && bytes_ >= most_) {
    most_ = std::min(most_ * 2, limits_.most_bytes);
  }
  moving_ = false;
  bytes_ = 0;
}

}  // namespace vornalux
