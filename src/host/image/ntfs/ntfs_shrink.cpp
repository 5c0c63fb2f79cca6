// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/ntfs/ntfs_shrink.h"

#include <algorithm>

#include "host/image/ntfs/ntfs_raw_table.h"

namespace vornalux {
namespace {

constexpr std::uint64_t kLastSystemRecord = 11;
constexpr std::size_t kFewRuns = 4;

bool MayBeMoved(const RawRecord& record) {
  const bool system = record.number != 0 && record.number <= kLastSystemRecord &&
                      record.number != raw::kBadClusterRecord && record.base == 0;
  return system && record.runs.size() <= kFewRuns &&
         std::ranges::none_of(record.attributes, [](const RawAttribute& attribute) {
           return attribute.type == raw::kAttributeList;
         });
}

}  // namespace

std::optional<SmallestSize> FindSmallestNtfs(BlockDevice& device, const NtfsGeometry& geometry,
                                             const AllocationMap& in_use,
                                             std::uint32_t bytes_per_sector) {
  RawFileTable table(device, geometry);
  if (!table.Locate().empty()) return std::nullopt;
  SmallestSize smallest;
  std::int64_t end = 0;  // of what is not to be moved
  bool good = true;
  RawRecord record;
  const std::string unread = table.Each([&](std::uint64_t number, std::span<std::uint8_t> bytes) {
    if (!IsFileRecord(bytes) || !InUse(bytes)) return;
    good =
        good && UndoFixups(bytes).empty() && ParseRecord(geometry, number, bytes, record).empty();
    if (!good || MayBeMoved(record)) return;
    for (const RawAttribute& attribute : record.attributes) {
      const bool list = attribute.type == raw::kAttributeList;
      if (list && attribute.end_run - attribute.first_run <= kFewRuns) continue;
      for (std::size_t i = attribute.first_run; i < attribute.end_run; ++i) {
        const ClusterRun& run = record.runs[i];
        if (run.lcn < 0) continue;
        end = std::max(end, run.lcn + run.count);
        smallest.bad_clusters |= number == raw::kBadClusterRecord;
      }
    }
  });
  if (!good || !unread.empty()) return std::nullopt;
  std::int64_t behind = 0;
  for (std::int64_t lcn = end; lcn < geometry.clusters; ++lcn) behind += in_use.Used(lcn) ? 1 : 0;
  // What lies behind has to fit between: in one piece, but for what lies there already.
  std::int64_t between = 0;
  while (end < geometry.clusters && between <= behind) {
    if (in_use.Used(end++)) {
      --behind;
    } else {
      ++between;
    }
  }
  if (end >= geometry.clusters) return std::nullopt;
  smallest.bytes = static_cast<std::uint64_t>(end) * geometry.cluster_size + bytes_per_sector;
  smallest.left_to_move = static_cast<std::uint64_t>(behind) * geometry.cluster_size;
  return smallest;
}

}  // namespace vornalux
