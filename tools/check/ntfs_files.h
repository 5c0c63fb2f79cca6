// SPDX-License-Identifier: GPL-2.0-or-later
// The file table of an NTFS volume: $MFT read whole, its records put together to files.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "check/ntfs_record.h"

namespace vornalux::checking {

// A whole attribute: its pieces in VCN order, joined.
struct NtfsStream {
  std::uint32_t type = 0;
  std::u16string name;
  std::uint16_t flags = 0;
  bool resident = true;
  Bytes value;                         // resident
  std::vector<CheckedExtent> extents;  // adjoining ones joined, holes included
  std::uint8_t compression_unit = 0;
  std::uint64_t allocated = 0;
  std::uint64_t size = 0;
  std::uint64_t initialized = 0;

  bool Compressed() const { return (flags & ntfs::kCompressed) != 0; }
  bool Sparse() const { return (flags & ntfs::kSparse) != 0; }
};

struct NtfsName {
  std::uint64_t parent = 0;  // reference
  std::uint8_t name_space = 0;
  std::u16string name;

  static constexpr std::uint8_t kDos = 2;
  friend bool operator==(const NtfsName&, const NtfsName&) = default;
};

// A base record with everything that belongs to it.
struct NtfsFile {
  std::uint64_t number = 0;
  std::uint16_t sequence = 0;
  std::uint16_t links = 0;
  bool is_folder = false;
  std::uint32_t attributes = 0;  // of the standard information
  std::vector<NtfsName> names;
  std::vector<NtfsStream> streams;

  const NtfsStream* Find(std::uint32_t type, const std::u16string& name = u"") const;
};

// Reads $MFT, checks records, attribute lists, $MFTMirr and $MFT's bitmap, and keeps the files.
class NtfsFiles {
 public:
  NtfsFiles(const RawNtfsVolume& volume, Problems& problems);

  const std::vector<NtfsFile>& All() const { return files_; }  // by record number
  // Null when there is no file with this base record.
  const NtfsFile* Find(std::uint64_t record) const;
  std::uint64_t Records() const { return records_.size(); }

 private:
  bool LoadTable();
  bool LoadTablePieces(const NtfsRecord& first);
  bool ReadTableRecord(std::uint64_t number, std::vector<std::uint8_t>& bytes) const;
  void ParseRecords();
  void CheckMirror();
  void CheckRecordUse();
  void Assemble();
  NtfsFile AssembleFile(const NtfsRecord& base, const std::vector<std::uint64_t>& extents);
  void CheckAttributeList(const NtfsRecord& base, const std::vector<const NtfsAttribute*>& pieces);
  void CheckListEntries(const NtfsRecord& base, Bytes list,
                        const std::vector<const NtfsAttribute*>& pieces);

  const RawNtfsVolume& volume_;
  Problems& problems_;
  std::vector<CheckedExtent> table_extents_;
  std::uint64_t table_size_ = 0;
  std::uint64_t table_initialized_ = 0;
  std::vector<std::uint8_t> stored_start_;  // first records as on disk, to compare the mirror
  std::vector<std::uint8_t> table_;         // fixups undone
  std::vector<NtfsRecord> records_;
  std::vector<NtfsFile> files_;
};

// Joins pieces of one attribute, in VCN order, and checks sizes and continuity.
NtfsStream JoinPieces(const NtfsGeometry& geometry, std::uint64_t record,
                      const std::vector<const NtfsAttribute*>& pieces, Problems& problems);

// "record 5, type 160 "$I30"" for problems.
std::string NameStream(std::uint64_t record, std::uint32_t type, const std::u16string& name);

}  // namespace vornalux::checking
