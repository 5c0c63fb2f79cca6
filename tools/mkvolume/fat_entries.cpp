// SPDX-License-Identifier: GPL-2.0-or-later
#include "mkvolume/fat_entries.h"

#include <algorithm>

namespace vornalux::making {
namespace {

constexpr std::uint8_t kFolder = 0x10;
constexpr std::uint8_t kArchive = 0x20;
constexpr std::uint8_t kLongName = 0x0F;
constexpr std::uint8_t kDeleted = 0xE5;
constexpr std::uint16_t kDate = 0x5821;  // the same for all, so that images can be compared
constexpr std::size_t kUnitsPerPart = 13;

void Store16(std::span<std::uint8_t> bytes, std::size_t at, std::uint32_t value) {
  bytes[at] = static_cast<std::uint8_t>(value);
  bytes[at + 1] = static_cast<std::uint8_t>(value >> 8);
}

bool AllowedInShort(char16_t c) {
  return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         (c < 0x80 && std::string_view("$%'-_@~`!(){}^#&").find(static_cast<char>(c)) !=
                          std::string_view::npos);
}

// Splits at the last dot: base and extension.
std::pair<std::u16string, std::u16string> Split(const std::u16string& name) {
  const std::size_t dot = name.rfind(u'.');
  if (dot == std::u16string::npos || dot == 0) return {name, u""};
  return {name.substr(0, dot), name.substr(dot + 1)};
}

enum class Case { None, Upper, Lower, Mixed };

Case CaseOf(const std::u16string& part) {
  Case found = Case::None;
  for (const char16_t c : part) {
    const bool upper = c >= 'A' && c <= 'Z';
    const bool lower = c >= 'a' && c <= 'z';
    if (!upper && !lower) continue;
    const Case here = upper ? Case::Upper : Case::Lower;
    if (found != Case::None && found != here) return Case::Mixed;
    found = here;
  }
  return found;
}

std::u16string Upper(std::u16string text) {
  for (char16_t& c : text) {
    if (c >= 'a' && c <= 'z') c = static_cast<char16_t>(c - 32);
  }
  return text;
}

bool Plain(const std::u16string& part, std::size_t limit) {
  return part.size() <= limit && std::all_of(part.begin(), part.end(), AllowedInShort);
}

template <typename Name>
Name Packed(const std::u16string& base, const std::u16string& extension) {
  Name name;
  name.fill(' ');
  // Bounded by the field, which they never pass: the optimiser does not see that.
  std::copy_n(base.begin(), std::min<std::size_t>(base.size(), 8), name.begin());
  std::copy_n(extension.begin(), std::min<std::size_t>(extension.size(), 3), name.begin() + 8);
  return name;
}

std::uint8_t Checksum(std::span<const std::uint8_t> name) {
  std::uint8_t sum = 0;
  for (const std::uint8_t c : name) {
    sum = static_cast<std::uint8_t>(((sum & 1) << 7) + (sum >> 1) + c);
  }
  return sum;
}

}  // namespace

void FatFolderEntries::AddDots() {
  AddShort({'.', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '}, 0, true);
  AddShort({'.', '.', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' ', ' '}, 0, true);
}

std::size_t FatFolderEntries::Add(const std::u16string& name, bool is_folder) {
  const auto [base, extension] = Split(name);
  const Case base_case = CaseOf(base);
  const Case extension_case = CaseOf(extension);
  const bool fits = !base.empty() && Plain(Upper(base), 8) && Plain(Upper(extension), 3) &&
                    base_case != Case::Mixed && extension_case != Case::Mixed;
  const auto exact = fits ? Packed<ShortName>(Upper(base), Upper(extension)) : ShortName{};
  if (fits && taken_.insert(exact).second) {
    const int lower =
        (base_case == Case::Lower ? 0x08 : 0) | (extension_case == Case::Lower ? 0x10 : 0);
    AddShort(exact, static_cast<std::uint8_t>(lower), is_folder);
  } else {
    const ShortName short_name = Shorten(name);
    AddLongName(name, short_name);
    AddShort(short_name, 0, is_folder);
  }
  return Count() - 1;
}

void FatFolderEntries::AddDeleted(const std::u16string& name, std::uint32_t size) {
  const std::size_t first = Count();
  const std::size_t entry = Add(name, false);
  SetSize(entry, size);
  SetCluster(entry, 2 + size % 1000);  // a deleted file still says where it was
  for (std::size_t i = first; i < Count(); ++i) bytes_[i * kEntry] = kDeleted;
}

void FatFolderEntries::SetCluster(std::size_t entry, std::uint32_t cluster) {
  const std::span<std::uint8_t> raw(bytes_.data() + entry * kEntry, kEntry);
  Store16(raw, 20, cluster >> 16);
  Store16(raw, 26, cluster);
}

void FatFolderEntries::SetSize(std::size_t entry, std::uint32_t size) {
  const std::span<std::uint8_t> raw(bytes_.data() + entry * kEntry, kEntry);
  Store16(raw, 28, size);
  Store16(raw, 30, size >> 16);
}

FatFolderEntries::ShortName FatFolderEntries::Shorten(const std::u16string& name) {
  const auto [long_base, long_extension] = Split(Upper(name));
  const auto filtered = [](const std::u16string& text, std::size_t limit) {
    std::u16string out;
    for (const char16_t c : text) {
      if (out.size() == limit) break;
      if (c == ' ' || c == '.') continue;
      out.push_back(AllowedInShort(c) ? c : u'_');
    }
    return out;
  };
  const std::u16string extension = filtered(long_extension, 3);
  while (true) {
    const std::string number = "~" + std::to_string(next_tail_++);
    std::u16string base = filtered(long_base, 8 - number.size());
    base.append(number.begin(), number.end());
    const auto candidate = Packed<ShortName>(base, extension);
    if (taken_.insert(candidate).second) return candidate;
  }
}

void FatFolderEntries::AddLongName(const std::u16string& name, const ShortName& short_name) {
  std::u16string units = name;
  if (units.size() % kUnitsPerPart != 0) {
    units.push_back(u'\0');
    units.resize((units.size() + kUnitsPerPart - 1) / kUnitsPerPart * kUnitsPerPart, u'\xFFFF');
  }
  const std::size_t parts = units.size() / kUnitsPerPart;
  for (std::size_t part = parts; part-- > 0;) {
    bytes_.resize(bytes_.size() + kEntry);
    const std::span<std::uint8_t> raw(bytes_.data() + bytes_.size() - kEntry, kEntry);
    raw[0] = static_cast<std::uint8_t>((part + 1) | (part + 1 == parts ? 0x40 : 0));
    raw[11] = kLongName;
    raw[13] = Checksum(short_name);
    for (std::size_t i = 0; i < kUnitsPerPart; ++i) {
      const std::size_t at = i < 5 ? 1 + 2 * i : i < 11 ? 14 + 2 * (i - 5) : 28 + 2 * (i - 11);
      Store16(raw, at, units[part * kUnitsPerPart + i]);
    }
  }
}

void FatFolderEntries::AddShort(const ShortName& name, std::uint8_t lower_case, bool is_folder) {
  bytes_.resize(bytes_.size() + kEntry);
  const std::span<std::uint8_t> raw(bytes_.data() + bytes_.size() - kEntry, kEntry);
  std::copy(name.begin(), name.end(), raw.begin());
  raw[11] = is_folder ? kFolder : kArchive;
  raw[12] = lower_case;
  Store16(raw, 16, kDate);
  Store16(raw, 18, kDate);
  Store16(raw, 24, kDate);
}

}  // namespace vornalux::making
