// SPDX-License-Identifier: GPL-2.0-or-later
// How large planned streams are, and which parts of them have clusters.
#include <algorithm>
#include <cmath>
#include <numeric>

#include "mkvolume/key.h"
#include "mkvolume/tree.h"

namespace vornalux::making {
namespace {

std::int64_t WholeClusters(std::uint64_t size, std::uint32_t cluster) {
  return static_cast<std::int64_t>((size + cluster - 1) / cluster);
}

// Holes of a sparse stream end at multiples of this, as Windows makes them.
constexpr std::int64_t kSparseUnit = 4;

bool HasClusters(const PlannedStream& stream, std::uint64_t resident) {
  return stream.payload.size > resident || stream.sparse;
}

std::uint64_t Scaled(const PlannedStream& stream, double factor, std::uint64_t resident) {
  const double size = std::floor(static_cast<double>(stream.payload.size) * factor);
  // Stays a stream with clusters; FAT's limit holds for every kind, it is large enough.
  const double least = static_cast<double>(resident) + 1;
  return static_cast<std::uint64_t>(std::clamp(size, least, 4294967295.0));
}

std::int64_t ClustersScaled(const Tree& tree, std::uint32_t cluster, std::uint64_t resident,
                            double factor) {
  std::int64_t total = 0;
  for (const PlannedItem& item : tree.items) {
    for (const PlannedStream& stream : item.streams) {
      if (!HasClusters(stream, resident)) continue;
      if (stream.fixed_size || stream.sparse) {
        total += stream.Clusters(cluster);
      } else {
        total += WholeClusters(Scaled(stream, factor, resident), cluster);
      }
    }
  }
  return total;
}

}  // namespace

std::vector<VcnRange> PlannedStream::Allocated(std::uint32_t cluster) const {
  const std::int64_t clusters = WholeClusters(payload.size, cluster);
  std::vector<VcnRange> ranges;
  if (!sparse) {
    if (clusters > 0) ranges.push_back({0, clusters});
    return ranges;
  }
  SeededRandom random(KeyOf(payload.key, "holes"));
  for (std::int64_t vcn = kSparseUnit * random.Between(0, 2); vcn < clusters;) {
    const std::int64_t count =
        std::min(kSparseUnit * random.Between(1, 1 + clusters / 16), clusters - vcn);
    ranges.push_back({vcn, count});
    vcn += count + kSparseUnit * random.Between(1, 1 + clusters / 16);
  }
  return ranges;
}

std::int64_t PlannedStream::Clusters(std::uint32_t cluster) const {
  const std::vector<VcnRange> ranges = Allocated(cluster);
  return std::accumulate(ranges.begin(), ranges.end(), std::int64_t{0},
                         [](std::int64_t sum, const VcnRange& range) { return sum + range.count; });
}

std::int64_t ClustersOf(const Tree& tree, std::uint32_t cluster, std::uint64_t resident) {
  return ClustersScaled(tree, cluster, resident, 1);
}

void ScaleTree(Tree& tree, std::uint32_t cluster, std::uint64_t resident, std::int64_t wanted) {
  double low = 0;
  double high = 1;
  while (high < 1e6 && ClustersScaled(tree, cluster, resident, high) < wanted) high *= 2;
  for (int round = 0; round < 30; ++round) {
    const double middle = (low + high) / 2;
    (ClustersScaled(tree, cluster, resident, middle) <= wanted ? low : high) = middle;
  }
  for (PlannedItem& item : tree.items) {
    for (PlannedStream& stream : item.streams) {
      if (!HasClusters(stream, resident) || stream.fixed_size || stream.sparse) continue;
      stream.payload.size = Scaled(stream, low, resident);
    }
  }
}

std::int64_t PiecesFor(const Recipe& recipe, std::uint64_t key, bool is_folder,
                       std::int64_t clusters) {
  SeededRandom random(KeyOf(key, "pieces"));
  const double share = is_folder ? recipe.fragmented_folders : recipe.fragmented;
  if (clusters < 2 || !random.Chance(share)) return 1;
  const std::int64_t pieces = 2 + random.Between(0, std::int64_t{2} * (recipe.pieces - 2));
  return std::min(pieces, clusters);
}

}  // namespace vornalux::making
