// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "host/mounted/bitmap_changes.h"

namespace vornalux {

// Which clusters of a volume are in use, and which were freed lately: those show as free, but until
// the commit after the one that frees them they may be needed to finish that, so file data must not
// be written there on its own. Ranges that leave the volume are neither free, used nor held, and
// changing them does nothing.
class AllocationMap {
 public:
  explicit AllocationMap(std::int64_t clusters);

  std::int64_t Clusters() const { return clusters_; }
  std::int64_t FreeClusters() const { return free_; }

  bool Used(std::int64_t lcn) const;
  bool RangeFree(std::int64_t lcn, std::int64_t count) const;
  bool RangeUsed(std::int64_t lcn, std::int64_t count) const;
  // Any cluster of the range freed lately?
  bool RangeHeld(std::int64_t lcn, std::int64_t count) const;
  // The parts of the range freed lately, as first LCN and count, ascending.
  std::vector<std::pair<std::int64_t, std::int64_t>> HeldParts(std::int64_t lcn,
                                                               std::int64_t count) const;

  void Use(std::int64_t lcn, std::int64_t count);
  // Frees and holds.
  void Free(std::int64_t lcn, std::int64_t count);
  // A commit is durable: what was freed before the one before it may be used again.
  void AgeHeld();
  // It is settled: all freed clusters may.
  void ReleaseHeld();

  // Sets the state of the 8 clusters from lcn (a multiple of 8) on, holding those that become free.
  void SetByte(std::int64_t lcn, std::uint8_t bits);
  // Loads bitmap bytes from lcn (a multiple of 8) on. Nothing more becomes held, and what is held
  // stays so, because dropping a move takes back none of the moves before it. Bits past the end are
  // ignored.
  void Load(std::int64_t lcn, std::span<const std::uint8_t> bytes);
  // Copies bitmap bytes from lcn (a multiple of 8) on; clusters past the end read as 0.
  void Copy(std::int64_t lcn, std::span<std::uint8_t> out) const;

  // What of this has changed.
  BitmapChanges& Changes() { return changes_; }

 private:
  bool Inside(std::int64_t lcn, std::int64_t count) const;
  std::uint64_t ValidBits(std::size_t word) const;
  void Replace(std::size_t word, std::uint64_t bits);
  void Hold(std::size_t word, std::uint64_t bits);
  void ReplaceHolding(std::size_t word, std::uint64_t bits);

  std::int64_t clusters_;
  std::int64_t free_;
  std::vector<std::uint64_t> used_;
  std::vector<std::uint64_t> held_;
  BitmapChanges changes_;
  std::vector<std::size_t> held_words_;  // words of held_ that may be non-zero
  // What became held since the last commit: words of held_ and bits in them.
  std::vector<std::pair<std::size_t, std::uint64_t>> fresh_;
};

}  // namespace vornalux
