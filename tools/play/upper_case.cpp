// SPDX-License-Identifier: GPL-2.0-or-later
// Stands in for the table that the library of NTFS has, which is not at hand here.
#include "host/image/fat/upper_case.h"

#include <windows.h>

namespace vornalux {

char16_t UpperCase(char16_t unit) {
  wchar_t text = unit;
  CharUpperBuffW(&text, 1);
  return static_cast<char16_t>(text);
}

}  // namespace vornalux
