// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/display/display_text.h"

#include <langinfo.h>
#include <wchar.h>

#include <algorithm>
#include <clocale>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "text/wtf8.h"

namespace vornalux {
namespace {

constexpr std::uint32_t kInvalid = 0xFFFFFFFF;

// The character that begins the text, taken off it; kInvalid for one byte that begins none.
std::uint32_t TakeCharacter(std::string_view& text) {
  std::string_view rest = text;
  const std::optional<char32_t> code = TakeCodePoint(rest);
  const bool surrogate = code && *code >= 0xD800 && *code <= 0xDFFF;
  const bool valid = code && !surrogate;
  text = valid ? rest : text.substr(1);
  return valid ? static_cast<std::uint32_t>(*code) : kInvalid;
}

// Characters that take no room of their own but change the direction or the lines of all others.
bool ChangesLayout(std::uint32_t character) {
  return character == 0x061C || (character >= 0x200B && character <= 0x200F) ||
         (character >= 0x2028 && character <= 0x202E) ||
         (character >= 0x2060 && character <= 0x206F) || character == 0xFEFF ||
         (character >= 0xFFF9 && character <= 0xFFFB) || character >= 0xE0000;
}

struct Glyph {
  std::string_view bytes;
  int columns = 0;
};

Glyph Replacement(Charset charset) { return {charset == Charset::Utf8 ? "\xEF\xBF\xBD" : "?", 1}; }

Glyph TakeGlyph(std::string_view& text, Charset charset) {
  const std::string_view before = text;
  const std::uint32_t character = TakeCharacter(text);
  const std::string_view bytes = before.substr(0, before.size() - text.size());
  if (character >= 0x20 && character < 0x7F) return {bytes, 1};
  if (character < 0x20 || character == kInvalid || charset == Charset::Ascii ||
      ChangesLayout(character)) {
    return Replacement(charset);
  }
  const int columns = wcwidth(static_cast<wchar_t>(character));
  return columns < 0 ? Replacement(charset) : Glyph{bytes, columns};
}

std::vector<Glyph> Glyphs(std::string_view text, Charset charset) {
  std::vector<Glyph> glyphs;
  while (!text.empty()) glyphs.push_back(TakeGlyph(text, charset));
  return glyphs;
}

}  // namespace

Charset SetUpCharset() {
  std::setlocale(LC_CTYPE, "");
  if (std::string_view(nl_langinfo(CODESET)) == "UTF-8") return Charset::Utf8;
  std::setlocale(LC_CTYPE, "C.UTF-8");
  return Charset::Ascii;
}

std::string PrintableText(std::string_view text, Charset charset) {
  std::string printable;
  while (!text.empty()) printable += TakeGlyph(text, charset).bytes;
  return printable;
}

std::string WithDegrees(std::string text, Charset charset) {
  constexpr std::string_view kSign = "\xC2\xB0";
  const std::size_t at = text.find(kSign);
  if (charset == Charset::Ascii && at != std::string::npos) text.erase(at, kSign.size());
  return text;
}

std::string PrintableLines(std::string_view text, Charset charset) {
  std::string printable;
  for (;;) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    if (end != std::string_view::npos && line.ends_with('\r')) line.remove_suffix(1);
    printable += PrintableText(line, charset);
    if (end == std::string_view::npos) return printable;
    printable += '\n';
    text.remove_prefix(end + 1);
  }
}

int DisplayWidth(std::string_view text, Charset charset) {
  int columns = 0;
  while (!text.empty()) columns += TakeGlyph(text, charset).columns;
  return columns;
}

std::string CutText(std::string_view text, int columns, Charset charset) {
  std::string printable;
  while (!text.empty()) {
    const Glyph glyph = TakeGlyph(text, charset);
    if (glyph.columns > columns) break;
    printable += glyph.bytes;
    columns -= glyph.columns;
  }
  return printable;
}

std::string ShortenedText(std::string_view text, int columns, Charset charset) {
  const std::vector<Glyph> glyphs = Glyphs(text, charset);
  int total = 0;
  for (const Glyph& glyph : glyphs) total += glyph.columns;
  const std::string_view gap = charset == Charset::Utf8 ? "\xE2\x80\xA6" : "...";
  const int gap_columns = charset == Charset::Utf8 ? 1 : 3;
  std::string shortened;
  if (total <= columns) {
    for (const Glyph& glyph : glyphs) shortened += glyph.bytes;
    return shortened;
  }
  if (columns <= gap_columns) return shortened;

  const int room = columns - gap_columns;
  std::size_t head = 0;
  for (int used = 0; used + glyphs[head].columns <= room / 4; ++head) used += glyphs[head].columns;
  std::size_t tail = glyphs.size();
  int used = room / 4;
  while (tail > head && used + glyphs[tail - 1].columns <= room) used += glyphs[--tail].columns;
  for (std::size_t i = 0; i < head; ++i) shortened += glyphs[i].bytes;
  shortened += gap;
  // A combining mark must not be left to join the gap.
  while (tail < glyphs.size() && glyphs[tail].columns == 0) ++tail;
  for (std::size_t i = tail; i < glyphs.size(); ++i) shortened += glyphs[i].bytes;
  return shortened;
}

}  // namespace vornalux
