// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "crash/states/crash_world.h"

namespace vornalux::test {

// Writes in flight up to which every choice of them is tried.
inline constexpr std::size_t kExhaustive = 10;

// The states that a crash at one cut can leave, numbered. First come all choices of whole writes,
// then those of their sectors, then of their blocks of 4 KiB; each exhaustively where no more than
// kExhaustive parts are in flight, else a sample.
class CrashPoints {
 public:
  CrashPoints(const Cut& cut, std::uint64_t seed);

  std::size_t Count() const { return count_; }
  Machine Left(std::size_t choice) const;

 private:
  struct Part {
    const DeviceEvent* write = nullptr;
    std::size_t from = 0;
    std::size_t length = 0;
  };
  struct Way {  // of taking writes apart
    std::vector<Part> parts;
    std::size_t choices = 0;
  };

  const Cut& cut_;
  std::uint64_t seed_;
  std::vector<Way> ways_;
  std::size_t count_ = 0;
};

struct Tally {
  std::uint64_t states = 0;      // of crashes, those during recovery among them
  std::uint64_t recoveries = 0;  // tried, with volumes and journals replaced, too
  std::uint64_t refused = 0;
  std::uint64_t other_journals = 0;  // put beside a volume
  std::uint64_t mistaken = 0;        // of these: for the volume's own, though it came out damaged
};

// Crashes at one choice of a cut, recovers, and judges: alone, after more crashes, and with volume
// or journal replaced. Says what went wrong.
std::string TryState(CrashWorld& world, const Cut& cut, const CrashPoints& points,
                     std::size_t choice, std::uint64_t seed, Tally& tally);

}  // namespace vornalux::test
