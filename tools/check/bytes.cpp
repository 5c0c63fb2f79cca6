// SPDX-License-Identifier: GPL-2.0-or-later
#include "check/bytes.h"

namespace vornalux::checking {

std::u16string LoadUtf16(Bytes bytes) {
  std::u16string text(bytes.size() / 2, u'\0');
  for (std::size_t i = 0; i < text.size(); ++i) text[i] = Load16(bytes, 2 * i);
  return text;
}

std::string ToUtf8(const std::u16string& text) {
  std::string out;
  out.reserve(text.size());
  const auto put = [&out](std::uint32_t byte) { out.push_back(static_cast<char>(byte)); };
  for (std::size_t i = 0; i < text.size(); ++i) {
    std::uint32_t code = text[i];
    const std::uint32_t next = i + 1 < text.size() ? text[i + 1] : 0U;
    if (code >= 0xD800 && code < 0xDC00 && next >= 0xDC00 && next < 0xE000) {
      code = 0x10000 + ((code - 0xD800) << 10) + (next - 0xDC00);
      ++i;
    }
    if (code < 0x80) {
      put(code);
    } else if (code < 0x800) {
      put(0xC0 | code >> 6);
      put(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
      put(0xE0 | code >> 12);
      put(0x80 | (code >> 6 & 0x3F));
      put(0x80 | (code & 0x3F));
    } else {
      put(0xF0 | code >> 18);
      put(0x80 | (code >> 12 & 0x3F));
      put(0x80 | (code >> 6 & 0x3F));
      put(0x80 | (code & 0x3F));
    }
  }
  return out;
}

}  // namespace vornalux::checking
