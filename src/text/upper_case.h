// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

namespace vornalux {

// The upper case of a character that one UTF-16 unit holds, as FAT and NTFS volumes compare names.
char16_t UpperCase(char16_t unit);

}  // namespace vornalux
