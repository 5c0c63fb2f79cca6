// SPDX-License-Identifier: GPL-2.0-or-later
#include "text/wtf8.h"

#include <algorithm>
#include <array>

namespace vornalux {
namespace {

constexpr char32_t kFirstHigh = 0xD800;
constexpr char32_t kFirstLow = 0xDC00;
constexpr char32_t kPastLow = 0xE000;
constexpr char32_t kFirstSupplementary = 0x10000;
constexpr char32_t kLast = 0x10FFFF;

bool IsHigh(char32_t unit) { return unit >= kFirstHigh && unit < kFirstLow; }
bool IsLow(char32_t unit) { return unit >= kFirstLow && unit < kPastLow; }

}  // namespace

std::optional<char32_t> TakeCodePoint(std::string_view& text) {
  const auto lead = static_cast<unsigned char>(text.front());
  const std::size_t tails = lead < 0x80 ? 0 : lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
  const bool valid_lead = lead < 0x80 || (lead >= 0xC2 && lead < 0xF5);
  if (!valid_lead || text.size() <= tails) return std::nullopt;
  char32_t code = tails == 0 ? lead : lead & (0x3FU >> tails);
  for (std::size_t i = 1; i <= tails; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if ((byte & 0xC0) != 0x80) return std::nullopt;
    code = code << 6 | (byte & 0x3FU);
  }
  constexpr std::array<char32_t, 4> kSmallest = {0, 0x80, 0x800, kFirstSupplementary};
  if (code < kSmallest[tails] || code > kLast) return std::nullopt;
  text.remove_prefix(tails + 1);
  return code;
}

void AppendCodePoint(std::string& out, char32_t code) {
  const auto tail = [code](int shift) {
    return static_cast<char>(0x80 | ((code >> shift) & 0x3F));
  };
  if (code < 0x80) {
    out += static_cast<char>(code);
  } else if (code < 0x800) {
    out += {static_cast<char>(0xC0 | (code >> 6)), tail(0)};
  } else if (code < kFirstSupplementary) {
    out += {static_cast<char>(0xE0 | (code >> 12)), tail(6), tail(0)};
  } else {
    out += {static_cast<char>(0xF0 | (code >> 18)), tail(12), tail(6), tail(0)};
  }
}

void AppendCodePoint(std::u16string& out, char32_t code) {
  if (code < kFirstSupplementary) {
    out += static_cast<char16_t>(code);
  } else {
    out += static_cast<char16_t>(kFirstHigh + ((code - kFirstSupplementary) >> 10));
    out += static_cast<char16_t>(kFirstLow + ((code - kFirstSupplementary) & 0x3FF));
  }
}

std::string ToWtf8(std::u16string_view text) {
  // Names are ASCII, mostly.
  std::string out(text.size(), '\0');
  std::size_t i = 0;
  for (; i < text.size() && text[i] < 0x80; ++i) out[i] = static_cast<char>(text[i]);
  out.resize(i);
  for (; i < text.size(); ++i) {
    char32_t code = text[i];
    if (IsHigh(code) && i + 1 < text.size() && IsLow(text[i + 1])) {
      code = kFirstSupplementary + ((code - kFirstHigh) << 10) + (text[++i] - kFirstLow);
    }
    AppendCodePoint(out, code);
  }
  return out;
}

std::optional<std::u16string> FromWtf8(std::string_view text) {
  const auto past_ascii =
      std::find_if(text.begin(), text.end(), [](char c) { return (c & 0x80) != 0; });
  std::u16string out(text.begin(), past_ascii);
  text.remove_prefix(out.size());
  while (!text.empty()) {
    const std::optional<char32_t> code = TakeCodePoint(text);
    if (!code) return std::nullopt;
    AppendCodePoint(out, *code);
  }
  return out;
}

}  // namespace vornalux
