// SPDX-License-Identifier: GPL-2.0-or-later
// libblkid's low-level probing, which reads the device itself and keeps no cache.
#pragma once

#include <blkid/blkid.h>

#include <cstdint>
#include <memory>
#include <type_traits>
#include <utility>

namespace vornalux {

struct FreeProbe {
  void operator()(blkid_probe probe) const { blkid_free_probe(probe); }
};
using BlkidProbe = std::unique_ptr<std::remove_pointer_t<blkid_probe>, FreeProbe>;

inline constexpr std::uint64_t kBlkidSector = 512;  // its unit, whatever the disk's sectors

// Over length bytes from offset on of an open file or device, which stays the caller's. Null when
// it cannot be had.
inline BlkidProbe ProbeOver(int descriptor, std::uint64_t offset, std::uint64_t length) {
  BlkidProbe probe(blkid_new_probe());
  const bool set =
      probe && blkid_probe_set_device(probe.get(), descriptor, static_cast<blkid_loff_t>(offset),
                                      static_cast<blkid_loff_t>(length)) == 0;
  return set ? std::move(probe) : nullptr;
}

}  // namespace vornalux
