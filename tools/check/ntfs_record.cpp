// SPDX-License-Identifier: GPL-2.0-or-later
#include "check/ntfs_record.h"

#include <algorithm>

namespace vornalux::checking {
namespace {

constexpr std::size_t kStride = 512;  // fixups protect this many bytes each
// Far beyond any volume, and far from overflow when two are added.
constexpr std::int64_t kVcnLimit = std::int64_t{1} << 52;

// Reads the attributes of one record; every problem names the record and the attribute's offset.
class AttributeReader {
 public:
  AttributeReader(const NtfsGeometry& geometry, Bytes bytes, NtfsRecord& record, Problems& problems)
      : geometry_(geometry), bytes_(bytes), record_(record), problems_(problems) {}

  void ReadAll(std::size_t at, std::size_t used);

 private:
  template <typename... Parts>
  bool Fault(std::size_t at, const Parts&... parts) {
    problems_.Add("record ", record_.number, ", attribute at ", at, ": ", parts...);
    return false;
  }
  bool ReadOne(std::size_t at, Bytes raw);
  bool ReadResident(std::size_t at, Bytes raw, NtfsAttribute& attribute);
  bool ReadNonResident(std::size_t at, Bytes raw, NtfsAttribute& attribute);
  bool ReadRuns(std::size_t at, Bytes mapping, NtfsAttribute& attribute);
  void CheckOrder(std::size_t at, const NtfsAttribute& attribute);

  const NtfsGeometry& geometry_;
  Bytes bytes_;
  NtfsRecord& record_;
  Problems& problems_;
};

void AttributeReader::ReadAll(std::size_t at, std::size_t used) {
  while (Inside(at, 4, used)) {
    const std::uint32_t type = Load32(bytes_, at);
    if (type == ntfs::kEnd) {
      if (at + 8 != used) Fault(at, "the record's used size is ", used, ", but it ends here");
      return;
    }
    const std::uint32_t length = Load32(bytes_, at + 4);
    if (length < 24 || length % 8 != 0 || !Inside(at, length, used)) {
      Fault(at, "impossible length ", length);
      return;
    }
    if (!ReadOne(at, Part(bytes_, at, length))) return;
    at += length;
  }
  Fault(at, "no end mark");
}

bool AttributeReader::ReadOne(std::size_t at, Bytes raw) {
  NtfsAttribute attribute;
  attribute.record = record_.number;
  attribute.type = Load32(raw, 0);
  attribute.resident = Load8(raw, 8) == 0;
  attribute.flags = Load16(raw, 12);
  attribute.instance = Load16(raw, 14);
  const std::size_t name_bytes = std::size_t{2} * Load8(raw, 9);
  const std::size_t name_at = Load16(raw, 10);
  if (name_bytes > 0) {
    if (!Inside(name_at, name_bytes, raw.size())) return Fault(at, "its name leaves it");
    attribute.name = LoadUtf16(raw.subspan(name_at, name_bytes));
  }
  const bool good =
      attribute.resident ? ReadResident(at, raw, attribute) : ReadNonResident(at, raw, attribute);
  if (!good) return false;
  CheckOrder(at, attribute);
  record_.attributes.push_back(std::move(attribute));
  return true;
}

bool AttributeReader::ReadResident(std::size_t at, Bytes raw, NtfsAttribute& attribute) {
  const std::uint32_t length = Load32(raw, 16);
  const std::uint16_t value_at = Load16(raw, 20);
  if (!Inside(value_at, length, raw.size())) return Fault(at, "its value leaves it");
  attribute.value = raw.subspan(value_at, length);
  attribute.size = attribute.initialized = length;
  return true;
}

bool AttributeReader::ReadNonResident(std::size_t at, Bytes raw, NtfsAttribute& attribute) {
  if (raw.size() < 64) return Fault(at, "too short for one that is not resident");
  const std::uint64_t lowest = Load64(raw, 16);
  const std::uint64_t end = Load64(raw, 24) + 1;  // -1 when there are no clusters
  if (lowest >= kVcnLimit || end > kVcnLimit || (end < lowest)) {
    return Fault(at, "impossible VCNs ", lowest, " to ", end);
  }
  attribute.lowest_vcn = static_cast<std::int64_t>(lowest);
  attribute.end_vcn = static_cast<std::int64_t>(end);
  attribute.compression_unit = Load8(raw, 34);
  if (lowest == 0) {
    attribute.allocated = Load64(raw, 40);
    attribute.size = Load64(raw, 48);
    attribute.initialized = Load64(raw, 56);
    if (attribute.compression_unit != 0 || (attribute.flags & ntfs::kSparse) != 0) {
      if (raw.size() < 72) return Fault(at, "too short for one that is compressed or sparse");
      attribute.compressed_size = Load64(raw, 64);
    }
  }
  const std::uint16_t mapping_at = Load16(raw, 32);
  if (mapping_at < 64 || mapping_at >= raw.size()) return Fault(at, "its mapping leaves it");
  return ReadRuns(at, raw.subspan(mapping_at), attribute);
}

bool AttributeReader::ReadRuns(std::size_t at, Bytes mapping, NtfsAttribute& attribute) {
  std::int64_t vcn = attribute.lowest_vcn;
  std::int64_t lcn = 0;
  std::size_t i = 0;
  while (i < mapping.size() && mapping[i] != 0) {
    const std::size_t count_width = mapping[i] & 15U;
    const std::size_t lcn_width = mapping[i] >> 4;
    if (count_width == 0 || count_width > 8 || lcn_width > 8 ||
        !Inside(i + 1, count_width + lcn_width, mapping.size())) {
      return Fault(at, "run ", attribute.runs.size(), " cannot be read");
    }
    const std::uint64_t count = LoadNumber(mapping, i + 1, count_width);
    std::uint64_t delta = LoadNumber(mapping, i + 1 + count_width, lcn_width);
    if (lcn_width > 0 && lcn_width < 8 && (delta >> (8 * lcn_width - 1)) != 0) {
      delta |= ~std::uint64_t{0} << (8 * lcn_width);
    }
    i += 1 + count_width + lcn_width;
    if (count == 0 || count > static_cast<std::uint64_t>(kVcnLimit - vcn)) {
      return Fault(at, "run ", attribute.runs.size(), " has ", count, " clusters");
    }
    const auto clusters = static_cast<std::int64_t>(count);
    if (lcn_width > 0) {
      lcn = static_cast<std::int64_t>(static_cast<std::uint64_t>(lcn) + delta);
      if (lcn < 0 || lcn >= geometry_.clusters || clusters > geometry_.clusters - lcn) {
        return Fault(at, "run ", attribute.runs.size(), " leaves the volume: LCN ", lcn, ", ",
                     count, " clusters");
      }
    }
    attribute.runs.push_back({vcn, lcn_width > 0 ? lcn : -1, clusters});
    vcn += clusters;
  }
  if (i == mapping.size()) return Fault(at, "its mapping has no end");
  if (vcn != attribute.end_vcn) {
    return Fault(at, "its runs end at VCN ", vcn, " instead of ", attribute.end_vcn);
  }
  return true;
}

void AttributeReader::CheckOrder(std::size_t at, const NtfsAttribute& attribute) {
  for (const NtfsAttribute& other : record_.attributes) {
    if (other.instance == attribute.instance) {
      Fault(at, "instance ", attribute.instance, " is used twice");
    }
  }
  if (!record_.attributes.empty() && record_.attributes.back().type > attribute.type) {
    Fault(at, "type ", attribute.type, " out of order");
  }
}

}  // namespace

std::string UndoFixups(std::span<std::uint8_t> record) {
  const std::size_t at = Load16(record, 4);
  const std::size_t count = Load16(record, 6);
  if (count != record.size() / kStride + 1 || at % 2 != 0 || at + 2 * count > kStride - 2) {
    return "impossible fixup array";
  }
  for (std::size_t i = 1; i < count; ++i) {
    const std::size_t end = i * kStride - 2;
    if (Load16(record, end) != Load16(record, at)) {
      return "fixup " + std::to_string(i) + " does not match: a torn write";
    }
    record[end] = record[at + 2 * i];
    record[end + 1] = record[at + 2 * i + 1];
  }
  return {};
}

NtfsRecord ParseNtfsRecord(const NtfsGeometry& geometry, std::uint64_t number, Bytes bytes,
                           Problems& problems) {
  NtfsRecord record;
  record.number = number;
  record.sequence = Load16(bytes, 0x10);
  record.links = Load16(bytes, 0x12);
  record.flags = Load16(bytes, 0x16);
  record.base = Load64(bytes, 0x20);
  record.in_use = (record.flags & ntfs::kRecordInUse) != 0;
  if (!record.in_use) return record;
  const std::size_t first = Load16(bytes, 0x14);
  const std::size_t used = Load32(bytes, 0x18);
  if (Load32(bytes, 0x1C) != bytes.size() || used > bytes.size() || used % 8 != 0 ||
      first % 8 != 0 || first < 0x2A || first >= used) {
    problems.Add("record ", number, ": impossible sizes in its header");
    return record;
  }
  // The older, shorter header has no number of its own.
  if (Load16(bytes, 4) >= 0x30 && Load32(bytes, 0x2C) != (number & 0xFFFFFFFF)) {
    problems.Add("record ", number, ": calls itself ", Load32(bytes, 0x2C));
  }
  AttributeReader(geometry, bytes, record, problems).ReadAll(first, used);
  return record;
}

}  // namespace vornalux::checking
