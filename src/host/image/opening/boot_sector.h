// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace vornalux {

enum class BootKind {
  None,  // nothing that we know
  Fat,   // 12, 16 or 32
  Ntfs,
  Other,  // something that we can name and cannot work on
};

// What the first sector of a volume says about it.
struct BootSector {
  BootKind kind = BootKind::None;
  std::string name;  // "FAT", "NTFS", or what Other is
  std::uint64_t serial = 0;
  std::uint64_t volume_size = 0;  // bytes
  std::uint64_t backup_size = 0;  // bytes right after the volume that hold a copy of this sector
};

// Looks at the first 512 bytes of a volume. The file system checks the rest.
BootSector IdentifyBootSector(std::span<const std::uint8_t, 512> sector);

}  // namespace vornalux
