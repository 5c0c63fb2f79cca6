// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <algorithm>
#include <vector>

namespace vornalux::testing {

// The steps that are left when chunk after chunk is dropped, ever smaller ones, as long as what is
// left still fails. fails: steps -> bool, and true for those given.
template <typename Step, typename Fails>
std::vector<Step> Shortened(std::vector<Step> steps, Fails fails) {
  for (std::size_t chunk = std::max<std::size_t>(steps.size() / 2, 1);;) {
    bool dropped = false;
    for (std::size_t at = 0; at < steps.size();) {
      std::vector<Step> fewer = steps;
      const auto first = fewer.begin() + static_cast<std::ptrdiff_t>(at);
      fewer.erase(first, first + static_cast<std::ptrdiff_t>(std::min(chunk, steps.size() - at)));
      if (fails(fewer)) {
        steps = std::move(fewer);
        dropped = true;
      } else {
        at += chunk;
      }
    }
    if (chunk == 1 && !dropped) return steps;
    if (!dropped || chunk > 1) chunk = std::max<std::size_t>(chunk / 2, 1);
  }
}

}  // namespace vornalux::testing
