// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace vornalux {

enum class BootKind {
  None,  // nothing that we work on
  Fat,   // 12, 16 or 32
  Ntfs,
  DamagedNtfs,
};

// What the first sector of a volume says about it.
struct BootSector {
  BootKind kind = BootKind::None;
  std::string name;  // "FAT", "NTFS"; empty for None
  std::uint64_t serial = 0;
  std::uint64_t volume_size = 0;  // bytes
  std::uint64_t backup_size = 0;  // bytes right after the volume that hold a copy of this sector
};

// Looks at the first 512 bytes of a volume: what it claims, which libblkid does not tell, and which
// the file system then checks. libblkid takes none that is damaged or that an old tool made, where
// we can say what is wrong with it.
BootSector IdentifyBootSector(std::span<const std::uint8_t, 512> sector);

}  // namespace vornalux
