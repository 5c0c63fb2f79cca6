// SPDX-License-Identifier: GPL-2.0-or-later
#include "volume/extent_reader.h"

#include <cstdint>
#include <limits>
#include <utility>

namespace vornalux {
namespace {

constexpr std::size_t kExtentsPerChunk = 1024;

// Far above any volume, far enough below the type's limit that sums of an LCN and a VCN are safe.
constexpr std::int64_t kMostClusters = std::int64_t{1} << 60;
// No volume that is worked on has more. Windows' FAT gives its root folder, which has no clusters,
// a place above.
constexpr std::int64_t kLastLcn = std::numeric_limits<std::int32_t>::max();

bool Plausible(const Extent& extent, std::int64_t first_vcn) {
  return extent.NextVcn > first_vcn && extent.NextVcn <= kMostClusters && extent.Lcn >= -1 &&
         extent.Lcn <= kLastLcn;
}

}  // namespace

OwnedFile ExtentReader::Open(const std::string& path, FileFlags first_attempt) {
  // The last attempt also opens folders and, with the backup privilege, files held by others.
  const std::pair<FileAccess, FileFlags> attempts[] = {
      {FileAccess::ReadAttributes, first_attempt},
      {FileAccess::GenericRead, FileFlags::NoBuffering},
      {FileAccess::GenericRead, FileFlags::BackupSemantics},
  };
  const std::string long_path = LongPath(path);
  for (const auto& [access, flags] : attempts) {
    const OpenedFile opened = files_.OpenPath(long_path, access, flags);
    if (opened.handle != kInvalidHandle) return {files_, opened.handle};
  }
  return {};
}

ExtentRecord ExtentReader::ReadExtents(const std::string& path, bool first_chunk_only,
                                       bool count_locked) {
  ExtentRecord record;
  if (path.empty()) return record;
  const OwnedFile file = Open(path, FileFlags::NoBuffering);
  if (!file) {
    if (count_locked) ++LockedCount;
    return record;
  }
  record.opened = true;
  std::int64_t starting_vcn = 0;
  for (ErrorCode result = error::kMoreData; result == error::kMoreData;) {
    chunk_.extents.clear();
    result = files_.RetrievalPointers(file.get(), starting_vcn, kExtentsPerChunk, chunk_);
    if (result != error::kSuccess && result != error::kMoreData) break;
    const std::int64_t before = starting_vcn;
    for (const Extent& extent : chunk_.extents) {
      if (!Plausible(extent, starting_vcn)) return record;
      record.extents.push_back(extent);
      starting_vcn = extent.NextVcn;
    }
    if (starting_vcn == before || first_chunk_only) break;
  }
  return record;
}

std::int64_t ExtentReader::FirstAllocatedLcn(const std::string& path) {
  for (const Extent& extent : ReadExtents(path, false, false).extents) {
    if (extent.Lcn != -1) return extent.Lcn;
  }
  return -1;
}

Boolean ExtentReader::QueryStreams(const std::string& path) {
  StreamList.clear();
  const OwnedFile file = Open(path, FileFlags::None);
  if (!file) return False;
  std::vector<std::string> names;
  if (files_.StreamNames(file.get(), names) != error::kSuccess) return False;
  for (const std::string& name : names) {
    if (name != "::$DATA" && name != ":encryptable:$DATA") StreamList.push_back(path + name);
  }
  return ToBoolean(!StreamList.empty());
}

}  // namespace vornalux
