// SPDX-License-Identifier: GPL-2.0-or-later
// What a volume shall hold, before anything is made: folders, files, streams, sizes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "check/content.h"
#include "mkvolume/payload.h"
#include "mkvolume/recipe.h"

namespace vornalux::making {

// count clusters from vcn on.
struct VcnRange {
  std::int64_t vcn = 0;
  std::int64_t count = 0;
};

struct PlannedStream {
  std::u16string name;  // empty: the file's main data
  Payload payload;
  bool sparse = false;
  bool compressed = false;
  bool fixed_size = false;         // not scaled to reach a fill
  std::int64_t exact_extents = 0;  // 0: as the recipe's shares say

  // The parts that have clusters: everything but the holes, which follow from the key.
  std::vector<VcnRange> Allocated(std::uint32_t cluster) const;
  std::int64_t Clusters(std::uint32_t cluster) const;
};

struct PlannedItem {
  std::u16string name;
  std::size_t parent = 0;  // index in Tree::items
  bool is_folder = false;
  std::vector<PlannedStream> streams;  // of a file: the main one first

  struct Link {
    std::size_t parent = 0;
    std::u16string name;
  };
  std::vector<Link> links;  // further names
  bool dos_name = false;    // with a DOS-only name beside the long one
};

struct Tree {
  std::vector<PlannedItem> items;  // the root first, each folder before what it holds

  // "/folder/name", "/" for the root; UTF-8.
  std::string PathOf(std::size_t item) const;
  std::string PathOf(std::size_t parent, const std::u16string& name) const;
  // Which items lie in which folder.
  std::vector<std::vector<std::size_t>> Children() const;
};

Tree PlanTree(const Recipe& recipe, std::uint32_t cluster);

// Scales the sizes of ordinary files so that all streams that need clusters take about as many as
// wanted. resident: streams up to this many bytes need none.
void ScaleTree(Tree& tree, std::uint32_t cluster, std::uint64_t resident, std::int64_t wanted);
std::int64_t ClustersOf(const Tree& tree, std::uint32_t cluster, std::uint64_t resident);

// How many extents a stream or folder of so many clusters shall have; draws from its key.
std::int64_t PiecesFor(const Recipe& recipe, std::uint64_t key, bool is_folder,
                       std::int64_t clusters);

// The stream's line under each name of its file.
void AddToManifest(const Tree& tree, std::size_t item, const PlannedStream& stream,
                   const std::string& sha256, Manifest& manifest);

}  // namespace vornalux::making
