// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "platform/files.h"
#include "volume/owned_handle.h"

namespace vornalux {

// Lifts the path length limit and keeps names as they are.
inline std::string LongPath(const std::string& path) { return "\\\\?\\" + path; }

// Where one item lies, in VCN order.
struct ExtentRecord {
  std::vector<Extent> extents;
  bool opened = false;

  std::int32_t Count() const { return static_cast<std::int32_t>(extents.size()); }
  bool Fragmented() const { return extents.size() > 1; }
  // 0 for an item without clusters.
  std::int64_t FirstLcn() const { return extents.empty() ? 0 : extents.front().Lcn; }
  std::int64_t SizeInClusters() const { return extents.empty() ? 0 : extents.back().NextVcn; }

  // The extent that a VCN lies in, or the end.
  auto At(std::int64_t vcn) const {
    return std::ranges::upper_bound(extents, vcn, {}, &Extent::NextVcn);
  }
  // visit(lcn, clusters) for what has clusters among [vcn, vcn + count).
  template <typename Visitor>
  void EachRun(std::int64_t vcn, std::int64_t count, Visitor visit) const {
    const std::int64_t end = vcn + count;
    for (auto extent = At(vcn); vcn < end && extent != extents.end(); ++extent) {
      const std::int64_t first = extent == extents.begin() ? 0 : std::prev(extent)->NextVcn;
      const std::int64_t to = std::min(extent->NextVcn, end);
      if (extent->Lcn >= 0) visit(extent->Lcn + vcn - first, to - vcn);
      vcn = to;
    }
  }
};

// Reads extents by full path (without prefix). An answer that makes no progress ends the reading
// with what was gathered.
class ExtentReader {
 public:
  explicit ExtentReader(Files& files) : files_(files) {}

  std::int32_t LockedCount = 0;         // items that could not be opened when asked to be counted
  std::vector<std::string> StreamList;  // named streams found by the last QueryStreams, as paths

  ExtentRecord ReadExtents(const std::string& path, bool first_chunk_only, bool count_locked);

  // The Lcn of the first extent that has clusters; -1 when there is none.
  std::int64_t FirstAllocatedLcn(const std::string& path);

  // True (-1) when the file has named data streams.
  Boolean QueryStreams(const std::string& path);

 private:
  OwnedFile Open(const std::string& path, FileFlags first_attempt);

  Files& files_;
  ExtentChunk chunk_;  // its memory serves each reading
};

}  // namespace vornalux
