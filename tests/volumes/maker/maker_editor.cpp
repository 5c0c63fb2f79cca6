// SPDX-License-Identifier: GPL-2.0-or-later
#include "volumes/maker/maker_editor.h"

#include <algorithm>
#include <stdexcept>

namespace vornalux::test {
namespace {

constexpr std::size_t kRecord = 1024;
constexpr std::size_t kSector = 512;

// The n-th item that fits.
template <typename Fits>
const CheckedItem& Nth(const CheckReport& report, std::size_t n, Fits fits) {
  for (const CheckedItem& item : report.items) {
    if (fits(item) && n-- == 0) return item;
  }
  throw std::logic_error("the volume has too few such items");
}

}  // namespace

std::uint64_t Get(ByteSpan bytes, std::size_t at, std::size_t width) {
  std::uint64_t value = 0;
  for (std::size_t i = width; i-- > 0;) value = value << 8 | bytes[at + i];
  return value;
}

void Put(ByteSpan bytes, std::size_t at, std::size_t width, std::uint64_t value) {
  for (std::size_t i = 0; i < width; ++i, value >>= 8) {
    bytes[at + i] = static_cast<std::uint8_t>(value);
  }
}

const CheckedItem& NtfsEditor::Whole(std::size_t n) const {
  return Nth(report, n, [](const CheckedItem& item) {
    return !item.is_folder && !item.compressed && !item.sparse && item.stream.empty() &&
           item.extents.size() == 1 && item.extents[0].count > 1;
  });
}

const CheckedItem& NtfsEditor::Meta(const std::string& path, const std::string& stream) const {
  for (const CheckedItem& item : report.metafiles) {
    if (item.path == path && item.stream == stream) return item;
  }
  throw std::logic_error("no metafile " + path);
}

ByteSpan NtfsEditor::RawRecord(std::uint64_t number) {
  const auto at = static_cast<std::int64_t>(number * kRecord);
  const auto cluster = static_cast<std::int64_t>(Cluster());
  for (const CheckedExtent& extent : Meta("/$MFT").extents) {
    const std::int64_t start = extent.vcn * cluster;
    if (at >= start && at < start + extent.count * cluster) {
      return At(extent.lcn).subspan(static_cast<std::size_t>(at - start), kRecord);
    }
  }
  throw std::logic_error("no record " + std::to_string(number));
}

void NtfsEditor::Protected(ByteSpan record, const std::function<void(ByteSpan)>& edit) {
  const std::size_t array = Get(record, 4, 2);
  for (std::size_t i = 1; i <= record.size() / kSector; ++i) {
    Put(record, i * kSector - 2, 2, Get(record, array + 2 * i, 2));
  }
  edit(record);
  for (std::size_t i = 1; i <= record.size() / kSector; ++i) {
    Put(record, array + 2 * i, 2, Get(record, i * kSector - 2, 2));
    Put(record, i * kSector - 2, 2, Get(record, array, 2));
  }
}

void NtfsEditor::Record(std::uint64_t number, const std::function<void(ByteSpan)>& edit) {
  const ByteSpan record = RawRecord(number);
  Protected(record, edit);
  if (number < 4) {
    std::copy(record.begin(), record.end(),
              At(Meta("/$MFTMirr").extents[0].lcn).subspan(number * kRecord).begin());
  }
}

void NtfsEditor::Block(std::int64_t lcn, const std::function<void(ByteSpan)>& edit) {
  Protected(At(lcn).first(4096), edit);
}

std::size_t NtfsEditor::FindAttribute(ByteSpan record, std::uint32_t type,
                                      std::size_t name_length) {
  for (std::size_t at = Get(record, 20, 2); Get(record, at, 4) != 0xFFFFFFFF;
       at += Get(record, at + 4, 4)) {
    if (Get(record, at, 4) == type && record[at + 9] == name_length) return at;
  }
  throw std::logic_error("no such attribute");
}

void NtfsEditor::Attribute(std::uint64_t number, std::uint32_t type,
                           const std::function<void(ByteSpan)>& edit, std::size_t name_length) {
  Record(number, [&](ByteSpan record) {
    const std::size_t at = FindAttribute(record, type, name_length);
    edit(record.subspan(at, Get(record, at + 4, 4)));
  });
}

std::int64_t NtfsEditor::FirstLcn(ByteSpan attribute) {
  const std::size_t runs = Get(attribute, 32, 2);
  return static_cast<std::int64_t>(
      Get(attribute, runs + 1 + (attribute[runs] & 15), attribute[runs] >> 4));
}

ByteSpan NtfsEditor::LaterDataEntry(std::uint64_t number) {
  constexpr std::uint32_t kList = 0x20, kData = 0x80;
  std::int64_t lcn = 0;
  Attribute(number, kList, [&](ByteSpan a) { lcn = FirstLcn(a); });
  const ByteSpan list = At(lcn);
  for (std::size_t at = 0;; at += Get(list, at + 4, 2)) {
    if (Get(list, at, 4) == kData && Get(list, at + 8, 8) > 0) return list.subspan(at);
  }
}

void NtfsEditor::FlipClusterBit(std::int64_t lcn) {
  At(Meta("/$Bitmap").extents[0].lcn)[static_cast<std::size_t>(lcn / 8)] ^=
      static_cast<std::uint8_t>(1U << (lcn % 8));
}

bool NtfsEditor::ClusterBit(std::int64_t lcn) {
  const ByteSpan bits = At(Meta("/$Bitmap").extents[0].lcn);
  return (bits[static_cast<std::size_t>(lcn / 8)] >> (lcn % 8) & 1) != 0;
}

}  // namespace vornalux::test
