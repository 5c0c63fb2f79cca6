// SPDX-License-Identifier: GPL-2.0-or-later
// The entries of one FAT folder.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "check/bytes.h"
#include "check/problems.h"

namespace vornalux::checking {

struct FatEntry {
  std::array<std::uint8_t, 11> short_name{};
  std::string name;  // the long one where there is one, UTF-8
  std::uint8_t attributes = 0;
  std::uint32_t cluster = 0;  // 0: none
  std::uint32_t size = 0;

  bool IsFolder() const { return (attributes & 0x10) != 0; }
  bool IsLabel() const { return (attributes & 0x08) != 0; }
  bool IsDot() const { return short_name[0] == '.'; }
};

// Reads the folder's bytes; path names it in problems. wide: the upper half of cluster numbers is
// kept in the entry (FAT32). Deleted entries are left out, "." and ".." are not.
std::vector<FatEntry> ReadFatFolder(Bytes bytes, bool wide, const std::string& path,
                                    Problems& problems);

}  // namespace vornalux::checking
