// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/fat/fat_names.h"

#include <sys/stat.h>

#include <ctime>
#include <optional>
#include <vector>

#include "host/mounted/wtf8.h"

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

// Upper case of the characters that one UTF-16 unit holds.
const std::vector<ntfschar>& UpperCase() {
  static const std::vector<ntfschar> table = [] {
    std::vector<ntfschar> made(0x10000);
    ntfs_upcase_table_build(made.data(), static_cast<u32>(made.size() * sizeof(ntfschar)));
    return made;
  }();
  return table;
}

}  // namespace

std::string FoldFatName(std::string_view name) {
  std::string out;
  out.reserve(name.size());
  while (!name.empty()) {
    const std::string_view before = name;
    const std::optional<char32_t> code = TakeCodePoint(name);
    if (code && *code < UpperCase().size()) {
      AppendCodePoint(out, le16_to_cpu(UpperCase()[*code]));
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
