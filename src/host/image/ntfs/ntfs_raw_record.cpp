// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/ntfs/ntfs_raw_record.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "host/image/device/little_endian.h"
#include "text/wtf8.h"

namespace vornalux {
namespace {

constexpr std::size_t kStride = 512;  // fixups guard this many bytes each, whatever the sector
constexpr std::size_t kResidentHeader = 24;
constexpr std::size_t kRunsHeader = 64;
constexpr std::size_t kPackedRunsHeader = 72;  // with the size that holes and compression leave
constexpr std::uint32_t kEndMark = 0xFFFFFFFF;
constexpr std::uint16_t kCompressed = 0x0001;
constexpr std::uint16_t kEncrypted = 0x4000;
constexpr std::uint16_t kSparse = 0x8000;
// Beyond any volume, and far from overflow when two are added.
constexpr std::int64_t kVcnLimit = std::int64_t{1} << 52;
// A record gives new attributes these numbers in turn; one that is taken would make two alike.
constexpr std::uint16_t kInstancesToCome = 64;

using Bytes = std::span<const std::uint8_t>;

bool Inside(std::size_t at, std::size_t count, std::size_t size) {
  return at <= size && count <= size - at;
}

std::string At(std::size_t at, const char* what) {
  return "attribute at byte " + std::to_string(at) + ": " + what;
}

std::int64_t SignedNumber(Bytes bytes, std::size_t at, std::size_t width) {
  std::uint64_t value = 0;
  for (std::size_t i = width; i-- > 0;) value = value << 8 | bytes[at + i];
  if (width > 0 && width < 8 && value >> (8 * width - 1) != 0) {
    value |= ~std::uint64_t{0} << (8 * width);
  }
  return static_cast<std::int64_t>(value);
}

class AttributeParser {
 public:
  AttributeParser(const NtfsGeometry& geometry, Bytes raw, RawRecord& record)
      : geometry_(geometry), raw_(raw), record_(record) {}

  // Null when all is well.
  const char* Parse();

 private:
  const char* ParseResident(RawAttribute& attribute) const;
  const char* ParseNonResident(RawAttribute& attribute);
  const char* ParseRuns(RawAttribute& attribute, std::size_t at);
  const char* CheckNeighbours(const RawAttribute& attribute) const;
  // Does the name stand between the header and what follows it?
  bool TakeName(RawAttribute& attribute, std::size_t header, std::size_t limit) const;

  const NtfsGeometry& geometry_;
  Bytes raw_;
  RawRecord& record_;
};

const char* AttributeParser::Parse() {
  RawAttribute attribute;
  attribute.type = LoadLittle<std::uint32_t>(raw_, 0);
  attribute.instance = LoadLittle<std::uint16_t>(raw_, 14);
  if (raw_[8] > 1) return "neither resident nor not";
  attribute.resident = raw_[8] == 0;
  const char* wrong = attribute.resident ? ParseResident(attribute) : ParseNonResident(attribute);
  if (wrong == nullptr) wrong = CheckNeighbours(attribute);
  if (wrong == nullptr) record_.attributes.push_back(attribute);
  return wrong;
}

bool AttributeParser::TakeName(RawAttribute& attribute, std::size_t header,
                               std::size_t limit) const {
  const std::size_t length = std::size_t{2} * raw_[9];
  if (length == 0) return true;
  const std::size_t at = LoadLittle<std::uint16_t>(raw_, 10);
  if (at < header || !Inside(at, length, limit)) return false;
  attribute.name = raw_.subspan(at, length);
  return true;
}

const char* AttributeParser::ParseResident(RawAttribute& attribute) const {
  const std::size_t length = LoadLittle<std::uint32_t>(raw_, 16);
  const std::size_t at = LoadLittle<std::uint16_t>(raw_, 20);
  if (!Inside(at, length, raw_.size()) || (length > 0 && at < kResidentHeader)) {
    return "its value leaves it";
  }
  if (!TakeName(attribute, kResidentHeader, length > 0 ? at : raw_.size())) {
    return "its name leaves its place";
  }
  attribute.value = raw_.subspan(at, length);
  return nullptr;
}

const char* AttributeParser::ParseNonResident(RawAttribute& attribute) {
  if (raw_.size() < kRunsHeader) return "too short for runs";
  const auto lowest = LoadLittle<std::uint64_t>(raw_, 16);
  if (lowest >= kVcnLimit) return "an impossible first VCN";
  attribute.lowest_vcn = static_cast<std::int64_t>(lowest);
  const auto flags = LoadLittle<std::uint16_t>(raw_, 12);
  // Of other ways to store data nobody knows what a move must keep.
  if ((flags & ~(kCompressed | kEncrypted | kSparse)) != 0) return "stored in an unknown way";
  const bool packed = attribute.lowest_vcn == 0 && (flags & (kCompressed | kSparse)) != 0 &&
                      record_.number != raw::kBadClusterRecord;
  const std::size_t header = packed ? kPackedRunsHeader : kRunsHeader;
  const std::size_t at = LoadLittle<std::uint16_t>(raw_, 32);
  if (at < header || at >= raw_.size()) return "its runs leave it";
  if (!TakeName(attribute, header, at)) return "its name leaves its place";
  if (const char* wrong = ParseRuns(attribute, at)) return wrong;

  if (attribute.lowest_vcn == 0) {
    attribute.allocated = LoadLittle<std::uint64_t>(raw_, 40);
    attribute.size = LoadLittle<std::uint64_t>(raw_, 48);
    attribute.initialized = LoadLittle<std::uint64_t>(raw_, 56);
  }
  // Old drivers leave 0 in the only piece of an attribute; its sizes tell the end as well.
  const auto highest = LoadLittle<std::uint64_t>(raw_, 24);
  const bool left_out = highest == 0 && attribute.lowest_vcn == 0 &&
                        geometry_.ClustersOf(attribute.allocated) == attribute.end_vcn;
  if (!left_out && highest + 1 != static_cast<std::uint64_t>(attribute.end_vcn)) {
    return "its runs do not end at its last VCN";
  }
  return nullptr;
}

const char* AttributeParser::ParseRuns(RawAttribute& attribute, std::size_t at) {
  std::int64_t vcn = attribute.lowest_vcn;
  std::int64_t lcn = 0;
  attribute.first_run = record_.runs.size();
  while (at < raw_.size() && raw_[at] != 0) {
    const std::size_t count_width = raw_[at] & 15U;
    const std::size_t lcn_width = raw_[at] >> 4;
    ++at;
    if (count_width == 0 || count_width > 8 || lcn_width > 8 ||
        !Inside(at, count_width + lcn_width, raw_.size())) {
      return "a run that cannot be read";
    }
    const std::int64_t count = SignedNumber(raw_, at, count_width);
    if (count <= 0 || count > kVcnLimit - vcn) return "a run of an impossible length";
    ClusterRun run{vcn, -1, count};
    if (lcn_width > 0) {
      const std::int64_t delta = SignedNumber(raw_, at + count_width, lcn_width);
      if (__builtin_add_overflow(lcn, delta, &lcn)) return "a run outside the volume";
      run.lcn = lcn;
      // Volumes of Windows NT have holes with this number instead of with none.
      const bool hole = lcn == -1;
      if (!hole && (lcn < 0 || lcn >= geometry_.clusters || count > geometry_.clusters - lcn)) {
        return "a run outside the volume";
      }
    }
    record_.runs.push_back(run);
    vcn += count;
    at += count_width + lcn_width;
  }
  if (at >= raw_.size()) return "runs without an end";
  attribute.end_vcn = vcn;
  attribute.end_run = record_.runs.size();
  return nullptr;
}

const char* AttributeParser::CheckNeighbours(const RawAttribute& attribute) const {
  for (const RawAttribute& other : record_.attributes) {
    if (other.instance == attribute.instance) return "its number is given to two attributes";
  }
  if (!record_.attributes.empty() && record_.attributes.back().type > attribute.type) {
    return "out of order";
  }
  return nullptr;
}

}  // namespace

bool IsFileRecord(Bytes record) { return std::memcmp(record.data(), "FILE", 4) == 0; }

bool InUse(Bytes record) { return LoadLittle<std::uint16_t>(record, 22) & raw::kInUse; }

std::string UndoFixups(std::span<std::uint8_t> record) {
  const std::size_t at = LoadLittle<std::uint16_t>(record, 4);
  const std::size_t count = LoadLittle<std::uint16_t>(record, 6);
  if (count != record.size() / kStride + 1 || at % 2 != 0 || at + 2 * count > kStride - 2) {
    return "what guards it against torn writes is damaged";
  }
  for (std::size_t i = 1; i < count; ++i) {
    std::uint8_t* end = &record[i * kStride - 2];
    if (std::memcmp(end, &record[at], 2) != 0) return "it was written only in part";
    std::memcpy(end, &record[at + 2 * i], 2);
  }
  return {};
}

std::string ParseRecord(const NtfsGeometry& geometry, std::uint64_t number, Bytes bytes,
                        RawRecord& out) {
  out.number = number;
  out.sequence = LoadLittle<std::uint16_t>(bytes, 16);
  out.base = LoadLittle<std::uint64_t>(bytes, 32);
  out.attributes.clear();
  out.runs.clear();
  std::size_t at = LoadLittle<std::uint16_t>(bytes, 20);
  const std::size_t used = LoadLittle<std::uint32_t>(bytes, 24);
  const std::size_t guards = LoadLittle<std::uint16_t>(bytes, 4) + 2 * (bytes.size() / kStride + 1);
  if (LoadLittle<std::uint32_t>(bytes, 28) != bytes.size() || used > bytes.size() ||
      used % 8 != 0 || at % 8 != 0 || at < guards) {
    return "its header has impossible sizes";
  }
  for (;;) {
    if (!Inside(at, 4, used)) return "its attributes have no end";
    if (LoadLittle<std::uint32_t>(bytes, at) == kEndMark) break;
    const std::size_t length = Inside(at, 8, used) ? LoadLittle<std::uint32_t>(bytes, at + 4) : 0;
    if (length < kResidentHeader || length % 8 != 0 || !Inside(at, length, used)) {
      return At(at, "impossible length");
    }
    AttributeParser parser(geometry, bytes.subspan(at, length), out);
    if (const char* wrong = parser.Parse()) return At(at, wrong);
    at += length;
  }
  const auto next = LoadLittle<std::uint16_t>(bytes, 40);
  for (const RawAttribute& attribute : out.attributes) {
    if (static_cast<std::uint16_t>(attribute.instance - next) < kInstancesToCome) {
      return "its next attribute would get a number that is taken";
    }
  }
  return {};
}

bool ParseList(Bytes list, std::vector<ListEntry>& out) {
  constexpr std::size_t kHeader = 26;
  out.clear();
  for (std::size_t at = 0; at < list.size();) {
    if (!Inside(at, kHeader, list.size())) return false;
    const std::size_t length = LoadLittle<std::uint16_t>(list, at + 4);
    const std::size_t name_length = std::size_t{2} * list[at + 6];
    const std::size_t name_at = list[at + 7];
    if (length < kHeader || length % 8 != 0 || !Inside(at, length, list.size())) return false;
    if (name_length > 0 && (name_at < kHeader || !Inside(name_at, name_length, length))) {
      return false;
    }
    const auto vcn = LoadLittle<std::uint64_t>(list, at + 8);
    if (vcn > std::uint64_t{std::numeric_limits<std::int64_t>::max()}) return false;
    out.push_back({.type = LoadLittle<std::uint32_t>(list, at),
                   .instance = LoadLittle<std::uint16_t>(list, at + 24),
                   .lowest_vcn = static_cast<std::int64_t>(vcn),
                   .reference = LoadLittle<std::uint64_t>(list, at + 16),
                   .name = name_length > 0 ? list.subspan(at + name_at, name_length) : Bytes{}});
    at += length;
  }
  return true;
}

std::string ShownName(Bytes name) {
  std::u16string text;
  for (std::size_t i = 0; i + 1 < name.size(); i += 2) {
    const auto unit = LoadLittle<std::uint16_t>(name, i);
    const bool control = unit < 0x20 || (unit >= 0x7F && unit < 0xA0) ||
                         (unit >= 0x200E && unit < 0x2010) || (unit >= 0x2028 && unit < 0x202F) ||
                         (unit >= 0x2066 && unit < 0x206A) || (unit >= 0xD800 && unit < 0xE000);
    text += control ? u'?' : static_cast<char16_t>(unit);
  }
  return ToWtf8(text);
}

}  // namespace vornalux
