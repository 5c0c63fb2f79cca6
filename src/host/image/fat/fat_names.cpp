// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/fat/fat_names.h"

#include <sys/stat.h>

#include <ctime>
#include <vector>

// The two above, and volume.h first: what unistr.h uses without including it.
extern "C" {
// clang-format off
#include <ntfs-3g/volume.h>
#include <ntfs-3g/unistr.h>
// clang-format on
}

namespace vornalux {
namespace {

constexpr char16_t kOemUpperHalf[] =
    u"ÇüéâäàåçêëèïîìÄÅÉæÆôöòûùÿÖÜ¢£¥₧ƒ"
    u"áíóúñÑªº¿⌐¬½¼¡«»░▒▓│┤╡╢╖╕╣║╗╝╜╛┐"
    u"└┴┬├─┼╞╟╚╔╩╦╠═╬╧╨╤╥╙╘╒╓╫╪┘┌█▄▌▐▀"
    u"αßΓπΣσµτΦΘΩδ∞φε∩≡±≥≤⌠⌡÷≈°∙·√ⁿ²■\u00A0";
static_assert(std::size(kOemUpperHalf) == 128 + 1);

void AppendUtf8(char32_t c, std::string& out) {
  const auto put = [&out](char32_t byte) { out.push_back(static_cast<char>(byte)); };
  if (c < 0x80) {
    put(c);
  } else if (c < 0x800) {
    put(0xC0 | c >> 6);
    put(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    put(0xE0 | c >> 12);
    put(0x80 | (c >> 6 & 0x3F));
    put(0x80 | (c & 0x3F));
  } else {
    put(0xF0 | c >> 18);
    put(0x80 | (c >> 12 & 0x3F));
    put(0x80 | (c >> 6 & 0x3F));
    put(0x80 | (c & 0x3F));
  }
}

bool IsHighSurrogate(char16_t unit) { return unit >= 0xD800 && unit < 0xDC00; }
bool IsLowSurrogate(char16_t unit) { return unit >= 0xDC00 && unit < 0xE000; }

// Upper case of the characters that one UTF-16 unit holds.
const std::vector<ntfschar>& UpperCase() {
  static const std::vector<ntfschar> table = [] {
    std::vector<ntfschar> made(0x10000);
    ntfs_upcase_table_build(made.data(), static_cast<u32>(made.size() * sizeof(ntfschar)));
    return made;
  }();
  return table;
}

// The character of two or three bytes at the start of text, and how many they are; 0 when there is
// none.
char32_t ShortSequence(std::string_view text, std::size_t& length) {
  const auto byte = [&text](std::size_t i) {
    return i < text.size() ? static_cast<std::uint8_t>(text[i]) : std::uint8_t{0};
  };
  const auto follows = [&byte](std::size_t i) { return (byte(i) & 0xC0) == 0x80; };
  char32_t c = 0;
  if ((byte(0) & 0xE0) == 0xC0 && follows(1)) {
    c = static_cast<char32_t>((byte(0) & 0x1F) << 6 | (byte(1) & 0x3F));
    if (c < 0x80) return 0;
    length = 2;
  } else if ((byte(0) & 0xF0) == 0xE0 && follows(1) && follows(2)) {
    c = static_cast<char32_t>((byte(0) & 0x0F) << 12 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F));
    if (c < 0x800) return 0;
    length = 3;
  }
  return c;
}

}  // namespace

std::string NameToUtf8(std::u16string_view name) {
  std::string out;
  for (std::size_t i = 0; i < name.size(); ++i) {
    if (IsHighSurrogate(name[i]) && i + 1 < name.size() && IsLowSurrogate(name[i + 1])) {
      AppendUtf8(0x10000 + ((name[i] - 0xD800u) << 10) + (name[i + 1] - 0xDC00u), out);
      ++i;
    } else {
      AppendUtf8(name[i], out);
    }
  }
  return out;
}

std::string FoldFatName(std::string_view name) {
  std::string out;
  out.reserve(name.size());
  for (std::size_t i = 0; i < name.size();) {
    std::size_t length = 1;
    const auto first = static_cast<std::uint8_t>(name[i]);
    const char32_t c = first < 0x80 ? first : ShortSequence(name.substr(i), length);
    if (c != 0) {
      AppendUtf8(le16_to_cpu(UpperCase()[c]), out);
    } else {
      out.push_back(name[i]);
    }
    i += length;
  }
  return out;
}

char16_t FromOem(std::uint8_t byte) { return byte < 0x80 ? byte : kOemUpperHalf[byte - 0x80]; }

char16_t LowerOem(char16_t letter) {
  const bool latin =
      (letter >= u'A' && letter <= u'Z') || (letter >= u'À' && letter <= u'Þ' && letter != u'×');
  const bool greek = letter >= u'Α' && letter <= u'Ω';
  return latin || greek ? static_cast<char16_t>(letter + 0x20) : letter;
}

}  // namespace vornalux
