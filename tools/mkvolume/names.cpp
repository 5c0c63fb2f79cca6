// SPDX-License-Identifier: GPL-2.0-or-later
#include "mkvolume/names.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace vornalux::making {
namespace {

std::string Digits(std::uint64_t number, int width) {
  std::string text = std::to_string(number);
  if (text.size() < static_cast<std::size_t>(width)) {
    text.insert(0, static_cast<std::size_t>(width) - text.size(), '0');
  }
  return text;
}

std::u16string Repeated(std::u16string_view part, std::size_t length) {
  std::u16string text;
  while (text.size() + part.size() <= length) text += part;
  return text;
}

}  // namespace

std::u16string Wide(const std::string& text) { return {text.begin(), text.end()}; }

std::u16string PlainFileName(std::uint64_t number, SeededRandom& random) {
  switch (random.Below(6)) {
    case 0:
      return Wide("F" + Digits(number, 7) + ".DAT");  // as short as FAT has it
    case 1:
      return Wide("n" + Digits(number, 7) + ".txt");
    case 2:
      return Wide("IMG_" + Digits(number, 6) + ".jpeg");
    case 3:
      return Wide("Report of " + Digits(number, 5) + ", final.docx");
    case 4:
      return Wide("lib" + Digits(number, 5) + ".so.1.2");
    default:
      return Wide("data-" + Digits(number, 6) + ".bin");
  }
}

std::u16string OddName(std::uint64_t number, bool unpaired, SeededRandom& random) {
  const std::u16string tag = Wide(Digits(number, 6));
  const auto length = static_cast<std::size_t>(random.Between(120, 240));
  switch (random.Below(unpaired ? 9 : 8)) {
    case 0:
      return u"Übergröße – " + tag + u" (straße).txt";
    case 1:
      return u"Отчёт за год " + tag + u".doc";
    case 2:
      return u"報告書" + tag + u"最終版.pdf";
    case 3:
      return u"party 🎉 " + tag + u" 🥳.png";
    case 4:
      return u"e\u0301te\u0301 " + tag + u" no\u0308el.odt";  // letters with combining accents
    case 5:
      return Repeated(u"a rather long name ", length) + tag + u".txt";
    case 6:
      return Repeated(u"長い名前", length) + tag;
    case 7:
      return u"." + tag + u" [with] {all} 'sorts' & of+signs;=,~1.tar.gz";
    default:
      return std::u16string(u"half ") + char16_t{0xD83D} + tag;
  }
}

std::u16string FolderName(std::uint64_t number, SeededRandom& random) {
  static constexpr std::array kStems = {"Documents", "project", "BACKUP", "cache", "My Pictures"};
  return Wide(std::string(kStems[random.Below(kStems.size())]) + " " + Digits(number, 4));
}

}  // namespace vornalux::making
