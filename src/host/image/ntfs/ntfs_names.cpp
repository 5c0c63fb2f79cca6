// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/ntfs/ntfs_names.h"

#include <array>
#include <utility>

namespace vornalux {
namespace {

constexpr char32_t kFirstHigh = 0xD800;
constexpr char32_t kFirstLow = 0xDC00;
constexpr char32_t kPastLow = 0xE000;
constexpr char32_t kFirstSupplementary = 0x10000;
constexpr char32_t kLast = 0x10FFFF;

bool IsHigh(char32_t unit) { return unit >= kFirstHigh && unit < kFirstLow; }
bool IsLow(char32_t unit) { return unit >= kFirstLow && unit < kPastLow; }

void AppendWtf8(std::string& out, char32_t code) {
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

// The code point at text's front, which is taken off; nothing for a malformed or overlong sequence.
std::optional<char32_t> TakeCode(std::string_view& text) {
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

std::vector<ntfschar> ToUnits(std::u16string_view text) {
  std::vector<ntfschar> units;
  units.reserve(text.size());
  for (const char16_t unit : text) units.push_back(cpu_to_le16(unit));
  return units;
}

struct TypeName {
  std::string_view text;
  ATTR_TYPES type;
};
const std::array kTypeNames = {
    TypeName{"$DATA", AT_DATA},
    TypeName{"$INDEX_ALLOCATION", AT_INDEX_ALLOCATION},
    TypeName{"$BITMAP", AT_BITMAP},
};

}  // namespace

std::string ToWtf8(std::u16string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t code = text[i];
    if (IsHigh(code) && i + 1 < text.size() && IsLow(text[i + 1])) {
      code = kFirstSupplementary + ((code - kFirstHigh) << 10) + (text[++i] - kFirstLow);
    }
    AppendWtf8(out, code);
  }
  return out;
}

std::optional<std::u16string> FromWtf8(std::string_view text) {
  std::u16string out;
  out.reserve(text.size());
  while (!text.empty()) {
    const std::optional<char32_t> code = TakeCode(text);
    if (!code) return std::nullopt;
    if (*code < kFirstSupplementary) {
      out += static_cast<char16_t>(*code);
    } else {
      out += static_cast<char16_t>(kFirstHigh + ((*code - kFirstSupplementary) >> 10));
      out += static_cast<char16_t>(kFirstLow + ((*code - kFirstSupplementary) & 0x3FF));
    }
  }
  return out;
}

std::u16string FromUnits(const ntfschar* units, std::size_t count) {
  std::u16string text(count, u'\0');
  for (std::size_t i = 0; i < count; ++i) text[i] = le16_to_cpu(units[i]);
  return text;
}

UpcaseTable::UpcaseTable(const ntfschar* table, std::size_t length)
    : table_(FromUnits(table, length)) {}

std::u16string UpcaseTable::Fold(std::u16string_view name) const {
  std::u16string folded(name);
  for (char16_t& unit : folded) {
    if (unit < table_.size()) unit = table_[unit];
  }
  return folded;
}

std::optional<AttributeName> ParseStream(std::string_view stream, bool is_folder) {
  const AttributeName index{AT_INDEX_ALLOCATION, ToUnits(u"$I30")};
  if (stream.empty()) return is_folder ? index : AttributeName{};
  if (stream.front() != ':') return std::nullopt;
  stream.remove_prefix(1);

  const std::size_t colon = stream.find(':');
  const std::optional<std::u16string> name = FromWtf8(stream.substr(0, colon));
  if (!name || name->size() > 255) return std::nullopt;
  const std::string_view type_text =
      colon == std::string_view::npos ? "$DATA" : stream.substr(colon + 1);
  for (const TypeName& each : kTypeNames) {
    if (each.text != type_text) continue;
    if (each.type == AT_INDEX_ALLOCATION && name->empty()) return index;
    return AttributeName{each.type, ToUnits(*name)};
  }
  return std::nullopt;
}

}  // namespace vornalux
