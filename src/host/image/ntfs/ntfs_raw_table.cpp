// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/ntfs/ntfs_raw_table.h"

#include <algorithm>
#include <cstring>

namespace vornalux {
namespace {

constexpr std::size_t kPiece = std::size_t{1} << 20;  // bytes read at a time

std::int64_t EndOf(std::span<const ClusterRun> runs) {
  return runs.empty() ? 0 : runs.back().vcn + runs.back().count;
}

const RawAttribute* Find(const RawRecord& record, std::uint32_t type, std::int64_t lowest_vcn) {
  const auto found = std::find_if(
      record.attributes.begin(), record.attributes.end(), [&](const RawAttribute& each) {
        return each.type == type && each.name.empty() && each.lowest_vcn == lowest_vcn;
      });
  return found == record.attributes.end() ? nullptr : &*found;
}

}  // namespace

std::error_code ReadStream(BlockDevice& device, const NtfsGeometry& geometry,
                           std::span<const ClusterRun> runs, std::uint64_t offset,
                           std::span<std::uint8_t> out) {
  const std::uint64_t cluster = geometry.cluster_size;
  auto vcn = static_cast<std::int64_t>(offset / cluster);
  std::uint64_t skipped = offset % cluster;
  auto run = std::partition_point(runs.begin(), runs.end(), [&](const ClusterRun& each) {
    return each.vcn + each.count <= vcn;
  });
  for (; !out.empty(); ++run) {
    if (run == runs.end() || run->lcn < 0 || run->vcn > vcn) {
      return std::make_error_code(std::errc::invalid_argument);
    }
    skipped += static_cast<std::uint64_t>(vcn - run->vcn) * cluster;
    const std::uint64_t length = std::min<std::uint64_t>(
        out.size(), static_cast<std::uint64_t>(run->count) * cluster - skipped);
    const auto piece = out.first(static_cast<std::size_t>(length));
    const std::uint64_t place = static_cast<std::uint64_t>(run->lcn) * cluster + skipped;
    if (const std::error_code error = device.Read(place, piece)) return error;
    out = out.subspan(piece.size());
    vcn = run->vcn + run->count;
    skipped = 0;
  }
  return {};
}

RawValue RawValue::Of(const RawRecord& record, const RawAttribute& attribute) {
  RawValue value;
  if (attribute.resident) {
    value.resident.assign(attribute.value.begin(), attribute.value.end());
    value.size = value.resident.size();
  } else {
    value.runs.assign(record.runs.begin() + static_cast<std::ptrdiff_t>(attribute.first_run),
                      record.runs.begin() + static_cast<std::ptrdiff_t>(attribute.end_run));
    value.size = attribute.size;
  }
  return value;
}

std::error_code RawValue::Read(BlockDevice& device, const NtfsGeometry& geometry,
                               std::uint64_t offset, std::span<std::uint8_t> out) const {
  if (resident.empty()) return ReadStream(device, geometry, runs, offset, out);
  if (offset > resident.size() || out.size() > resident.size() - offset) {
    return std::make_error_code(std::errc::invalid_argument);
  }
  std::copy_n(resident.begin() + static_cast<std::ptrdiff_t>(offset), out.size(), out.begin());
  return {};
}

std::string RawFileTable::Load(std::uint64_t offset, std::uint64_t number, RawRecord& record) {
  buffer_.resize(geometry_.record_size);
  const std::string name = "record " + std::to_string(number) + " of $MFT ";
  if (const std::error_code error = ReadStream(device_, geometry_, runs_, offset, buffer_)) {
    return name + "cannot be read: " + error.message();
  }
  if (!IsFileRecord(buffer_) || !InUse(buffer_)) return name + "is no file record in use";
  std::string wrong = UndoFixups(buffer_);
  if (wrong.empty()) wrong = ParseRecord(geometry_, number, buffer_, record);
  return wrong.empty() ? wrong : name + "is damaged: " + wrong;
}

std::string RawFileTable::Locate() {
  const std::int64_t clusters = geometry_.ClustersOf(geometry_.record_size);
  if (geometry_.mft_lcn > geometry_.clusters - clusters) return "$MFT lies outside the volume";
  runs_ = {{0, geometry_.mft_lcn, clusters}};
  RawRecord first;
  std::string wrong = Load(0, 0, first);
  if (wrong.empty()) wrong = LocateFrom(first);
  return wrong;
}

std::string RawFileTable::LocateFrom(const RawRecord& first) {
  runs_.clear();
  const RawAttribute* data = Find(first, raw::kData, 0);
  if (data == nullptr || data->resident) return "$MFT has no runs";
  const std::uint64_t bytes = data->initialized;
  const std::uint64_t size = data->size;
  if (std::string wrong = Add(first, *data); !wrong.empty()) return wrong;
  if (EndOf(runs_) == 0 || runs_[0].lcn != geometry_.mft_lcn) {
    return "$MFT does not begin where the boot sector says";
  }
  if (const RawAttribute* attribute = Find(first, raw::kAttributeList, 0)) {
    const RawValue list = RawValue::Of(first, *attribute);
    if (list.size > kLongestList) return "the attribute list of $MFT has an impossible length";
    std::vector<std::uint8_t> content(static_cast<std::size_t>(list.size));
    std::vector<ListEntry> entries;
    if (list.Read(device_, geometry_, 0, content) || !ParseList(content, entries)) {
      return "the attribute list of $MFT cannot be read";
    }
    for (const ListEntry& entry : entries) {
      if (entry.type != raw::kData || !entry.name.empty() || entry.lowest_vcn == 0) continue;
      if (std::string wrong = AddPiece(entry); !wrong.empty()) return wrong;
    }
  }
  const auto held = static_cast<std::uint64_t>(EndOf(runs_)) * geometry_.cluster_size;
  if (bytes > size || size > held) return "$MFT has sizes that do not fit its runs";
  records_ = bytes / geometry_.record_size;
  return {};
}

// A record with runs of $MFT is found through the runs before it.
std::string RawFileTable::AddPiece(const ListEntry& entry) {
  const std::uint64_t number = raw::RecordOf(entry.reference);
  if (number >= static_cast<std::uint64_t>(geometry_.clusters) * geometry_.cluster_size) {
    return "the attribute list of $MFT names an impossible record";
  }
  RawRecord record;
  std::string wrong = Load(number * geometry_.record_size, number, record);
  if (!wrong.empty()) return wrong;
  const RawAttribute* data = Find(record, raw::kData, entry.lowest_vcn);
  if (data == nullptr || data->resident || data->lowest_vcn != EndOf(runs_)) {
    return "the runs of $MFT do not follow each other";
  }
  return Add(record, *data);
}

std::string RawFileTable::Add(const RawRecord& record, const RawAttribute& data) {
  for (std::size_t i = data.first_run; i < data.end_run; ++i) {
    if (record.runs[i].lcn < 0) return "$MFT has a hole";
    runs_.push_back(record.runs[i]);
  }
  // Else the same clusters could be read over and over.
  return EndOf(runs_) > geometry_.clusters ? "$MFT is larger than the volume" : "";
}

bool RawFileTable::HasFilePastEnd(std::uint64_t number) {
  buffer_.resize(geometry_.record_size);
  return !ReadStream(device_, geometry_, runs_, number * geometry_.record_size, buffer_) &&
         IsFileRecord(buffer_) && InUse(buffer_);
}

std::string RawFileTable::Each(const Visit& visit) {
  const std::size_t size = geometry_.record_size;
  const std::uint64_t at_a_time = std::max<std::uint64_t>(kPiece / size, 1);
  for (std::uint64_t first = 0; first < records_; first += at_a_time) {
    const std::uint64_t count = std::min(at_a_time, records_ - first);
    buffer_.resize(static_cast<std::size_t>(count) * size);
    const bool failed =
        static_cast<bool>(ReadStream(device_, geometry_, runs_, first * size, buffer_));
    for (std::uint64_t i = 0; i < count; ++i) {
      const auto record = std::span(buffer_).subspan(static_cast<std::size_t>(i) * size, size);
      const std::uint64_t number = first + i;
      if (failed) {
        if (const auto error = ReadStream(device_, geometry_, runs_, number * size, record)) {
          return "record " + std::to_string(number) + " cannot be read: " + error.message();
        }
      }
      visit(number, record);
    }
  }
  return {};
}

}  // namespace vornalux
