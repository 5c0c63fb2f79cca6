// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "platform/volumes.h"
#include "volume/free_runs.h"

namespace vornalux {

// The gaps of a bitmap, found by place and size without going through them: a tree over blocks of
// it knows of each node the free clusters at its begin, at its end, and the longest run inside. A
// search costs the height of the tree, a change one block and the nodes above it.
class GapIndex {
 public:
  // A volume of that many clusters (at most 2^31 - 1), all in use as far as is known.
  void Reset(std::int64_t clusters);
  std::int64_t Clusters() const { return clusters_; }

  // Takes the chunk that starts at lcn, a multiple of 32,768. Bits past the last cluster are
  // ignored; bits that are missing count as in use. True when something differs from before.
  bool Take(std::int64_t lcn, std::span<const std::uint8_t> bits);
  // What of the range lies on the volume comes into use, or out of it.
  void Set(std::int64_t lcn, std::int64_t count, bool used);
  // Clusters from `end` on are not known. Gives the begin of the gap that is open there, which is
  // none either because its length is not known, or `end`.
  std::int64_t CutOff(std::int64_t end);

  bool IsFree(std::int64_t lcn, std::int64_t count) const;
  // The lowest gap that begins at `from` or above and holds `least` clusters. Length 0: there is
  // none; so it is below.
  FreeRun LowestGap(std::int64_t from, std::int64_t least) const;
  // The lowest of equals.
  FreeRun LargestGap() const;
  FreeRunList List() const;

 private:
  // Free clusters of a node: at its begin, at its end, and in its longest run.
  struct Runs {
    std::int32_t front = 0;
    std::int32_t back = 0;
    std::int32_t longest = 0;
  };

  Runs RunsOfLeaf(std::int64_t leaf) const;
  // Leaves [first, last] have changed.
  void Update(std::int64_t first, std::int64_t last);
  const Runs& At(std::int64_t node) const { return tree_[static_cast<std::size_t>(node)]; }
  // Where the lowest run of so many free clusters begins, looked for from `from` on; -1: nowhere.
  std::int64_t FindRun(std::int64_t from, std::int64_t least) const;
  // The first cluster in use from lcn on.
  std::int64_t EndOfRun(std::int64_t lcn) const;

  std::int64_t clusters_ = 0;
  std::vector<std::uint64_t> words_;
  // Node 1 is the root, those below node n are 2n and 2n + 1, and leaves_ the first leaf.
  std::int64_t leaves_ = 1;
  std::vector<Runs> tree_ = std::vector<Runs>(2);
};

}  // namespace vornalux
