// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/fat/upper_case.h"

#include <sys/stat.h>

#include <cstdarg>
#include <ctime>
#include <vector>

// sys/stat.h, cstdarg and ctime, and volume.h first: what unistr.h uses without including it.
extern "C" {
// clang-format off
#include <ntfs-3g/volume.h>
#include <ntfs-3g/unistr.h>
// clang-format on
}

namespace vornalux {

char16_t UpperCase(char16_t unit) {
  static const std::vector<ntfschar> table = [] {
    std::vector<ntfschar> made(0x10000);
    ntfs_upcase_table_build(made.data(), static_cast<u32>(made.size() * sizeof(ntfschar)));
    return made;
  }();
  return le16_to_cpu(table[unit]);
}

}  // namespace vornalux
