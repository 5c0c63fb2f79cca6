// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/ntfs/ntfs_names.h"

#include <array>
#include <utility>

#include "text/wtf8.h"

namespace vornalux {
namespace {

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

// The UTF-16 units of WTF-8, one after the other. Ends early at what is none.
class UnitReader {
 public:
  explicit UnitReader(std::string_view text) : text_(text) {}

  std::optional<char16_t> Next() {
    if (low_ != 0) return std::exchange(low_, u'\0');
    if (text_.empty()) return std::nullopt;
    if (const char first = text_.front(); (first & 0x80) == 0) {
      text_.remove_prefix(1);
      return static_cast<char16_t>(first);
    }
    const std::optional<char32_t> code = TakeCodePoint(text_);
    if (!code) return std::nullopt;
    if (*code < 0x10000) return static_cast<char16_t>(*code);
    low_ = static_cast<char16_t>(0xDC00 + ((*code - 0x10000) & 0x3FF));
    return static_cast<char16_t>(0xD800 + ((*code - 0x10000) >> 10));
  }

 private:
  std::string_view text_;
  char16_t low_ = 0;  // of a pair whose first half has been given
};

}  // namespace

std::u16string FromUnits(const ntfschar* units, std::size_t count) {
  std::u16string text(count, u'\0');
  for (std::size_t i = 0; i < count; ++i) text[i] = le16_to_cpu(units[i]);
  return text;
}

UpcaseTable::UpcaseTable(const ntfschar* table, std::size_t length)
    : table_(FromUnits(table, length)) {
  ascii_stays_ = true;
  for (std::size_t i = 0; i < ascii_.size(); ++i) {
    const char16_t folded = Fold(static_cast<char16_t>(i));
    ascii_stays_ = ascii_stays_ && folded < ascii_.size();
    ascii_[i] = static_cast<char>(folded);
  }
}

std::optional<std::string> UpcaseTable::FoldAscii(std::string_view name) const {
  if (!ascii_stays_) return std::nullopt;
  std::string folded(name);
  for (char& c : folded) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= ascii_.size()) return std::nullopt;
    c = ascii_[byte];
  }
  return folded;
}

bool UpcaseTable::Before(std::string_view a, std::string_view b) const {
  int as_they_are = 0;
  for (UnitReader left(a), right(b);;) {
    const std::optional<char16_t> x = left.Next();
    const std::optional<char16_t> y = right.Next();
    if (!x || !y) return x || y ? !x : as_they_are < 0;
    if (*x == *y) continue;
    const char16_t x_folded = Fold(*x);
    const char16_t y_folded = Fold(*y);
    if (x_folded != y_folded) return x_folded < y_folded;
    if (as_they_are == 0) as_they_are = *x < *y ? -1 : 1;
  }
}

std::u16string UpcaseTable::Fold(std::u16string_view name) const {
  std::u16string folded(name);
  for (char16_t& unit : folded) unit = Fold(unit);
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
