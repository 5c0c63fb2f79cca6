// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace vornalux {

// The name with every character in upper case, as names are compared. Bytes that are no UTF-8 stay.
std::string FoldFatName(std::string_view name);

// A character of a short name in code page 437.
char16_t FromOem(std::uint8_t byte);

// The lower-case form of a letter that code page 437 has.
char16_t LowerOem(char16_t letter);

}  // namespace vornalux
