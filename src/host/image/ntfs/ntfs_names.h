// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

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

 private:
  std::u16string table_;
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
