// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/windows_text.h"

#include <cstddef>
#include <cstdint>
#include <limits>

#include "host/windows/system_headers.h"

namespace vornalux {
namespace {

static_assert(sizeof(wchar_t) == 2);

constexpr char32_t kReplacement = 0xFFFD;
constexpr char32_t kMalformed = 0xFFFFFFFF;
constexpr std::size_t kLongestCodePageText = std::numeric_limits<int>::max() / 4;

bool IsHigh(char32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool IsLow(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

// The code point at the front of text, which is taken off; surrogates are code points like others.
// kMalformed takes one byte off.
char32_t TakeCodePoint(std::string_view& text) {
  const auto byte = [&](std::size_t i) {
    return static_cast<char32_t>(static_cast<unsigned char>(text[i]));
  };
  const char32_t first = byte(0);
  std::size_t length = 1;
  char32_t code = first;
  char32_t least = 0;
  if (first >= 0xF0 && first <= 0xF4) {
    length = 4, code = first & 0x07, least = 0x10000;
  } else if (first >= 0xE0 && first < 0xF0) {
    length = 3, code = first & 0x0F, least = 0x800;
  } else if (first >= 0xC0 && first < 0xE0) {
    length = 2, code = first & 0x1F, least = 0x80;
  } else if (first >= 0x80) {
    code = kMalformed;
  }
  bool whole = code != kMalformed && length <= text.size();
  for (std::size_t i = 1; whole && i < length; ++i) {
    whole = (byte(i) & 0xC0) == 0x80;
    code = code << 6 | (byte(i) & 0x3F);
  }
  if (!whole || code < least || code > 0x10FFFF) {
    text.remove_prefix(1);
    return kMalformed;
  }
  text.remove_prefix(length);
  return code;
}

void AppendWide(char32_t code, std::wstring& out) {
  if (code < 0x10000) {
    out += static_cast<wchar_t>(code);
  } else {
    out += static_cast<wchar_t>(0xD800 + ((code - 0x10000) >> 10));
    out += static_cast<wchar_t>(0xDC00 + ((code - 0x10000) & 0x3FF));
  }
}

void AppendUtf8(char32_t code, std::string& out) {
  const auto rest = [&](int shift) {
    return static_cast<char>(0x80 | (static_cast<std::uint32_t>(code >> shift) & 0x3F));
  };
  if (code < 0x80) {
    out += static_cast<char>(code);
  } else if (code < 0x800) {
    out += {static_cast<char>(0xC0 | code >> 6), rest(0)};
  } else if (code < 0x10000) {
    out += {static_cast<char>(0xE0 | code >> 12), rest(6), rest(0)};
  } else {
    out += {static_cast<char>(0xF0 | code >> 18), rest(12), rest(6), rest(0)};
  }
}

std::wstring Decode(std::string_view text, bool& malformed) {
  std::wstring wide;
  wide.reserve(text.size());
  malformed = false;
  while (!text.empty()) {
    const char32_t code = TakeCodePoint(text);
    malformed |= code == kMalformed;
    AppendWide(code == kMalformed ? kReplacement : code, wide);
  }
  return wide;
}

std::string ToCodePage(UINT page, std::string_view text) {
  const std::wstring wide = ToWide(text.substr(0, kLongestCodePageText));
  const int units = static_cast<int>(wide.size());
  const auto convert = [&](char* out, int size) {
    return WideCharToMultiByte(page, 0, wide.data(), units, out, size, nullptr, nullptr);
  };
  const int size = units == 0 ? 0 : convert(nullptr, 0);
  std::string out(static_cast<std::size_t>(size), '\0');
  convert(out.data(), size);
  return out;
}

std::string FromCodePage(UINT page, std::string_view text) {
  const int bytes = static_cast<int>(text.substr(0, kLongestCodePageText).size());
  const int units = bytes == 0 ? 0 : MultiByteToWideChar(page, 0, text.data(), bytes, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(units), L'\0');
  MultiByteToWideChar(page, 0, text.data(), bytes, wide.data(), units);
  return FromWide(wide);
}

}  // namespace

std::wstring ToWide(std::string_view text) {
  bool malformed = false;
  return Decode(text, malformed);
}

std::string FromWide(std::wstring_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t code = text[i];
    if (IsHigh(code) && i + 1 < text.size() && IsLow(text[i + 1])) {
      code = 0x10000 + ((code - 0xD800) << 10) + (char32_t{text[++i]} - 0xDC00);
    }
    AppendUtf8(code, out);
  }
  return out;
}

std::optional<std::wstring> ToWidePath(std::string_view path) {
  bool malformed = false;
  std::wstring wide = Decode(path, malformed);
  if (malformed || wide.find(L'\0') != std::wstring::npos) return std::nullopt;
  const bool from_drive = wide.size() >= 3 && wide[1] == L':' && wide[2] == L'\\';
  return from_drive ? L"\\\\?\\" + wide : wide;
}

std::string ToAnsi(std::string_view text) { return ToCodePage(CP_ACP, text); }
std::string FromAnsi(std::string_view text) { return FromCodePage(CP_ACP, text); }
std::string ToOem(std::string_view text) { return ToCodePage(CP_OEMCP, text); }
std::string FromOem(std::string_view text) { return FromCodePage(CP_OEMCP, text); }

}  // namespace vornalux
