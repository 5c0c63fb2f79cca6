// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/image/device/block_device.h"
#include "host/image/fat/fat_geometry.h"
#include "host/image/fat/fat_table.h"

namespace vornalux {

// A file or folder. Its 32-byte entry is number entry of the parent folder, so that it is found
// wherever the folder's clusters lie.
struct FatNode {
  std::uint64_t name_at : 48 = 0;
  std::uint64_t name_length : 16 = 0;
  std::uint32_t parent = 0;
  std::uint32_t entry = 0;
  std::uint32_t first_cluster = 0;  // 0: none
  std::uint32_t size = 0;           // bytes, of a file
  std::uint32_t first_child = 0;    // of a folder; its children follow one another
  std::uint32_t children = 0;
  std::uint8_t attributes = 0;
  // There are entries behind the folder's end mark. Who reads past the mark would find items there
  // that refer to the folder's place.
  bool used_behind_end = false;
};

// All files and folders of a volume, in memory. Node 0 is the root; the order is that of the
// directories, so reading the same tree again numbers it the same.
class FatTree {
 public:
  static constexpr std::uint32_t kRoot = 0;

  // Walks the whole tree and proves what moving clusters relies on: every chain is as long as its
  // file needs and ends, no cluster has two owners, "." and ".." lead where they should. Throws
  // VolumeRefused, which names the path.
  FatTree(BlockDevice& device, const FatGeometry& geometry, const FatTable& table);

  std::uint32_t Size() const { return static_cast<std::uint32_t>(nodes_.size()); }
  FatNode& operator[](std::uint32_t node) { return nodes_[node]; }
  const FatNode& operator[](std::uint32_t node) const { return nodes_[node]; }
  bool IsFolder(std::uint32_t node) const;
  std::string_view Name(std::uint32_t node) const;
  std::string Path(std::uint32_t node) const;
  const std::string& Label() const { return label_; }

 private:
  friend class FatTreeReader;

  std::vector<FatNode> nodes_;
  std::string names_;
  std::string label_;
};

}  // namespace vornalux
