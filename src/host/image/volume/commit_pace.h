// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <functional>

namespace vornalux {

// What makes a commit due. More in one saves flushes; less bounds what an interruption costs, what
// a stop waits for, and what is held in memory. Bytes and milliseconds.
struct CommitLimits {
  std::uint64_t time = 1000;  // of work in one commit, flushing it included
  std::uint64_t first_bytes = std::uint64_t{64} << 20;  // copied, as long as no rate is known
  std::uint64_t least_bytes = std::uint64_t{4} << 20;
  std::uint64_t most_bytes = std::uint64_t{256} << 20;
  std::uint64_t waiting = std::uint64_t{64} << 20;  // data in memory
  std::uint64_t record = std::uint64_t{4} << 20;    // the journal's record, about
  // A move into clusters freed lately waits in memory up to this size: larger ones commit first.
  std::uint64_t waiting_move = std::uint64_t{16} << 20;
  // Of a large copy, until the user is heard again; a multiple of 512.
  std::uint64_t piece = std::uint64_t{2} << 20;
  // Only goes forward, milliseconds; empty for the system's.
  std::function<std::uint64_t()> clock;
};

// Learns how much can be copied and made durable in the time that a commit may take.
class CommitPace {
 public:
  explicit CommitPace(CommitLimits limits);

  // A move begins, or has come to its end.
  void Begin();
  void Moved(std::uint64_t bytes);
  bool Due(std::uint64_t waiting, std::uint64_t record) const;
  // All that was moved is committed.
  void Committed();

  bool Moving() const { return moving_; }
  const CommitLimits& Limits() const { return limits_; }

 private:
  CommitLimits limits_;
  std::uint64_t most_;  // bytes, as learnt
  bool moving_ = false;
  std::uint64_t start_ = 0;
  std::uint64_t bytes_ = 0;
};

}  // namespace vornalux
