// SPDX-License-Identifier: GPL-2.0-or-later
#include <algorithm>

#include "check/ntfs_files.h"

namespace vornalux::checking {
namespace {

void Append(std::vector<CheckedExtent>& extents, const CheckedExtent& run) {
  if (!extents.empty()) {
    CheckedExtent& last = extents.back();
    const bool adjoins = last.lcn < 0 ? run.lcn < 0 : run.lcn == last.lcn + last.count;
    if (last.vcn + last.count == run.vcn && adjoins) {
      last.count += run.count;
      return;
    }
  }
  extents.push_back(run);
}

// Compressed units are stored in their first clusters, with holes after them.
bool UnitsInOrder(const NtfsStream& stream) {
  const std::int64_t unit = std::int64_t{1} << stream.compression_unit;
  for (std::size_t i = 0; i + 1 < stream.extents.size(); ++i) {
    const CheckedExtent& hole = stream.extents[i];
    const std::int64_t end = hole.vcn + hole.count;
    if (hole.lcn < 0 && end % unit != 0 && stream.extents[i + 1].lcn >= 0) return false;
  }
  return true;
}

class StreamJudge {
 public:
  StreamJudge(const NtfsGeometry& geometry, std::uint64_t record, const NtfsStream& stream,
              Problems& problems)
      : geometry_(geometry), record_(record), stream_(stream), problems_(problems) {}

  void CheckSizes(std::int64_t end_vcn, std::uint64_t compressed_size);

 private:
  template <typename... Parts>
  void Fault(const Parts&... parts) {
    problems_.Add(NameStream(record_, stream_.type, stream_.name), ": ", parts...);
  }
  void CheckHoles(std::uint64_t compressed_size);

  const NtfsGeometry& geometry_;
  std::uint64_t record_;
  const NtfsStream& stream_;
  Problems& problems_;
};

void StreamJudge::CheckSizes(std::int64_t end_vcn, std::uint64_t compressed_size) {
  const std::uint64_t allocated = static_cast<std::uint64_t>(end_vcn) * geometry_.cluster;
  if (stream_.allocated != allocated) {
    Fault("allocated size ", stream_.allocated, ", but its runs have ", allocated);
  }
  if (stream_.size > stream_.allocated) {
    Fault("size ", stream_.size, " above its allocated size ", stream_.allocated);
  }
  if (stream_.initialized > stream_.size) {
    Fault("initialized size ", stream_.initialized, " above its size ", stream_.size);
  }
  CheckHoles(compressed_size);
}

void StreamJudge::CheckHoles(std::uint64_t compressed_size) {
  std::int64_t real = 0;
  bool holes = false;
  for (const CheckedExtent& extent : stream_.extents) {
    if (extent.lcn < 0) {
      holes = true;
    } else {
      real += extent.count;
    }
  }
  const bool may_have_holes = stream_.Compressed() || stream_.Sparse();
  // $BadClus's list of bad clusters is one great hole on every volume, flagged or not.
  if (holes && !may_have_holes && record_ != ntfs::kBadClusterRecord) {
    Fault("has holes, but is neither sparse nor compressed");
  }
  if (!may_have_holes || record_ == ntfs::kBadClusterRecord) return;
  const std::uint64_t taken = static_cast<std::uint64_t>(real) * geometry_.cluster;
  if (compressed_size != taken) {
    Fault("takes ", taken, " bytes, but says ", compressed_size);
  }
  if (!stream_.Compressed()) return;
  if (stream_.compression_unit == 0 || stream_.compression_unit > 8) {
    Fault("compressed in units of 2^", int{stream_.compression_unit}, " clusters");
  } else if (!UnitsInOrder(stream_)) {
    Fault("a compressed unit has clusters after its hole");
  }
}

}  // namespace

std::string NameStream(std::uint64_t record, std::uint32_t type, const std::u16string& name) {
  std::string text = "record " + std::to_string(record) + ", type " + std::to_string(type);
  if (!name.empty()) text += " \"" + ToUtf8(name) + "\"";
  return text;
}

NtfsStream JoinPieces(const NtfsGeometry& geometry, std::uint64_t record,
                      const std::vector<const NtfsAttribute*>& pieces, Problems& problems) {
  const NtfsAttribute& first = *pieces.front();
  NtfsStream stream;
  stream.type = first.type;
  stream.name = first.name;
  stream.flags = first.flags;
  stream.resident = first.resident;
  stream.value = first.value;
  stream.compression_unit = first.compression_unit;
  stream.allocated = first.allocated;
  stream.size = first.size;
  stream.initialized = first.initialized;
  if (first.resident) {
    if (pieces.size() > 1) {
      problems.Add(NameStream(record, first.type, first.name), ": stands there twice");
    }
    return stream;
  }
  std::int64_t end = 0;
  for (const NtfsAttribute* piece : pieces) {
    if (piece->resident || piece->lowest_vcn != end) {
      problems.Add(NameStream(record, first.type, first.name), ": goes on at VCN ",
                   piece->lowest_vcn, " in record ", piece->record, ", but VCN ", end, " is due");
      continue;
    }
    for (const CheckedExtent& run : piece->runs) Append(stream.extents, run);
    end = piece->end_vcn;
  }
  StreamJudge(geometry, record, stream, problems).CheckSizes(end, first.compressed_size);
  return stream;
}

}  // namespace vornalux::checking
