// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/image/ntfs/ntfs_raw_table.h"

namespace vornalux {

// What is wrong with a volume: the first thing in full, the others as a number.
class Findings {
 public:
  void Add(const std::string& what) {
    if (count_++ == 0) first_ = what;
  }
  std::uint64_t Count() const { return count_; }
  // Empty when nothing is wrong.
  std::string Text() const {
    return count_ > 1 ? first_ + ", and " + std::to_string(count_ - 1) + " more" : first_;
  }

 private:
  std::uint64_t count_ = 0;
  std::string first_;
};

// For people: "$DATA "name"".
std::string ShownStream(std::uint32_t type, std::span<const std::uint8_t> name);

// What is wrong with the sizes of a stream, in bytes as its first piece has them, when its pieces
// end before VCN end; null when nothing is.
const char* JudgeSizes(const NtfsGeometry& geometry, std::uint64_t allocated, std::uint64_t size,
                       std::uint64_t initialized, std::int64_t end);

// Judges files whose attributes do not all stand in one record: do the attribute list and the
// records agree, and do the pieces of each stream follow each other?
class SpreadFiles {
 public:
  explicit SpreadFiles(const NtfsGeometry& geometry) : geometry_(geometry) {}

  // Takes in a record. Every record of such a file must be given.
  void AddBase(const RawRecord& record, const RawAttribute& list, bool list_is_its_own);
  void AddExtension(const RawRecord& record);

  void Judge(BlockDevice& device, Findings& findings);

 private:
  struct Piece {
    std::uint64_t record = 0;
    std::uint32_t type = 0;
    std::uint16_t instance = 0;
    bool resident = true;
    bool listed = false;
    std::int64_t lowest_vcn = 0;
    std::int64_t end_vcn = 0;
    std::uint64_t allocated = 0;
    std::uint64_t size = 0;
    std::uint64_t initialized = 0;
    std::vector<std::uint8_t> name;
  };
  struct Extension {
    std::uint64_t record = 0;
    std::uint16_t sequence = 0;
    std::uint16_t base_sequence = 0;
  };
  struct File {
    bool has_base = false;
    std::uint16_t sequence = 0;
    bool list_is_its_own = false;
    RawValue list;
    std::vector<Extension> extensions;
    std::vector<Piece> pieces;
  };

  static void AddPieces(const RawRecord& record, File& file);
  // Return what is wrong; empty when all is well.
  std::string JudgeFile(std::uint64_t base, File& file, BlockDevice& device) const;
  static std::string JudgeList(std::uint64_t base, File& file,
                               const std::vector<ListEntry>& entries);
  std::string JudgeStreams(std::uint64_t base, File& file) const;
  std::string JudgeStream(std::uint64_t base, std::span<const Piece> pieces) const;

  const NtfsGeometry& geometry_;
  std::map<std::uint64_t, File> files_;  // by the number of the base record
};

}  // namespace vornalux
