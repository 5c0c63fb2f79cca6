// SPDX-License-Identifier: GPL-2.0-or-later
#include "volume/volume_census.h"

#include <algorithm>

#include "volume/tree_visit.h"

namespace vornalux {

std::vector<CensusEntry> TakeCensus(Platform& platform, ExtentReader& extents,
                                    const RunFlags& flags, const std::string& folder,
                                    bool streams) {
  std::vector<CensusEntry> entries;
  const auto add = [&](const std::string& path, bool is_folder) {
    ExtentRecord record = extents.ReadExtents(path, false, true);
    const bool has_clusters = std::any_of(record.extents.begin(), record.extents.end(),
                                          [](const Extent& extent) { return extent.Lcn >= 0; });
    if (!record.opened || !has_clusters) return;
    record.extents.shrink_to_fit();
    entries.push_back({path, is_folder, std::move(record.extents)});
  };
  VisitTree(platform, flags, folder, nullptr, [&](const std::string& path, bool is_folder) {
    add(path, is_folder);
    if (is_folder || !streams || !extents.QueryStreams(path)) return;
    for (const std::string& stream : extents.StreamList) add(stream, false);
  });
  return entries;
}

}  // namespace vornalux
