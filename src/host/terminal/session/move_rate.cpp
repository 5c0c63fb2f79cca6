// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/session/move_rate.h"

#include <algorithm>
#include <utility>

namespace vornalux {
namespace {

// What was not used by then is lost: after an analysis the disk is not to be flooded.
constexpr auto kSaved = std::chrono::milliseconds(250);

}  // namespace

MoveRate::MoveRate(std::uint64_t bytes_per_second, std::function<TimePoint()> clock)
    : bytes_per_second_(static_cast<double>(bytes_per_second)),
      clock_(std::move(clock)),
      paid_(clock_()) {}

void MoveRate::Add(std::int64_t bytes) {
  constexpr double kLongest = 1e7;  // seconds
  const double seconds = std::min(static_cast<double>(bytes) / bytes_per_second_, kLongest);
  paid_ = std::max(paid_, clock_() - kSaved) + std::chrono::duration_cast<std::chrono::nanoseconds>(
                                                   std::chrono::duration<double>(seconds));
}

std::optional<std::uint64_t> MoveRate::Piece(std::uint64_t bytes_per_second) {
  constexpr std::uint64_t kUnit = std::uint64_t{64} << 10, kMost = std::uint64_t{2} << 20;
  const std::uint64_t piece = bytes_per_second / 4 / kUnit * kUnit;
  if (bytes_per_second == 0 || piece >= kMost) return std::nullopt;
  return std::max(piece, kUnit);
}

}  // namespace vornalux
