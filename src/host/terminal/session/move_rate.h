// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

namespace vornalux {

// How much may be moved in a second, averaged over about one.
class MoveRate {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  // bytes_per_second is above 0.
  MoveRate(std::uint64_t bytes_per_second, std::function<TimePoint()> clock);

  // So many bytes have just been moved.
  void Add(std::int64_t bytes);
  // How long nothing may be moved; at most 0 when something may.
  std::chrono::nanoseconds Due() const { return paid_ - clock_(); }

  // In how large pieces a copy has to be made so that the rate is kept within a second: a multiple
  // of 64 KiB. Nothing for a rate of 0, which is none, or one that makes no difference.
  static std::optional<std::uint64_t> Piece(std::uint64_t bytes_per_second);

 private:
  double bytes_per_second_;
  std::function<TimePoint()> clock_;
  TimePoint paid_;  // when all that was moved was allowed to be
};

}  // namespace vornalux
