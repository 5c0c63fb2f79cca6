// SPDX-License-Identifier: GPL-2.0-or-later
// FAT as bytes: boot sector, the table, chains, folder entries.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "check/byte_source.h"
#include "check/bytes.h"
#include "check/problems.h"
#include "check/report.h"

namespace vornalux::checking {

struct RawFatGeometry {
  int bits = 0;                   // 12, 16 or 32
  std::uint32_t sector = 0;       // bytes
  std::uint32_t cluster = 0;      // bytes
  std::uint64_t table_start = 0;  // bytes from the volume's start, as the following
  std::uint64_t table_size = 0;
  int tables = 0;
  int active_table = 0;
  bool mirrored = true;          // all tables are kept equal
  std::uint64_t root_start = 0;  // FAT12 and FAT16: the root lies outside the clusters
  std::uint64_t root_size = 0;
  std::uint32_t root_cluster = 0;  // FAT32
  std::uint64_t data_start = 0;    // of cluster 2
  std::uint32_t clusters = 0;
  std::uint32_t info_sector = 0;  // FAT32, 0: none
  std::uint8_t media = 0;
  bool dirty = false;  // by the boot sector

  std::uint32_t EndCluster() const { return clusters + 2; }  // after the last
  std::uint32_t Bad() const { return bits == 12 ? 0xFF7 : bits == 16 ? 0xFFF7 : 0x0FFFFFF7; }
  bool IsEnd(std::uint32_t entry) const { return entry > Bad(); }
};

// Empty when the volume's geometry is unusable; problems says why.
std::optional<RawFatGeometry> ReadFatBoot(const ByteSource& source, std::uint64_t offset,
                                          Problems& problems);

// The table of a volume: each cluster's successor and owner.
class RawFatTable {
 public:
  RawFatTable(const ByteSource& source, std::uint64_t offset, const RawFatGeometry& geometry,
              Problems& problems);

  bool Loaded() const { return !next_.empty(); }
  bool Dirty() const { return dirty_; }
  std::uint32_t Entry(std::uint32_t cluster) const { return next_[cluster]; }
  std::uint32_t FreeClusters() const;

  // Follows a chain and makes its clusters the owner's. Stops, with a problem, at a cluster that
  // is somebody's already, free, bad or no cluster. The clusters up to there are returned.
  std::vector<CheckedExtent> Claim(std::uint32_t first, const std::string& owner);

  // Reports clusters that are in use but nobody's; gives used (owned or bad) and bad ones.
  void CheckLost(std::int64_t& used, std::int64_t& bad);

 private:
  void CompareCopies(const ByteSource& source, std::uint64_t offset, Bytes active);
  void Decode(Bytes table);
  void CheckReserved();

  const RawFatGeometry& geometry_;
  Problems& problems_;
  bool dirty_ = false;
  std::vector<std::uint32_t> next_;
  std::vector<std::uint32_t> owner_;  // index into owners_; 0: nobody
  std::vector<std::string> owners_ = {""};
};

}  // namespace vornalux::checking
