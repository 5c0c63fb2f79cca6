// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace vornalux {

// count clusters from lcn on, or a hole of count clusters (lcn -1).
struct SimulatedRun {
  std::int64_t lcn = 0;
  std::int64_t count = 0;

  friend bool operator==(const SimulatedRun&, const SimulatedRun&) = default;
};

// Where a list lies in the pool.
struct RunList {
  std::uint32_t first = 0;
  std::uint32_t count = 0;
  std::uint32_t room = 0;
};

// The run lists of all streams in one piece of memory: nearly every file has one run, and there may
// be millions of them.
class RunPool {
 public:
  std::span<const SimulatedRun> Get(const RunList& list) const {
    return std::span(runs_).subspan(list.first, list.count);
  }

  // A list that grows moves to the end of the pool. The room that it leaves is lost; a volume's
  // tests are over before that matters.
  void Set(RunList& list, std::span<const SimulatedRun> runs);

 private:
  std::vector<SimulatedRun> runs_;
};

// Joins runs that adjoin, drops empty ones.
void JoinRuns(std::vector<SimulatedRun>& runs);

}  // namespace vornalux
