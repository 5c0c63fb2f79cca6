// SPDX-License-Identifier: GPL-2.0-or-later
// FAT volumes in memory, to be damaged, opened and judged.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/image/fat/fat_geometry.h"
#include "host/image/fat/fat_table.h"
#include "support/devices.h"

namespace vornalux::test {

// A small volume: \A.TXT (1536 bytes), \B.TXT (513), \EMPTY.TXT, "\long enough.txt",
// \DIR\C.TXT (999), \DIR\SUB\D.TXT.
Bytes SmallFat(int bits);

class FatWorld {
 public:
  explicit FatWorld(Bytes image);

  std::unique_ptr<ImageVolume> Open(BlockDevice* instead = nullptr);
  // Why it is not opened; empty when it is.
  std::string Refusal();
  // What fsck.fat has to say against it.
  std::string FsckComplaint();

  Bytes& Image() { return device.Content(); }
  std::uint32_t Entry(std::uint32_t cluster) const { return table.Get(cluster); }
  void SetEntry(std::uint32_t cluster, std::uint32_t value);
  // Offset of the first 32-byte entry with this short name ("A       TXT").
  std::size_t Find(const std::string& name);
  std::uint32_t Start(const std::string& name);
  void SetStart(std::size_t entry, std::uint32_t cluster);

  MemoryDevice device;
  MemoryJournal journal;
  FatGeometry geometry;
  FatTable table;
};

}  // namespace vornalux::test
