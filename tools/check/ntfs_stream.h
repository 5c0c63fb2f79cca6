// SPDX-License-Identifier: GPL-2.0-or-later
// Reading what an attribute holds.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "check/ntfs_files.h"

namespace vornalux::checking {

// Bytes [at, at + out.size()) of a stream that is not compressed; holes read as zeros. False when
// the range leaves the allocation or cannot be read.
bool ReadStream(const RawNtfsVolume& volume, const std::vector<CheckedExtent>& extents,
                std::uint64_t at, std::span<std::uint8_t> out);

// The whole content of a small attribute, resident or not; nothing when it is larger than limit or
// cannot be read.
std::optional<std::vector<std::uint8_t>> ReadWhole(const RawNtfsVolume& volume,
                                                   const NtfsStream& stream, std::uint64_t limit);

// Expands one LZNT1-compressed unit into out (zeros after the last chunk). False for data that is
// no LZNT1.
bool ExpandUnit(Bytes compressed, std::span<std::uint8_t> out);

// Hashes contents, with bounds on the work that a corrupt volume can ask for.
class NtfsHasher {
 public:
  NtfsHasher(const RawNtfsVolume& volume, Problems& problems);

  // Empty, with a problem reported, when the content cannot be read.
  std::string Hash(std::uint64_t record, const NtfsStream& stream);

 private:
  class Sink;
  bool Plain(const NtfsStream& stream, Sink& sink);
  bool Compressed(const NtfsStream& stream, Sink& sink);
  bool ReadBudgeted(const std::vector<CheckedExtent>& extents, std::uint64_t at,
                    std::span<std::uint8_t> out);

  const RawNtfsVolume& volume_;
  Problems& problems_;
  std::uint64_t read_budget_;
  std::uint64_t zero_budget_;
  std::vector<std::uint8_t> buffer_;
};

}  // namespace vornalux::checking
