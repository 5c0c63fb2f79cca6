// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/ntfs/ntfs_spread_files.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <tuple>

namespace vornalux {
namespace {

// Entries of a type together and in order, those of a stream by VCN: so the library searches them.
bool InOrder(const ListEntry& before, const ListEntry& entry) {
  if (before.type != entry.type) return before.type < entry.type;
  if (!std::ranges::equal(before.name, entry.name) || entry.type == raw::kFileName) return true;
  return before.lowest_vcn < entry.lowest_vcn;
}

}  // namespace

std::string ShownStream(std::uint32_t type, std::span<const std::uint8_t> name) {
  std::string text;
  switch (type) {
    case raw::kAttributeList:
      text = "$ATTRIBUTE_LIST";
      break;
    case raw::kData:
      text = "$DATA";
      break;
    case 0xA0:
      text = "$INDEX_ALLOCATION";
      break;
    case raw::kBitmap:
      text = "$BITMAP";
      break;
    default: {
      std::array<char, 32> number{};
      std::snprintf(number.data(), number.size(), "attribute type 0x%X", type);
      text = number.data();
    }
  }
  return name.empty() ? text : text + " \"" + ShownName(name) + "\"";
}

const char* JudgeSizes(const NtfsGeometry& geometry, std::uint64_t allocated, std::uint64_t size,
                       std::uint64_t initialized, std::int64_t end) {
  if (geometry.ClustersOf(allocated) != end) return "its allocated size does not fit its runs";
  // Encrypted streams may be initialized a little past their end.
  return std::max(size, initialized) > allocated ? "its size does not fit its runs" : nullptr;
}

void SpreadFiles::AddPieces(const RawRecord& record, File& file) {
  for (const RawAttribute& each : record.attributes) {
    file.pieces.push_back({.record = record.number,
                           .type = each.type,
                           .instance = each.instance,
                           .resident = each.resident,
                           .lowest_vcn = each.lowest_vcn,
                           .end_vcn = each.end_vcn,
                           .allocated = each.allocated,
                           .size = each.size,
                           .initialized = each.initialized,
                           .name = {each.name.begin(), each.name.end()}});
  }
}

void SpreadFiles::AddBase(const RawRecord& record, const RawAttribute& list, bool list_is_its_own) {
  File& file = files_[record.number];
  file.has_base = true;
  file.sequence = record.sequence;
  file.list_is_its_own = list_is_its_own;
  file.list = RawValue::Of(record, list);
  AddPieces(record, file);
}

void SpreadFiles::AddExtension(const RawRecord& record) {
  File& file = files_[raw::RecordOf(record.base)];
  file.extensions.push_back({record.number, record.sequence, raw::SequenceOf(record.base)});
  AddPieces(record, file);
}

void SpreadFiles::Judge(BlockDevice& device, Findings& findings) {
  for (auto& [base, file] : files_) {
    const std::string wrong = JudgeFile(base, file, device);
    if (!wrong.empty()) findings.Add("record " + std::to_string(base) + ": " + wrong);
    file = {};
  }
}

std::string SpreadFiles::JudgeFile(std::uint64_t base, File& file, BlockDevice& device) const {
  for (const Extension& each : file.extensions) {
    if (!file.has_base || each.base_sequence != file.sequence) {
      return "record " + std::to_string(each.record) + " says that it continues this one, which " +
             (file.has_base ? "has another sequence number" : "is no file of several");
    }
  }
  // Lists that share clusters would be read over and over; the sharing is told elsewhere.
  if (!file.list_is_its_own) return {};
  if (file.list.size > kLongestList) return "its attribute list has an impossible length";
  std::vector<std::uint8_t> content(static_cast<std::size_t>(file.list.size));
  if (const std::error_code error = file.list.Read(device, geometry_, 0, content)) {
    return "its attribute list cannot be read: " + error.message();
  }
  std::vector<ListEntry> entries;
  if (!ParseList(content, entries)) return "its attribute list is damaged";
  std::string wrong = JudgeList(base, file, entries);
  return wrong.empty() ? JudgeStreams(base, file) : wrong;
}

std::string SpreadFiles::JudgeList(std::uint64_t base, File& file,
                                   const std::vector<ListEntry>& entries) {
  const auto key = [](const Piece& piece) { return std::tuple(piece.record, piece.instance); };
  std::ranges::sort(file.pieces, {}, key);
  std::ranges::sort(file.extensions, {}, &Extension::record);
  const ListEntry* before = nullptr;
  for (const ListEntry& entry : entries) {
    const std::uint64_t record = raw::RecordOf(entry.reference);
    const auto piece =
        std::ranges::lower_bound(file.pieces, std::tuple(record, entry.instance), {}, key);
    const auto extension =
        std::ranges::lower_bound(file.extensions, record, {}, &Extension::record);
    const bool is_extension = extension != file.extensions.end() && extension->record == record;
    const bool found =
        piece != file.pieces.end() && piece->record == record &&
        piece->instance == entry.instance && !piece->listed && piece->type == entry.type &&
        piece->lowest_vcn == entry.lowest_vcn && std::ranges::equal(piece->name, entry.name) &&
        (record == base || is_extension) &&
        raw::SequenceOf(entry.reference) == (record == base ? file.sequence : extension->sequence);
    if (!found) {
      return "its attribute list names a piece of " + ShownStream(entry.type, entry.name) +
             " that is not in record " + std::to_string(record);
    }
    if (before != nullptr && !InOrder(*before, entry)) return "its attribute list is out of order";
    piece->listed = true;
    before = &entry;
  }
  for (const Piece& piece : file.pieces) {
    if (piece.listed || piece.type == raw::kAttributeList) continue;
    return "its attribute list leaves out " + ShownStream(piece.type, piece.name) + " in record " +
           std::to_string(piece.record);
  }
  return {};
}

std::string SpreadFiles::JudgeStreams(std::uint64_t base, File& file) const {
  std::ranges::sort(file.pieces, {}, [](const Piece& piece) {
    return std::tie(piece.type, piece.name, piece.lowest_vcn);
  });
  const std::span<const Piece> all(file.pieces);
  for (std::size_t first = 0; first < all.size();) {
    std::size_t last = first + 1;
    const Piece& head = all[first];
    while (last < all.size() && all[last].type == head.type && all[last].name == head.name) ++last;
    const std::string wrong = JudgeStream(base, all.subspan(first, last - first));
    if (!wrong.empty()) return ShownStream(head.type, head.name) + ": " + wrong;
    first = last;
  }
  return {};
}

std::string SpreadFiles::JudgeStream(std::uint64_t base, std::span<const Piece> pieces) const {
  const Piece& head = pieces.front();
  if (head.resident) {
    const bool several = pieces.size() > 1 && head.type != raw::kFileName;
    return several ? "stands there twice" : "";
  }
  std::int64_t end = 0;
  for (const Piece& piece : pieces) {
    if (piece.resident || piece.lowest_vcn != end) {
      return "record " + std::to_string(piece.record) + " continues it at VCN " +
             std::to_string(piece.lowest_vcn) + ", but VCN " + std::to_string(end) + " is due";
    }
    end = piece.end_vcn;
  }
  if (base == raw::kBadClusterRecord) return {};
  const char* wrong = JudgeSizes(geometry_, head.allocated, head.size, head.initialized, end);
  return wrong == nullptr ? "" : wrong;
}

}  // namespace vornalux
