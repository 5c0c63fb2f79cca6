// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <span>

namespace vornalux {

// All numbers are sectors of 512 bytes.

// Content that lies nowhere on the volume.
inline constexpr std::uint64_t kNoSource = ~std::uint64_t{0};

struct SectorRange {
  std::uint64_t first = 0;
  std::uint64_t count = 0;

  bool Has(std::uint64_t sector) const { return sector >= first && sector - first < count; }
};

// Sectors that must become durable together.
struct SectorRun {
  std::uint64_t first_sector = 0;
  std::span<const std::uint8_t> content;  // a multiple of 512 bytes; not owned
  // Where the same content lies, durable and apart from all runs: it is not written down again.
  std::uint64_t source = kNoSource;

  std::uint64_t Sectors() const { return content.size() / 512; }
  std::uint64_t End() const { return first_sector + Sectors(); }
};

// File data that was copied before the commit that makes it count.
struct CopiedRange {
  std::uint64_t from = kNoSource;  // where the same content lies until the next record is durable
  std::uint64_t to = 0;
  std::uint64_t sectors = 0;
  std::uint32_t checksum = 0;  // of the content
};

}  // namespace vornalux
