// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/windows_text.h"

#include <cstddef>
#include <cstdint>
#include <limits>

#include "host/windows/system_headers.h"
#include "text/wtf8.h"

namespace vornalux {
namespace {

static_assert(sizeof(wchar_t) == 2);

constexpr char32_t kReplacement = 0xFFFD;
constexpr std::size_t kLongestCodePageText = std::numeric_limits<int>::max() / 4;

std::wstring Decode(std::string_view text, bool& malformed) {
  std::u16string units;
  units.reserve(text.size());
  malformed = false;
  while (!text.empty()) {
    const std::optional<char32_t> code = TakeCodePoint(text);
    if (!code) text.remove_prefix(1);
    malformed |= !code;
    AppendCodePoint(units, code.value_or(kReplacement));
  }
  return {units.begin(), units.end()};
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
  return ToWtf8(std::u16string(text.begin(), text.end()));
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
