// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/image/ntfs/ntfs_library.h"

namespace vornalux {

// The library's little-endian units in the machine's own order.
std::u16string FromUnits(const ntfschar* units, std::size_t count);

// The volume's own table of upper-case letters, which decides what names are equal and in which
// order a folder has them.
class UpcaseTable {
 public:
  UpcaseTable() = default;
  UpcaseTable(const ntfschar* table, std::size_t length);

  std::u16string Fold(std::u16string_view name) const;
  // The same for a name of ASCII letters only that stays one; nothing for others.
  std::optional<std::string> FoldAscii(std::string_view name) const;

  // The order of names in a folder: by upper case, then as they are. Both are WTF-8.
  bool Before(std::string_view a, std::string_view b) const;

 private:
  char16_t Fold(char16_t unit) const { return unit < table_.size() ? table_[unit] : unit; }

  std::u16string table_;
  std::array<char, 128> ascii_{};
  bool ascii_stays_ = false;  // no ASCII character folds to another kind
};

// An attribute of a file record.
struct AttributeName {
  ATTR_TYPES type = AT_DATA;
  std::vector<ntfschar> name;

  bool IsUnnamed(ATTR_TYPES of_type) const { return type == of_type && name.empty(); }
};

// The attribute that a StreamRef's stream stands for: "", ":name", ":name:$TYPE". Nothing for text
// of another form or an unknown type.
std::optional<AttributeName> ParseStream(std::string_view stream, bool is_folder);

}  // namespace vornalux
