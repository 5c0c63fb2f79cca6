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

}  // namespace

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
