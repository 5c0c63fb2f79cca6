// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/simulated/run_pool.h"

#include <algorithm>

namespace vornalux {

void RunPool::Set(RunList& list, std::span<const SimulatedRun> runs) {
  if (runs.size() > list.room) {
    // A list that grew once will grow again.
    const std::size_t room = list.room == 0 ? runs.size() : runs.size() * 2;
    list.first = static_cast<std::uint32_t>(runs_.size());
    list.room = static_cast<std::uint32_t>(room);
    runs_.resize(runs_.size() + room);
  }
  list.count = static_cast<std::uint32_t>(runs.size());
  std::copy(runs.begin(), runs.end(), runs_.begin() + static_cast<std::ptrdiff_t>(list.first));
}

void JoinRuns(std::vector<SimulatedRun>& runs) {
  std::size_t kept = 0;
  for (const SimulatedRun run : runs) {
    if (run.count == 0) continue;
    if (kept > 0) {
      SimulatedRun& last = runs[kept - 1];
      const bool holes = last.lcn < 0 && run.lcn < 0;
      const bool adjoin = last.lcn >= 0 && last.lcn + last.count == run.lcn;
      if (holes || adjoin) {
        last.count += run.count;
        continue;
      }
    }
    runs[kept++] = run;
  }
  runs.resize(kept);
}

}  // namespace vornalux
