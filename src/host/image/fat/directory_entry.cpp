// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/fat/directory_entry.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "host/image/device/little_endian.h"
#include "host/image/fat/fat_names.h"
#include "platform/types.h"

namespace vornalux {
namespace {

constexpr std::size_t kBaseLength = 8;
constexpr std::size_t kNameLength = 11;
constexpr std::uint32_t kCaseFlags = 12;
constexpr std::uint8_t kLowerBase = 0x08;
constexpr std::uint8_t kLowerExtension = 0x10;
constexpr std::uint8_t kStandsForE5 = 0x05;

constexpr std::uint32_t kPieceKind = 12;
constexpr std::uint32_t kPieceChecksum = 13;
constexpr std::uint8_t kLastPiece = 0x40;
constexpr int kMostPieces = 20;
constexpr std::size_t kLongest = 255;
constexpr std::uint8_t kUnitOffsets[] = {1, 3, 5, 7, 9, 14, 16, 18, 20, 22, 24, 28, 30};

std::uint8_t ShortNameChecksum(RawEntry entry) {
  unsigned sum = 0;
  for (std::size_t i = 0; i < kNameLength; ++i) {
    sum = (((sum & 1) << 7) + (sum >> 1) + entry[i]) & 0xFF;
  }
  return static_cast<std::uint8_t>(sum);
}

std::u16string Part(RawEntry entry, std::size_t first, std::size_t end, bool lower) {
  std::u16string part;
  for (std::size_t i = first; i < end; ++i) {
    const bool escaped = i == 0 && entry[i] == kStandsForE5;
    const char16_t letter = FromOem(escaped ? fat_entry::kDeleted : entry[i]);
    part.push_back(lower ? LowerOem(letter) : letter);
  }
  part.erase(part.find_last_not_of(u' ') + 1);
  return part;
}

bool FitsPath(std::u16string_view name) {
  if (name.empty() || name.size() > kLongest || name == u"." || name == u"..") return false;
  constexpr std::u16string_view kForbidden = u"\"*/:<>?\\|";
  return std::none_of(name.begin(), name.end(), [&](char16_t unit) {
    return unit < u' ' || kForbidden.find(unit) != std::u16string_view::npos;
  });
}

}  // namespace

bool IsLongNamePiece(RawEntry entry) { return (entry[fat_entry::kAttributes] & 0x3F) == 0x0F; }

bool IsDotEntry(RawEntry entry, int dots) {
  return std::memcmp(entry.data(), dots == 1 ? ".          " : "..         ", kNameLength) == 0;
}

std::u16string ShortName(RawEntry entry) {
  const std::uint8_t flags = entry[kCaseFlags];
  std::u16string name = Part(entry, 0, kBaseLength, (flags & kLowerBase) != 0);
  const std::u16string extension =
      Part(entry, kBaseLength, kNameLength, (flags & kLowerExtension) != 0);
  return extension.empty() ? name : name + u"." + extension;
}

std::u16string LabelName(RawEntry entry) { return Part(entry, 0, kNameLength, false); }

void LongName::Drop() {
  units_.clear();
  pieces_missing_ = 0;
}

void LongName::Add(RawEntry piece) {
  const int ordinal = piece[0] & ~kLastPiece;
  const bool last = (piece[0] & kLastPiece) != 0;
  const bool well_formed = ordinal >= 1 && ordinal <= kMostPieces && piece[kPieceKind] == 0 &&
                           LoadLittle<std::uint16_t>(piece, fat_entry::kClusterLow) == 0;
  const bool follows = ordinal == pieces_missing_ && piece[kPieceChecksum] == checksum_;
  if (!well_formed || (!last && !follows)) {
    Drop();
    return;
  }
  if (last) {
    units_.assign(static_cast<std::size_t>(ordinal) * std::size(kUnitOffsets), u'\0');
    checksum_ = piece[kPieceChecksum];
  }
  pieces_missing_ = ordinal - 1;
  std::size_t at = static_cast<std::size_t>(pieces_missing_) * std::size(kUnitOffsets);
  for (const std::uint8_t offset : kUnitOffsets)
    units_[at++] = LoadLittle<std::uint16_t>(piece, offset);
}

std::optional<std::u16string> LongName::Take(RawEntry entry) {
  std::u16string name = std::move(units_);
  const bool whole = pieces_missing_ == 0 && !name.empty();
  Drop();
  if (!whole || checksum_ != ShortNameChecksum(entry)) return std::nullopt;
  name.resize(std::min(name.size(), name.find(u'\0')));
  if (!FitsPath(name)) return std::nullopt;
  return name;
}

}  // namespace vornalux
