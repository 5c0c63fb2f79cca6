// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <system_error>
#include <vector>

#include "host/image/device/block_device.h"
#include "host/image/fat/fat_geometry.h"

namespace vornalux {

// A FAT volume's dirty flag: a bit of the boot sector's state byte and, beyond FAT12, the "cleanly
// unmounted" bit of entry 1 in every copy of the table in use.
class DirtyFlag {
 public:
  // Reads the flag. Throws VolumeRefused when it cannot. set_by_us: what is set now was set by an
  // interrupted run of ours, so that Write(false) has to leave the volume clean.
  DirtyFlag(BlockDevice& device, const FatGeometry& geometry, bool set_by_us);

  // As it was read.
  bool Dirty() const { return dirty_; }

  // Sets the flag, or brings back the bytes that were found.
  std::error_code Write(BlockDevice& device, bool dirty) const;

 private:
  struct Place {
    std::uint64_t offset = 0;
    std::uint8_t clean = 0;  // the byte that is the flag's part here, as Write(false) leaves it
    std::uint8_t dirty = 0;
  };

  void Add(BlockDevice& device, std::uint64_t offset, std::uint8_t flag, bool set_when_dirty,
           bool set_by_us);

  std::vector<Place> places_;
  bool dirty_ = false;
};

}  // namespace vornalux
