// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace vornalux {

// A directory's 32-byte entries, as they lie on the disk.
namespace fat_entry {
inline constexpr std::uint32_t kSize = 32;
inline constexpr std::uint32_t kAttributes = 11;
inline constexpr std::uint32_t kClusterHigh = 20;
inline constexpr std::uint32_t kClusterLow = 26;
inline constexpr std::uint32_t kFileSize = 28;
inline constexpr std::uint8_t kEnd = 0x00;      // first byte: nothing from here on
inline constexpr std::uint8_t kDeleted = 0xE5;  // first byte
}  // namespace fat_entry

using RawEntry = std::span<const std::uint8_t, fat_entry::kSize>;

bool IsLongNamePiece(RawEntry entry);

// "." when dots is 1, ".." when it is 2.
bool IsDotEntry(RawEntry entry, int dots);

// The name in the entry itself, its case flags respected. Empty when it is blank.
std::u16string ShortName(RawEntry entry);

// The volume label in the entry.
std::u16string LabelName(RawEntry entry);

// Puts a long name together from the entries before the one that it belongs to.
class LongName {
 public:
  void Add(RawEntry piece);
  void Drop();

  // Ends the gathering at the entry that follows the pieces. No name when they are not whole,
  // belong to another entry (a system without long names replaced it), or hold what a path cannot.
  std::optional<std::u16string> Take(RawEntry entry);

 private:
  std::u16string units_;
  int pieces_missing_ = 0;
  std::uint8_t checksum_ = 0;
};

}  // namespace vornalux
