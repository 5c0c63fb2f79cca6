// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vornalux {

// What libblkid says of a stretch of a disk.
struct Signature {
  std::string type;     // "ext4", "crypto_LUKS"; its names
  std::string usage;    // "filesystem", "raid", "crypto", "other"
  std::string version;  // of vfat "FAT12", "FAT16" or "FAT32"
  std::string label;
  std::string uuid;
  std::uint64_t end = 0;  // bytes from the start of the stretch to the end of the mark it has left
};

// All that it finds, in its order: what was there before may have left its mark. Nothing where
// nothing is found or nothing can be read.
std::vector<Signature> FindSignatures(int descriptor, std::uint64_t offset, std::uint64_t length);

}  // namespace vornalux
