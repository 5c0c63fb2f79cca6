// SPDX-License-Identifier: GPL-2.0-or-later
#include "check/fat_folder.h"

#include <algorithm>
#include <set>

namespace vornalux::checking {
namespace {

constexpr std::size_t kEntry = 32;
constexpr std::uint8_t kLongName = 0x0F;

// Code page 437, upper half: what names without a long form are shown as.
constexpr char16_t kUpperHalf[129] =
    u"ÇüéâäàåçêëèïîìÄÅÉæÆôöòûùÿÖÜ¢£¥₧ƒáíóúñÑªº¿⌐¬½¼¡«»░▒▓│┤╡╢╖╕╣║╗╝╜╛┐└┴┬├─┼╞╟╚╔╩╦╠═╬╧╨╤╥╙╘╒╓╫╪┘┌"
    u"█▄▌▐▀αßΓπΣσµτΦΘΩδ∞φε∩≡±≥≤⌠⌡÷≈°∙·√ⁿ²■\u00A0";

std::uint8_t Checksum(const std::array<std::uint8_t, 11>& name) {
  unsigned sum = 0;
  for (const std::uint8_t c : name) sum = ((((sum & 1) << 7) | (sum >> 1)) + c) & 0xFF;
  return static_cast<std::uint8_t>(sum);
}

std::u16string ShortPart(Bytes part, bool lower) {
  std::u16string text;
  for (const std::uint8_t c : part) {
    char16_t unit = c < 0x80 ? char16_t{c} : kUpperHalf[c - 0x80];
    if (lower && c >= 'A' && c <= 'Z') unit = static_cast<char16_t>(c + 32);
    text.push_back(unit);
  }
  text.erase(text.find_last_not_of(u' ') + 1);
  return text;
}

std::string ShortName(Bytes entry) {
  std::array<std::uint8_t, 11> name{};
  std::copy_n(entry.begin(), name.size(), name.begin());
  if (name[0] == 0x05) name[0] = 0xE5;  // 0xE5 itself means "deleted"
  const std::uint8_t lower = Load8(entry, 12);
  std::u16string text = ShortPart(Part(name, 0, 8), (lower & 0x08) != 0);
  const std::u16string extension = ShortPart(Part(name, 8, 3), (lower & 0x10) != 0);
  if (!extension.empty()) text += u"." + extension;
  return ToUtf8(text);
}

bool GoodShortName(const std::array<std::uint8_t, 11>& name) {
  if (name[0] == ' ') return false;
  return std::none_of(name.begin(), name.end(), [&](const std::uint8_t& c) {
    const bool first = &c == name.data();
    return (c < 0x20 && !(first && c == 0x05)) || (c >= 'a' && c <= 'z') || c == 0x7F ||
           std::string_view("\"*+,./:;<=>?[\\]|").find(static_cast<char>(c)) !=
               std::string_view::npos;
  });
}

// Puts the entries of a long name together, which stand in front of the short one, last part first.
class LongName {
 public:
  bool Pending() const { return !text_.empty() || due_ != 0; }
  void Drop() { *this = LongName(); }

  // False: out of place.
  bool Take(Bytes entry) {
    const std::uint8_t order = Load8(entry, 0);
    const unsigned number = order & 0x3FU;
    if ((order & 0x40) != 0) {
      const bool was_pending = Pending();
      Drop();
      if (was_pending || number == 0 || number > 20) return false;
      due_ = number;
      checksum_ = Load8(entry, 13);
    }
    if (number == 0 || number != due_ || Load8(entry, 13) != checksum_ || Load8(entry, 12) != 0 ||
        Load16(entry, 26) != 0) {
      Drop();
      return false;
    }
    text_ = LoadUtf16(Part(entry, 1, 10)) + LoadUtf16(Part(entry, 14, 12)) +
            LoadUtf16(Part(entry, 28, 4)) + text_;
    complete_ = --due_ == 0;
    return true;
  }

  bool Fits(const std::array<std::uint8_t, 11>& short_name) const {
    return complete_ && checksum_ == Checksum(short_name);
  }

  std::u16string Text() const { return text_.substr(0, text_.find(u'\0')); }

 private:
  std::u16string text_;
  unsigned due_ = 0;
  std::uint8_t checksum_ = 0;
  bool complete_ = false;
};

std::string Folded(std::string name) {
  for (char& c : name) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
  }
  return name;
}

}  // namespace

std::vector<FatEntry> ReadFatFolder(Bytes bytes, bool wide, const std::string& path,
                                    Problems& problems) {
  std::vector<FatEntry> entries;
  std::set<std::string> names;
  std::set<std::array<std::uint8_t, 11>> short_names;
  LongName long_name;
  const auto fault = [&](std::size_t at, const auto&... parts) {
    problems.Add(path, ", entry ", at / kEntry, ": ", parts...);
  };
  std::size_t at = 0;
  for (; at + kEntry <= bytes.size() && bytes[at] != 0; at += kEntry) {
    const Bytes raw = bytes.subspan(at, kEntry);
    if (raw[0] == 0xE5) {
      if (long_name.Pending()) fault(at, "deleted, but has a long name before it");
      long_name.Drop();
      continue;
    }
    if ((raw[11] & 0x3F) == kLongName) {
      if (!long_name.Take(raw)) fault(at, "a part of a long name out of place");
      continue;
    }
    FatEntry entry;
    std::copy_n(raw.begin(), 11, entry.short_name.begin());
    entry.attributes = raw[11];
    entry.size = Load32(raw, 28);
    entry.cluster = Load16(raw, 26) | (wide ? std::uint32_t{Load16(raw, 20)} << 16 : 0U);
    entry.name = ShortName(raw);
    if (long_name.Pending()) {
      if (long_name.Fits(entry.short_name)) {
        entry.name = ToUtf8(long_name.Text());
      } else {
        fault(at, "the long name before it is not its own");
      }
      long_name.Drop();
    }
    if (!entry.IsDot() && !entry.IsLabel()) {
      if (!GoodShortName(entry.short_name)) fault(at, "\"", entry.name, "\": bad short name");
      if (entry.name.empty() || entry.name.find('/') != std::string::npos) {
        fault(at, "\"", entry.name, "\": bad name");
      }
      const bool fresh_short = short_names.insert(entry.short_name).second;
      if (!names.insert(Folded(entry.name)).second || !fresh_short) {
        fault(at, "\"", entry.name, "\": name is there twice");
      }
    }
    entries.push_back(std::move(entry));
  }
  if (long_name.Pending()) fault(at, "a long name without an entry");
  return entries;
}

}  // namespace vornalux::checking
