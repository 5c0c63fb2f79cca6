// SPDX-License-Identifier: GPL-2.0-or-later
// Snapshots of Windows on a volume, made by hand.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "check/content.h"
#include "volumes/maker/maker_editor.h"

namespace vornalux::test {

inline constexpr std::size_t kSnapshotHeader = 0x1E00;
inline constexpr std::size_t kCatalogBlock = 16384;

// 2019-03-01 12:00:00 UTC and so many days later, as a FILETIME.
constexpr std::uint64_t SnapshotTime(std::uint64_t days) {
  return 131'959'152'000'000'000 + days * 864'000'000'000;
}

struct CatalogEntry {
  std::uint64_t type = 2;  // 2: the snapshot, with its time; 3: where its store lies
  std::uint8_t store = 0;  // what its identifier is made of
  std::uint64_t time = 0;
};

// volume: all of it, or so much as is written to.
void PutSnapshotHeader(ByteSpan volume, std::uint64_t catalog);
void PutCatalogBlock(ByteSpan volume, std::uint64_t at, std::uint64_t next,
                     const std::vector<CatalogEntry>& entries);

// Puts "System Volume Information" onto an NTFS image, with a catalog of two blocks that are apart
// and so many stores in pieces, dated SnapshotTime(0), (1) ... Returns what the volume then holds.
// Without header: nothing leads to the catalog.
Manifest AddSnapshots(const std::string& image, std::uint8_t stores, bool header = true);

// Does the header say that there are any?
bool HasSnapshotHeader(const std::string& image);

// Where the files lie that belong to snapshots, with their names.
std::string SnapshotExtents(const std::string& image);

}  // namespace vornalux::test
