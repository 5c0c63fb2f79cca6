// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/image/fat/directory_entry.h"
#include "host/image/fat/fat_tree.h"

namespace vornalux {

// Reads and proves a tree, folder after folder. Every cluster is taken by its owner when the
// owner's entry is seen, so that no damage can make the walk endless.
class FatTreeReader {
 public:
  FatTreeReader(BlockDevice& device, const FatGeometry& geometry, const FatTable& table,
                FatTree& tree);

  void Read();

 private:
  struct Piece {
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
  };

  void AddRoot();
  void ReadFolder(std::uint32_t folder);
  std::vector<Piece> PiecesOf(std::uint32_t folder) const;
  void ReadEntry(std::uint32_t folder, std::uint32_t index, RawEntry entry);
  void CheckDots(std::uint32_t folder, std::uint32_t index, RawEntry entry) const;
  void AddChild(std::uint32_t folder, std::uint32_t index, RawEntry entry);
  void CheckClusters(std::uint32_t node);
  std::uint32_t ClusterIn(RawEntry entry) const;

  // Takes the node's chain for it and returns its length.
  std::uint32_t Take(std::uint32_t node);
  [[noreturn]] void TakenTwice(std::uint32_t node, std::uint32_t cluster, std::uint32_t length);
  bool ChainHolds(std::uint32_t node, std::uint32_t cluster, std::uint64_t length) const;
  bool IsAbove(std::uint32_t folder, std::uint32_t node) const;
  [[noreturn]] void Damaged(std::uint32_t node, const std::string& what) const;

  BlockDevice& device_;
  const FatGeometry& geometry_;
  const FatTable& table_;
  FatTree& tree_;
  std::vector<bool> taken_;
  std::vector<std::uint8_t> buffer_;
  LongName long_name_;
  bool end_seen_ = false;
};

}  // namespace vornalux
