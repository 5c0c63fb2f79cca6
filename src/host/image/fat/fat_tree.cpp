// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/fat/fat_tree.h"

#include "host/image/device/in_memory.h"
#include "host/image/fat/fat_tree_reader.h"
#include "platform/types.h"

namespace vornalux {

FatTree::FatTree(BlockDevice& device, const FatGeometry& geometry, const FatTable& table) {
  FatTreeReader(device, geometry, table, *this).Read();
  nodes_.shrink_to_fit();
  names_.shrink_to_fit();
}

bool FatTree::IsFolder(std::uint32_t node) const {
  return (nodes_[node].attributes & attribute::kDirectory) != 0;
}

std::string_view FatTree::Name(std::uint32_t node) const {
  return std::string_view(names_).substr(InMemory(nodes_[node].name_at), nodes_[node].name_length);
}

std::string FatTree::Path(std::uint32_t node) const {
  if (node == kRoot) return "\\";
  std::vector<std::uint32_t> way;
  for (; node != kRoot; node = nodes_[node].parent) way.push_back(node);
  std::string path;
  for (auto step = way.rbegin(); step != way.rend(); ++step) path.append("\\").append(Name(*step));
  return path;
}

}  // namespace vornalux
