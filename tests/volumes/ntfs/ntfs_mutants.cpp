// SPDX-License-Identifier: GPL-2.0-or-later
#include "volumes/ntfs/ntfs_mutants.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <utility>

namespace vornalux::test {
namespace {

constexpr std::size_t kRecord = 1024;
constexpr std::size_t kBlock = 4096;
constexpr std::uint32_t kList = 0x20, kIndexRoot = 0x90, kBitmap = 0xB0, kEnd = 0xFFFFFFFF;

template <typename T>
const T& AnyOf(Random& random, const std::vector<T>& from) {
  return from[Below(random, from.size())];
}

// A number of so many bytes that is nearly right, or quite wrong.
std::uint64_t Wrong(Random& random, std::uint64_t right, std::size_t width) {
  const std::uint64_t one = std::uint64_t{1} << Below(random, 8 * width);
  const std::uint64_t choices[] = {right + 1,     right - 1, right ^ one, 0,
                                   right + 8,     right - 8, one,         one - 1,
                                   random() % 64, random()};
  return choices[Below(random, std::size(choices))];
}

// Of a bitmap: nothing in use, a bit less or more, anything.
std::uint8_t AnyByte(Random& random, std::uint8_t was) {
  const std::uint64_t choices[] = {0, was ^ 1U << Below(random, 8), random()};
  return static_cast<std::uint8_t>(choices[Below(random, std::size(choices))]);
}

// Offsets and widths.
using Fields = std::vector<std::pair<std::size_t, std::size_t>>;

const Fields kBootFields = {{13, 1}, {40, 8}, {48, 8}, {56, 8}, {64, 1}, {68, 1}, {72, 8}};
const Fields kRecordFields = {{0, 4},  {16, 2}, {18, 2}, {20, 2}, {22, 2}, {24, 4},
                              {28, 4}, {32, 2}, {32, 8}, {38, 2}, {40, 2}};
const Fields kAttributeFields = {{0, 4},  {4, 4},  {8, 1},  {9, 1},  {10, 2},
                                 {12, 2}, {14, 2}, {16, 4}, {20, 2}, {32, 2}};
const Fields kSpreadFields = {{16, 8}, {24, 8}, {40, 8}, {48, 8}, {56, 8}, {64, 8}, {34, 2}};
const Fields kListFields = {{0, 4},  {4, 2},  {6, 1},  {7, 1},  {8, 8},
                            {16, 2}, {16, 6}, {22, 2}, {24, 2}, {26, 2}};
const Fields kIndexFields = {{0, 2},  {0, 6},  {6, 2},  {8, 2},  {10, 2}, {12, 2},
                             {16, 6}, {56, 8}, {72, 4}, {80, 1}, {81, 1}, {82, 2}};

// One of the fields.
std::string Bend(Random& random, ByteSpan bytes, const Fields& fields) {
  const auto& [at, width] = AnyOf(random, fields);
  if (at + width > bytes.size()) return "nothing";
  const std::uint64_t right = Get(bytes, at, width);
  const std::uint64_t wrong = Wrong(random, right, width);
  Put(bytes, at, width, wrong);
  return "bytes " + std::to_string(at) + "+" + std::to_string(width) + " from " +
         std::to_string(right) + " to " + std::to_string(wrong);
}

// Where the runs of an attribute begin.
std::vector<std::size_t> RunsIn(ByteSpan attribute) {
  std::vector<std::size_t> found;
  for (std::size_t at = Get(attribute, 32, 2); at < attribute.size() && attribute[at] != 0;
       at += 1U + (attribute[at] & 15U) + (attribute[at] >> 4)) {
    found.push_back(at);
  }
  return found;
}

std::string BendRun(Random& random, ByteSpan attribute, const std::vector<std::int64_t>& owned) {
  const std::vector<std::size_t> runs = RunsIn(attribute);
  if (runs.empty()) return "nothing";
  const std::size_t at = AnyOf(random, runs);
  const std::size_t count = attribute[at] & 15U;
  const std::size_t lcn = attribute[at] >> 4;
  switch (Below(random, 5)) {
    case 0:
      return "run head: " + Bend(random, attribute, {{at, 1}});
    case 1:
      return "run length: " + Bend(random, attribute, {{at + 1, count}});
    case 2:
      if (lcn == 0) return "nothing";
      return "LCN: " + Bend(random, attribute, {{at + 1 + count, lcn}});
    case 3:
      if (lcn == 0) return "nothing";
      attribute[at + count + lcn] ^= 0x80;
      return "sign of an LCN";
    default:
      if (lcn == 0) return "nothing";
      // The first LCN is absolute, others lead from the one before to anywhere.
      const std::int64_t target =
          at == runs[0] ? AnyOf(random, owned) : AnyOf(random, owned) - AnyOf(random, owned);
      Put(attribute, at + 1 + count, lcn, static_cast<std::uint64_t>(target));
      return "LCN to " + std::to_string(target);
  }
}

std::string BendList(Random& random, ByteSpan list) {
  std::vector<std::size_t> entries;
  for (std::size_t at = 0;
       at + 26 <= list.size() && Get(list, at, 4) != 0 && Get(list, at + 4, 2) >= 26;
       at += Get(list, at + 4, 2)) {
    entries.push_back(at);
  }
  if (entries.empty()) return "nothing";
  const std::size_t at = AnyOf(random, entries);
  const std::size_t length = Get(list, at + 4, 2);
  const std::size_t next = at + length;
  if (Below(random, 4) == 0 && next + length <= list.size() && Get(list, next + 4, 2) == length) {
    std::swap_ranges(&list[at], &list[at] + length, &list[next]);
    return "two list entries swapped";
  }
  return "list entry: " + Bend(random, list.subspan(at), kListFields);
}

// entries: from the header of an index's entries on.
std::string BendIndex(Random& random, ByteSpan header) {
  std::vector<std::size_t> entries;
  const std::size_t end = std::min<std::size_t>(Get(header, 4, 4), header.size());
  for (std::size_t at = Get(header, 0, 4); at + 16 <= end; at += Get(header, at + 8, 2)) {
    entries.push_back(at);
    if (Get(header, at + 8, 2) < 16) break;
  }
  if (entries.empty()) return "nothing";
  const ByteSpan entry = header.subspan(AnyOf(random, entries));
  const std::size_t length = std::max<std::size_t>(Get(entry, 8, 2), 16);
  Fields fields = kIndexFields;
  fields.emplace_back(length - 8, 8);
  return "index entry: " + Bend(random, entry, fields);
}

}  // namespace

NtfsMutants::NtfsMutants(Bytes sound)
    : sound_(std::move(sound)), report_(CheckNtfs(MemorySource(sound_))) {
  NtfsEditor editor(sound_, report_);
  const std::uint64_t cluster = editor.Cluster();
  const CheckedItem& table = editor.Meta("/$MFT");
  for (const CheckedExtent& extent : table.extents) {
    const auto start = static_cast<std::uint64_t>(extent.vcn) * cluster;
    const auto end =
        std::min(start + static_cast<std::uint64_t>(extent.count) * cluster, table.size);
    // Those that lie in two extents are left alone.
    for (std::uint64_t n = (start + kRecord - 1) / kRecord; (n + 1) * kRecord <= end; ++n) {
      Learn(editor, n);
    }
  }
  editor.Attribute(0, kBitmap, [&](ByteSpan a) { table_bitmap_ = NtfsEditor::FirstLcn(a); });
  for (std::size_t at = 0; at + kBlock <= sound_.size(); at += 512) {
    if (std::memcmp(&sound_[at], "INDX", 4) == 0) blocks_.push_back(at);
  }
  for (const std::vector<CheckedItem>& items : {report_.items, report_.metafiles}) {
    for (const CheckedItem& item : items) {
      for (const CheckedExtent& extent : item.extents) {
        if (extent.lcn >= 0) owned_.push_back(extent.lcn + extent.count / 2);
      }
    }
  }
}

void NtfsMutants::Learn(NtfsEditor& editor, std::uint64_t number) {
  const ByteSpan raw = editor.RawRecord(number);
  if (std::memcmp(raw.data(), "FILE", 4) != 0 || (Get(raw, 22, 2) & 1) == 0) return;
  records_.push_back(number);
  editor.Record(number, [&](ByteSpan record) {
    for (std::size_t at = Get(record, 20, 2); Get(record, at, 4) != kEnd;
         at += Get(record, at + 4, 4)) {
      const Spot spot{number, at};
      all_.push_back(spot);
      if (record[at + 8] != 0) spread_.push_back(spot);
      if (Get(record, at, 4) == kList) lists_.push_back(spot);
      if (Get(record, at, 4) == kIndexRoot) roots_.push_back(spot);
    }
  });
}

Mutant NtfsMutants::Make(Random& random) const {
  NtfsEditor editor(sound_, report_);
  Mutant mutant;
  const auto record = [&](std::uint64_t number, const std::function<std::string(ByteSpan)>& edit) {
    // The record may have been changed before.
    if (Get(editor.RawRecord(number), 4, 2) > 64) return;
    editor.Record(number, [&](ByteSpan bytes) {
      mutant.what += "record " + std::to_string(number) + ", " + edit(bytes) + "; ";
    });
  };
  const auto attribute = [&](const std::vector<Spot>& spots,
                             const std::function<std::string(ByteSpan)>& edit) {
    const Spot& spot = AnyOf(random, spots);
    record(spot.record, [&](ByteSpan bytes) {
      if (spot.at + 24 > bytes.size()) return std::string("nothing");
      const std::size_t length = Get(bytes, spot.at + 4, 4);
      if (length < 24 || length > bytes.size() - spot.at) return std::string("nothing");
      return "attribute at " + std::to_string(spot.at) + ", " +
             edit(bytes.subspan(spot.at, length));
    });
  };
  const std::function<void()> edits[] = {
      [&] { attribute(spread_, [&](ByteSpan a) { return BendRun(random, a, owned_); }); },
      [&] { attribute(spread_, [&](ByteSpan a) { return BendRun(random, a, owned_); }); },
      [&] {
        const ByteSpan bits = editor.At(editor.Meta("/$Bitmap").extents[0].lcn);
        const std::size_t at = Below(random, static_cast<std::size_t>(report_.clusters) / 8);
        const std::uint8_t was = bits[at];
        bits[at] = AnyByte(random, was);
        mutant.what += "$Bitmap byte " + std::to_string(at) + " from " + std::to_string(was) +
                       " to " + std::to_string(bits[at]) + "; ";
      },
      [&] { attribute(spread_, [&](ByteSpan a) { return Bend(random, a, kSpreadFields); }); },
      [&] { attribute(all_, [&](ByteSpan a) { return Bend(random, a, kAttributeFields); }); },
      [&] {
        attribute(lists_, [&](ByteSpan a) {
          if (a[8] == 0) return BendList(random, a.subspan(Get(a, 20, 2), Get(a, 16, 4)));
          const std::int64_t lcn = NtfsEditor::FirstLcn(a);
          const std::size_t length = Get(a, 48, 8);
          if (lcn < 0 || lcn >= report_.clusters || length > editor.At(lcn).size()) {
            return std::string("nothing");
          }
          return BendList(random, editor.At(lcn).first(length));
        });
      },
      [&] {
        record(AnyOf(random, records_),
               [&](ByteSpan bytes) { return Bend(random, bytes, kRecordFields); });
      },
      [&] {
        const ByteSpan bits = editor.At(table_bitmap_);
        // Past the last record, too.
        const std::size_t bit =
            AnyOf(random, records_) + Below(random, 10) / 9 * Below(random, 512);
        const std::uint8_t was = bits[bit / 8];
        bits[bit / 8] = AnyByte(random, was);
        mutant.what += "$MFT:$BITMAP at " + std::to_string(bit) + " from " + std::to_string(was) +
                       " to " + std::to_string(bits[bit / 8]) + "; ";
      },
      [&] {
        const ByteSpan mirror = editor.At(editor.Meta("/$MFTMirr").extents[0].lcn);
        mutant.what +=
            "$MFTMirr, " + Bend(random, mirror, {{Below(random, 4 * kRecord), 2}}) + "; ";
      },
      [&] {
        // Only in the table, not in its copy.
        mutant.what += "record without its copy, " +
                       Bend(random, editor.RawRecord(Below(random, 4)), {{Below(random, 400), 2}}) +
                       "; ";
      },
      [&] {
        if (Below(random, 2) == 0) {
          attribute(roots_, [&](ByteSpan a) {
            const std::size_t at = Get(a, 20, 2) + 16U;
            return at + 32 > a.size() ? "nothing" : BendIndex(random, a.subspan(at));
          });
        } else {
          const std::size_t at = AnyOf(random, blocks_);
          editor.Block(static_cast<std::int64_t>(at / editor.Cluster()), [&](ByteSpan block) {
            mutant.what += "block at " + std::to_string(at) + ", " +
                           BendIndex(random, block.subspan(24)) + "; ";
          });
        }
      },
      [&] {
        record(AnyOf(random, records_), [&](ByteSpan bytes) {
          const std::size_t used = std::clamp<std::size_t>(Get(bytes, 24, 4), 64, bytes.size());
          return Bend(random, bytes, {{48 + Below(random, used - 48), 1 + Below(random, 8)}});
        });
      },
      [&] {
        const CheckedItem& item = AnyOf(random, report_.metafiles);
        if (item.extents.empty() || item.extents[0].lcn < 0) return;
        const CheckedExtent& extent = AnyOf(random, item.extents);
        const std::uint64_t at =
            Below(random, static_cast<std::uint64_t>(extent.count) * editor.Cluster());
        mutant.what += item.path + ", " + Bend(random, editor.At(extent.lcn), {{at, 1}}) + "; ";
      },
      [&] {
        mutant.what +=
            "boot sector, " + Bend(random, ByteSpan(editor.bytes).first(512), kBootFields) + "; ";
      },
  };
  for (std::uint64_t changes = 1 + Below(random, 4) / 3; changes > 0; --changes) {
    edits[Below(random, std::size(edits))]();
  }
  mutant.image = std::move(editor.bytes);
  return mutant;
}

}  // namespace vornalux::test
