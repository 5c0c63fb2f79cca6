// SPDX-License-Identifier: GPL-2.0-or-later
#include "check/ntfs_files.h"

#include <algorithm>
#include <map>
#include <tuple>

#include "check/ntfs_stream.h"

namespace vornalux::checking {
namespace {

constexpr std::uint32_t kFileMagic = 0x454C4946;  // "FILE"
constexpr std::uint64_t kListLimit = 16U << 20;   // far beyond what any driver accepts

// For a list read ahead of its turn; what is wrong with it is reported with the other attributes.
NtfsStream JoinQuietly(const NtfsGeometry& geometry, const NtfsAttribute& attribute) {
  std::vector<std::string> ignored;
  Problems none(ignored, 0);
  return JoinPieces(geometry, attribute.record, {&attribute}, none);
}

}  // namespace

const NtfsStream* NtfsFile::Find(std::uint32_t type, const std::u16string& name) const {
  const auto found = std::find_if(streams.begin(), streams.end(), [&](const NtfsStream& stream) {
    return stream.type == type && stream.name == name;
  });
  return found == streams.end() ? nullptr : &*found;
}

NtfsFiles::NtfsFiles(const RawNtfsVolume& volume, Problems& problems)
    : volume_(volume), problems_(problems) {
  if (!LoadTable()) return;
  ParseRecords();
  Assemble();
  CheckMirror();
  CheckRecordUse();
}

const NtfsFile* NtfsFiles::Find(std::uint64_t record) const {
  const auto found =
      std::lower_bound(files_.begin(), files_.end(), record,
                       [](const NtfsFile& file, std::uint64_t n) { return file.number < n; });
  return found == files_.end() || found->number != record ? nullptr : &*found;
}

bool NtfsFiles::ReadTableRecord(std::uint64_t number, std::vector<std::uint8_t>& bytes) const {
  bytes.resize(volume_.geometry.record);
  return ReadStream(volume_, table_extents_, number * bytes.size(), bytes) &&
         Load32(bytes, 0) == kFileMagic && UndoFixups(bytes).empty();
}

bool NtfsFiles::LoadTable() {
  const std::uint32_t size = volume_.geometry.record;
  std::vector<std::uint8_t> bytes(size);
  if (!volume_.ReadClusters(volume_.geometry.mft_lcn, 0, bytes) || Load32(bytes, 0) != kFileMagic) {
    problems_.Add("$MFT: its own record cannot be read at LCN ", volume_.geometry.mft_lcn);
    return false;
  }
  const std::string fault = UndoFixups(bytes);
  if (!fault.empty()) {
    problems_.Add("$MFT: its own record: ", fault);
    return false;
  }
  const NtfsRecord first = ParseNtfsRecord(volume_.geometry, 0, bytes, problems_);
  if (!LoadTablePieces(first)) return false;
  std::int64_t clusters = 0;
  for (const CheckedExtent& extent : table_extents_) {
    if (extent.lcn < 0) {
      problems_.Add("$MFT: has a hole at VCN ", extent.vcn);
      return false;
    }
    clusters += extent.count;  // of at most 32 records' runs: no overflow
    if (clusters > volume_.geometry.clusters) {
      problems_.Add("$MFT: larger than the volume");
      return false;
    }
  }
  const std::uint64_t allocated = static_cast<std::uint64_t>(clusters) * volume_.geometry.cluster;
  if (table_size_ > allocated || table_size_ < ntfs::kFirstReserved * size) {
    problems_.Add("$MFT: has ", table_size_, " bytes in ", allocated, " allocated ones");
    return false;
  }
  table_.resize(table_size_ / size * size);
  if (!ReadStream(volume_, table_extents_, 0, table_)) {
    problems_.Add("$MFT: cannot be read");
    return false;
  }
  const Bytes start = Part(table_, 0, std::size_t{4} * size);
  stored_start_.assign(start.begin(), start.end());
  return true;
}

// The runs of $MFT may themselves be spread over records. Each such record must lie in a part that
// the records before it have already told of, as every driver reads them.
bool NtfsFiles::LoadTablePieces(const NtfsRecord& first) {
  std::vector<NtfsAttribute> pieces;
  std::vector<std::uint8_t> list;
  for (const NtfsAttribute& attribute : first.attributes) {
    if (attribute.type == ntfs::kData && attribute.name.empty()) pieces.push_back(attribute);
    if (attribute.type == ntfs::kAttributeList) {
      const NtfsStream stream = JoinQuietly(volume_.geometry, attribute);
      list = ReadWhole(volume_, stream, kListLimit).value_or(std::vector<std::uint8_t>{});
    }
  }
  if (pieces.size() != 1 || pieces[0].lowest_vcn != 0 || pieces[0].resident) {
    problems_.Add("$MFT: no data attribute in its own record");
    return false;
  }
  table_size_ = pieces[0].size;
  table_initialized_ = pieces[0].initialized;
  table_extents_ = pieces[0].runs;
  std::int64_t end = pieces[0].end_vcn;
  for (std::size_t at = 0; Inside(at, 26, list.size());) {
    const std::uint16_t length = Load16(list, at + 4);
    const std::uint64_t record = ntfs::RecordOf(Load64(list, at + 16));
    if (length < 26) break;  // reported when the list is checked
    if (Load32(list, at) == ntfs::kData && record != 0) {
      std::vector<std::uint8_t> bytes;
      if (!ReadTableRecord(record, bytes)) {
        problems_.Add("$MFT: record ", record, " with runs of its own cannot be reached");
        return false;
      }
      const NtfsRecord parsed = ParseNtfsRecord(volume_.geometry, record, bytes, problems_);
      for (const NtfsAttribute& attribute : parsed.attributes) {
        if (attribute.type != ntfs::kData || attribute.lowest_vcn != end) continue;
        table_extents_.insert(table_extents_.end(), attribute.runs.begin(), attribute.runs.end());
        end = attribute.end_vcn;
      }
    }
    at += length;
  }
  return true;
}

void NtfsFiles::ParseRecords() {
  const std::size_t size = volume_.geometry.record;
  records_.resize(table_.size() / size);
  for (std::size_t number = 0; number < records_.size(); ++number) {
    NtfsRecord& record = records_[number];
    record.number = number;
    const std::span<std::uint8_t> bytes(table_.data() + number * size, size);
    const std::uint32_t magic = Load32(bytes, 0);
    if (number * size >= table_initialized_ || magic == 0) continue;  // never used
    const std::string fault = magic == kFileMagic ? UndoFixups(bytes) : "no file record";
    if (!fault.empty()) {
      problems_.Add("record ", number, ": ", fault);
      continue;
    }
    record = ParseNtfsRecord(volume_.geometry, number, bytes, problems_);
  }
}

void NtfsFiles::CheckMirror() {
  const NtfsFile* mirror = Find(ntfs::kMirrorRecord);
  const NtfsStream* data = mirror == nullptr ? nullptr : mirror->Find(ntfs::kData);
  if (data == nullptr || data->extents.empty()) {
    problems_.Add("$MFTMirr: has no data");
    return;
  }
  if (data->extents[0].lcn != volume_.geometry.mirror_lcn) {
    problems_.Add("$MFTMirr: lies at LCN ", data->extents[0].lcn, ", the boot sector says ",
                  volume_.geometry.mirror_lcn);
  }
  const std::size_t record = volume_.geometry.record;
  if (data->size < 4 * record) {
    problems_.Add("$MFTMirr: has ", data->size, " bytes");
    return;
  }
  // A cluster may hold more than the four records, but those are all that must be kept.
  std::vector<std::uint8_t> copy(4 * record);
  if (!ReadStream(volume_, data->extents, 0, copy)) {
    problems_.Add("$MFTMirr: cannot be read");
    return;
  }
  for (std::size_t i = 0; i < 4; ++i) {
    const auto from = static_cast<std::ptrdiff_t>(i * record);
    const auto to = from + static_cast<std::ptrdiff_t>(record);
    if (!std::equal(copy.begin() + from, copy.begin() + to, stored_start_.begin() + from)) {
      problems_.Add("$MFTMirr: record ", i, " differs from $MFT's");
    }
  }
}

void NtfsFiles::CheckRecordUse() {
  const NtfsFile* table = Find(ntfs::kMftRecord);
  const NtfsStream* bitmap = table == nullptr ? nullptr : table->Find(ntfs::kBitmap);
  const std::uint64_t needed = (records_.size() + 7) / 8;
  const auto bits =
      bitmap == nullptr ? std::nullopt : ReadWhole(volume_, *bitmap, needed + (64U << 10));
  if (!bits || bits->size() < needed) {
    problems_.Add("$MFT's bitmap: missing, too short or unreadable");
    return;
  }
  for (std::size_t number = 0; number < records_.size(); ++number) {
    const bool marked = ((*bits)[number / 8] >> (number % 8) & 1) != 0;
    const bool used = records_[number].in_use;
    if (used && !marked) {
      problems_.Add("$MFT's bitmap: record ", number, " is in use but marked free");
    } else if (marked && !used && number >= ntfs::kFirstUser) {
      problems_.Add("$MFT's bitmap: record ", number, " is free but marked in use");
    }
  }
  for (std::size_t number = records_.size(); number < bits->size() * 8; ++number) {
    if (((*bits)[number / 8] >> (number % 8) & 1) != 0) {
      problems_.Add("$MFT's bitmap: record ", number, " is past the end but marked in use");
      break;
    }
  }
}

void NtfsFiles::Assemble() {
  std::map<std::uint64_t, std::vector<std::uint64_t>> extents;
  for (const NtfsRecord& record : records_) {
    if (!record.in_use || record.base == 0) continue;
    const std::uint64_t base = ntfs::RecordOf(record.base);
    const NtfsRecord* owner = base < records_.size() ? &records_[base] : nullptr;
    if (owner == nullptr || !owner->in_use || owner->base != 0 ||
        owner->sequence != ntfs::SequenceOf(record.base)) {
      problems_.Add("record ", record.number, ": belongs to record ", base,
                    ", which is not its base record");
      continue;
    }
    extents[base].push_back(record.number);
  }
  static const std::vector<std::uint64_t> none;
  for (const NtfsRecord& record : records_) {
    if (!record.in_use || record.base != 0) continue;
    const auto more = extents.find(record.number);
    files_.push_back(AssembleFile(record, more == extents.end() ? none : more->second));
  }
}

NtfsFile NtfsFiles::AssembleFile(const NtfsRecord& base,
                                 const std::vector<std::uint64_t>& extents) {
  NtfsFile file;
  file.number = base.number;
  file.sequence = base.sequence;
  file.links = base.links;
  file.is_folder = (base.flags & ntfs::kRecordIsFolder) != 0;
  std::vector<const NtfsAttribute*> pieces;
  for (const NtfsAttribute& attribute : base.attributes) pieces.push_back(&attribute);
  for (const std::uint64_t extent : extents) {
    for (const NtfsAttribute& attribute : records_[extent].attributes) {
      pieces.push_back(&attribute);
    }
  }
  CheckAttributeList(base, pieces);

  std::stable_sort(pieces.begin(), pieces.end(), [](const auto* a, const auto* b) {
    return std::tie(a->type, a->name, a->lowest_vcn) < std::tie(b->type, b->name, b->lowest_vcn);
  });
  for (auto first = pieces.begin(); first != pieces.end();) {
    auto last = first + 1;
    // Several file names are several attributes; of all other types there is one for each name.
    while (last != pieces.end() && (*first)->type != ntfs::kFileName &&
           (*last)->type == (*first)->type && (*last)->name == (*first)->name) {
      ++last;
    }
    file.streams.push_back(JoinPieces(volume_.geometry, base.number, {first, last}, problems_));
    first = last;
  }
  for (const NtfsStream& stream : file.streams) {
    if (stream.type == ntfs::kStandardInformation) file.attributes = Load32(stream.value, 32);
    if (stream.type != ntfs::kFileName) continue;
    const std::size_t length = std::size_t{2} * Load8(stream.value, 64);
    if (!Inside(66, length, stream.value.size()) || length == 0) {
      problems_.Add("record ", base.number, ": a file name that cannot be read");
      continue;
    }
    file.names.push_back({Load64(stream.value, 0), Load8(stream.value, 65),
                          LoadUtf16(stream.value.subspan(66, length))});
  }
  if (file.number >= ntfs::kFirstUser || !file.names.empty()) {
    if (file.links != file.names.size()) {
      problems_.Add("record ", base.number, ": link count ", file.links, ", but ",
                    file.names.size(), " names");
    }
  }
  return file;
}

void NtfsFiles::CheckAttributeList(const NtfsRecord& base,
                                   const std::vector<const NtfsAttribute*>& pieces) {
  const NtfsAttribute* list = nullptr;
  for (const NtfsAttribute& attribute : base.attributes) {
    if (attribute.type == ntfs::kAttributeList) list = &attribute;
  }
  if (list == nullptr) {
    if (pieces.size() != base.attributes.size()) {
      problems_.Add("record ", base.number, ": has extent records but no attribute list");
    }
    return;
  }
  const NtfsStream stream = JoinQuietly(volume_.geometry, *list);
  const auto bytes = ReadWhole(volume_, stream, kListLimit);
  if (!bytes) {
    problems_.Add("record ", base.number, ": its attribute list cannot be read");
    return;
  }
  CheckListEntries(base, *bytes, pieces);
}

void NtfsFiles::CheckListEntries(const NtfsRecord& base, Bytes list,
                                 const std::vector<const NtfsAttribute*>& pieces) {
  using Key = std::tuple<std::uint64_t, std::uint16_t>;  // record, instance
  std::map<Key, const NtfsAttribute*> unlisted;
  for (const NtfsAttribute* piece : pieces) {
    if (piece->type != ntfs::kAttributeList) unlisted[{piece->record, piece->instance}] = piece;
  }
  std::uint32_t type_before = 0;
  for (std::size_t at = 0; at < list.size();) {
    const std::uint16_t length = Load16(list, at + 4);
    const std::size_t name_bytes = std::size_t{2} * Load8(list, at + 6);
    const std::size_t name_at = Load8(list, at + 7);
    if (!Inside(at, 26, list.size()) || length < 26 || length % 8 != 0 ||
        !Inside(at, length, list.size()) ||
        (name_bytes > 0 && !Inside(name_at, name_bytes, length))) {
      problems_.Add("record ", base.number, ": attribute list entry at ", at, " cannot be read");
      return;
    }
    const std::uint32_t type = Load32(list, at);
    const std::uint64_t reference = Load64(list, at + 16);
    const std::uint64_t record = ntfs::RecordOf(reference);
    const auto found = unlisted.find({record, Load16(list, at + 24)});
    const NtfsAttribute* piece = found == unlisted.end() ? nullptr : found->second;
    if (piece == nullptr || piece->type != type ||
        static_cast<std::uint64_t>(piece->lowest_vcn) != Load64(list, at + 8) ||
        piece->name != LoadUtf16(Part(list, at + name_at, name_bytes)) ||
        records_[record].sequence != ntfs::SequenceOf(reference)) {
      problems_.Add("record ", base.number, ": attribute list entry at ", at, " (type ", type,
                    ") names an attribute that is not in record ", record);
    } else {
      unlisted.erase(found);
    }
    if (type < type_before) {
      problems_.Add("record ", base.number, ": attribute list entry at ", at, " out of order");
    }
    type_before = type;
    at += length;
  }
  for (const auto& [key, piece] : unlisted) {
    problems_.Add("record ", base.number, ": attribute of type ", piece->type, " in record ",
                  piece->record, " is not in the attribute list");
  }
}

}  // namespace vornalux::checking
