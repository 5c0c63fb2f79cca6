// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/ntfs/ntfs_soundness.h"

#include <algorithm>
#include <array>
#include <bit>
#include <vector>

#include "host/image/device/little_endian.h"
#include "host/image/ntfs/ntfs_raw_table.h"
#include "host/image/ntfs/ntfs_spread_files.h"

namespace vornalux {
namespace {

constexpr std::uint64_t kMftRecord = 0;
constexpr std::uint64_t kMirrorRecord = 1;
constexpr std::uint64_t kBitmapRecord = 6;
constexpr std::uint64_t kBootRecord = 7;
constexpr std::uint64_t kFirstUserRecord = 24;  // those before may be set aside without being made
constexpr std::size_t kMirrored = 4;            // records with a copy in $MFTMirr

class BitSet {
 public:
  explicit BitSet(std::uint64_t bits) : words_(static_cast<std::size_t>((bits + 63) / 64)) {}

  bool Has(std::uint64_t bit) const { return words_[bit / 64] >> (bit % 64) & 1; }
  void Set(std::uint64_t bit) { words_[bit / 64] |= std::uint64_t{1} << (bit % 64); }

  // Sets a range up to the first bit of it that was set before, and gives that one; the end of the
  // range when there is none. What was set already is never gone through again, however often it
  // is asked for.
  std::int64_t SetRange(std::int64_t first, std::int64_t count) {
    const std::int64_t end = first + count;
    while (first < end) {
      const std::int64_t bit = first % 64;
      const std::int64_t length = std::min<std::int64_t>(64 - bit, end - first);
      const std::uint64_t ones = length == 64 ? ~0ULL : (1ULL << length) - 1;
      std::uint64_t& word = words_[static_cast<std::size_t>(first / 64)];
      if (const std::uint64_t taken = word & ones << bit) {
        const int at = std::countr_zero(taken);
        word |= ones << bit & ((std::uint64_t{1} << at) - 1);
        return first - bit + at;
      }
      word |= ones << bit;
      first += length;
    }
    return end;
  }

 private:
  std::vector<std::uint64_t> words_;
};

class Judge {
 public:
  Judge(BlockDevice& device, const NtfsGeometry& geometry, const AllocationMap& in_use,
        RawFileTable& table)
      : device_(device),
        geometry_(geometry),
        in_use_(in_use),
        table_(table),
        owned_(static_cast<std::uint64_t>(geometry.clusters)),
        used_records_(table.Records()),
        other_records_(table.Records()),
        spread_(geometry) {}

  std::string Run();

 private:
  void TakeRecord(std::uint64_t number, std::span<std::uint8_t> bytes);
  void TakeParsed(const RawRecord& record);
  // Does every cluster of it belong to it alone?
  bool Claim(const RawRecord& record, const RawAttribute& attribute);
  void JudgeLoneRecord(const RawRecord& record);
  void NoteMetafile(const RawRecord& record);
  void NoteTableBitmap(const RawRecord& record);
  void JudgeMetafiles();
  void JudgeMirror();
  void JudgeTableBitmap();
  void JudgeMark(std::uint64_t number, bool marked);

  void Fault(const RawRecord& record, const RawAttribute& attribute, const std::string& what);

  BlockDevice& device_;
  const NtfsGeometry& geometry_;
  const AllocationMap& in_use_;
  RawFileTable& table_;
  Findings findings_;
  BitSet owned_;
  BitSet used_records_;
  BitSet other_records_;  // that are no file records, or torn
  SpreadFiles spread_;
  RawRecord record_;  // the one in hand; kept for its memory

  std::array<std::vector<std::uint8_t>, kMirrored> start_;  // the first records, fixups undone
  std::vector<ClusterRun> mirror_runs_;
  std::vector<ClusterRun> boot_runs_;
  bool has_bitmap_ = false;
  RawValue table_bitmap_;
};

std::string RecordName(const RawRecord& record) {
  std::string text = "record " + std::to_string(record.number);
  for (const RawAttribute& each : record.attributes) {
    constexpr std::size_t kLength = 64, kName = 66;
    if (each.type != raw::kFileName || each.value.size() < kName) continue;
    const std::size_t length = std::size_t{2} * each.value[kLength];
    if (length > each.value.size() - kName) continue;
    return text + " (" + ShownName(each.value.subspan(kName, length)) + ")";
  }
  return text;
}

void Judge::Fault(const RawRecord& record, const RawAttribute& attribute, const std::string& what) {
  findings_.Add(RecordName(record) + ", " + ShownStream(attribute.type, attribute.name) + ": " +
                what);
}

std::string Judge::Run() {
  const std::string unread = table_.Each(
      [this](std::uint64_t number, std::span<std::uint8_t> bytes) { TakeRecord(number, bytes); });
  if (!unread.empty()) return unread;
  spread_.Judge(device_, findings_);
  JudgeMetafiles();
  JudgeMirror();
  JudgeTableBitmap();
  return findings_.Text();
}

void Judge::TakeRecord(std::uint64_t number, std::span<std::uint8_t> bytes) {
  if (!IsFileRecord(bytes)) {
    other_records_.Set(number);
    return;
  }
  if (!InUse(bytes)) return;
  used_records_.Set(number);
  std::string wrong = UndoFixups(bytes);
  if (wrong.empty()) wrong = ParseRecord(geometry_, number, bytes, record_);
  if (!wrong.empty()) {
    findings_.Add("record " + std::to_string(number) + " is damaged: " + wrong);
    return;
  }
  if (number < kMirrored) start_[number].assign(bytes.begin(), bytes.end());
  TakeParsed(record_);
}

void Judge::TakeParsed(const RawRecord& record) {
  const RawAttribute* list = nullptr;
  bool list_is_its_own = true;
  for (const RawAttribute& attribute : record.attributes) {
    const bool own = attribute.resident || Claim(record, attribute);
    if (attribute.type != raw::kAttributeList) continue;
    list = &attribute;
    list_is_its_own = own;
  }
  if (record.number < kFirstUserRecord) NoteMetafile(record);
  NoteTableBitmap(record);
  if (record.base != 0) {
    if (list != nullptr) Fault(record, *list, "stands in a record that continues another one");
    spread_.AddExtension(record);
  } else if (list != nullptr) {
    spread_.AddBase(record, *list, list_is_its_own);
  } else {
    JudgeLoneRecord(record);
  }
}

bool Judge::Claim(const RawRecord& record, const RawAttribute& attribute) {
  for (std::size_t i = attribute.first_run; i < attribute.end_run; ++i) {
    const ClusterRun& run = record.runs[i];
    if (run.lcn < 0) continue;
    const std::int64_t end = run.lcn + run.count;
    const std::int64_t taken = owned_.SetRange(run.lcn, run.count);
    if (taken != end) {
      Fault(record, attribute,
            "cluster " + std::to_string(taken) + " belongs to more than one stream");
      return false;
    }
    if (in_use_.RangeUsed(run.lcn, run.count)) continue;
    std::int64_t free = run.lcn;
    while (in_use_.Used(free)) ++free;
    Fault(record, attribute, "cluster " + std::to_string(free) + " is marked free");
  }
  return true;
}

void Judge::JudgeLoneRecord(const RawRecord& record) {
  for (const RawAttribute& each : record.attributes) {
    const bool again = std::any_of(&record.attributes.front(), &each, [&](const auto& other) {
      return other.type == each.type && std::ranges::equal(other.name, each.name);
    });
    if (again && (each.type != raw::kFileName || !each.resident)) {
      return Fault(record, each, "stands there twice");
    }
    if (each.resident) continue;
    if (each.lowest_vcn != 0) return Fault(record, each, "its first runs are missing");
    if (record.number == raw::kBadClusterRecord) continue;
    const char* wrong =
        JudgeSizes(geometry_, each.allocated, each.size, each.initialized, each.end_vcn);
    if (wrong != nullptr) return Fault(record, each, wrong);
  }
}

void Judge::NoteMetafile(const RawRecord& record) {
  const auto runs_of = [&](std::vector<ClusterRun>& runs) {
    for (const RawAttribute& each : record.attributes) {
      if (each.type == raw::kData && each.name.empty() && each.lowest_vcn == 0) {
        runs = RawValue::Of(record, each).runs;
      }
    }
  };
  if (record.base != 0) return;
  if (record.number == kMirrorRecord) runs_of(mirror_runs_);
  if (record.number == kBootRecord) runs_of(boot_runs_);
  std::vector<ClusterRun> bitmap;
  if (record.number == kBitmapRecord) runs_of(bitmap);
  has_bitmap_ = has_bitmap_ || !bitmap.empty();
}

void Judge::NoteTableBitmap(const RawRecord& record) {
  const bool of_table =
      record.base == 0 ? record.number == kMftRecord : raw::RecordOf(record.base) == kMftRecord;
  if (!of_table) return;
  for (const RawAttribute& each : record.attributes) {
    if (each.type != raw::kBitmap || !each.name.empty()) continue;
    const RawValue piece = RawValue::Of(record, each);
    if (each.lowest_vcn == 0) {
      table_bitmap_.resident = piece.resident;
      table_bitmap_.size = each.resident ? piece.size : std::min(each.size, each.initialized);
    }
    table_bitmap_.runs.insert(table_bitmap_.runs.end(), piece.runs.begin(), piece.runs.end());
  }
}

void Judge::JudgeMetafiles() {
  // Else its clusters could be another file's that is moved away from there.
  if (boot_runs_.empty() || boot_runs_[0].lcn != 0) {
    findings_.Add("$Boot does not lie at the start of the volume");
  }
  if (mirror_runs_.empty() || mirror_runs_[0].lcn != geometry_.mirror_lcn) {
    findings_.Add("$MFTMirr does not lie where the boot sector says");
  }
  if (!has_bitmap_) findings_.Add("$Bitmap has no runs");
}

void Judge::JudgeMirror() {
  std::vector<std::uint8_t> copy(geometry_.record_size);
  for (std::size_t number = 0; number < kMirrored; ++number) {
    const std::vector<std::uint8_t>& record = start_[number];
    if (record.empty()) continue;  // was told, or is not in use
    const std::error_code error =
        ReadStream(device_, geometry_, mirror_runs_, number * copy.size(), copy);
    const std::size_t used = LoadLittle<std::uint32_t>(record, 24);
    if (error || !UndoFixups(copy).empty() ||
        !std::equal(record.begin(), record.begin() + static_cast<std::ptrdiff_t>(used),
                    copy.begin())) {
      findings_.Add("$MFTMirr is no copy of record " + std::to_string(number));
    }
  }
}

// The library takes records for more runs from what this bitmap says is free.
void Judge::JudgeTableBitmap() {
  std::ranges::sort(table_bitmap_.runs, {}, &ClusterRun::vcn);
  const std::uint64_t needed = (table_.Records() + 7) / 8;
  if (table_bitmap_.size < needed) return findings_.Add("$MFT's $BITMAP is too short");
  // A bitmap for more records than the volume has room for says nothing about them.
  const std::uint64_t most = static_cast<std::uint64_t>(geometry_.clusters) *
                             geometry_.cluster_size / geometry_.record_size / 8;
  const std::uint64_t size = std::max(needed, std::min(table_bitmap_.size, most));
  std::vector<std::uint8_t> bytes;
  for (std::uint64_t at = 0; at < size; at += bytes.size()) {
    bytes.resize(static_cast<std::size_t>(std::min<std::uint64_t>(size - at, 1U << 16)));
    if (const auto error = table_bitmap_.Read(device_, geometry_, at, bytes)) {
      return findings_.Add("$MFT's $BITMAP cannot be read: " + error.message());
    }
    for (std::uint64_t i = 0; i < bytes.size() * 8; ++i) {
      JudgeMark(at * 8 + i, bytes[static_cast<std::size_t>(i / 8)] >> (i % 8) & 1);
    }
  }
}

void Judge::JudgeMark(std::uint64_t number, bool marked) {
  const char* wrong = nullptr;
  if (number >= table_.Records()) {
    if (marked && table_.HasFilePastEnd(number)) wrong = "holds a file past the end of $MFT";
  } else if (!marked && used_records_.Has(number)) {
    wrong = "is in use, but marked free in $MFT's $BITMAP";
  } else if (marked && other_records_.Has(number) && number >= kFirstUserRecord) {
    wrong = "is marked in use, but is no file record";
  }
  if (wrong != nullptr) findings_.Add("record " + std::to_string(number) + " " + wrong);
}

}  // namespace

std::string FindUnsoundness(BlockDevice& device, const NtfsGeometry& geometry,
                            const AllocationMap& in_use) {
  constexpr std::uint32_t kSector = 512;
  if (geometry.record_size < 2 * kSector || geometry.record_size % kSector != 0 ||
      geometry.cluster_size == 0 || geometry.clusters <= 0 ||
      geometry.clusters != in_use.Clusters()) {
    return "its boot sector has impossible sizes";
  }
  RawFileTable table(device, geometry);
  if (std::string wrong = table.Locate(); !wrong.empty()) return wrong;
  return Judge(device, geometry, in_use, table).Run();
}

}  // namespace vornalux
