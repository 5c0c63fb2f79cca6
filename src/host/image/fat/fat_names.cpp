// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/fat/fat_names.h"

#include <optional>

#include "text/upper_case.h"
#include "text/wtf8.h"

namespace vornalux {
namespace {

constexpr char16_t kOemUpperHalf[] =
    u"ÇüéâäàåçêëèïîìÄÅÉæÆôöòûùÿÖÜ¢£¥₧ƒ"
    u"áíóúñÑªº¿⌐¬½¼¡«»░▒▓│┤╡╢╖╕╣║╗╝╜╛┐"
    u"└┴┬├─┼╞╟╚╔╩╦╠═╬╧╨╤╥╙╘╒╓╫╪┘┌█▄▌▐▀"
    u"αßΓπΣσµτΦΘΩδ∞φε∩≡±≥≤⌠⌡÷≈°∙·√ⁿ²■\u00A0";
static_assert(std::size(kOemUpperHalf) == 128 + 1);

}  // namespace

std::string FoldFatName(std::string_view name) {
  std::string out;
  out.reserve(name.size());
  while (!name.empty()) {
    const std::string_view before = name;
    const std::optional<char32_t> code = TakeCodePoint(name);
    if (code && *code <= 0xFFFF) {
      AppendCodePoint(out, UpperCase(static_cast<char16_t>(*code)));
      continue;
    }
    // What is no text, and what takes two UTF-16 units, stays as it is.
    if (!code) name.remove_prefix(1);
    out += before.substr(0, before.size() - name.size());
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
