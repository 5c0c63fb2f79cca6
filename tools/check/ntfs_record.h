// SPDX-License-Identifier: GPL-2.0-or-later
// NTFS as bytes: boot sector, protected records, attributes, run lists.
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

namespace ntfs {
inline constexpr std::uint32_t kStandardInformation = 0x10;
inline constexpr std::uint32_t kAttributeList = 0x20;
inline constexpr std::uint32_t kFileName = 0x30;
inline constexpr std::uint32_t kVolumeInformation = 0x70;
inline constexpr std::uint32_t kData = 0x80;
inline constexpr std::uint32_t kIndexRoot = 0x90;
inline constexpr std::uint32_t kIndexAllocation = 0xA0;
inline constexpr std::uint32_t kBitmap = 0xB0;
inline constexpr std::uint32_t kEnd = 0xFFFFFFFF;

inline constexpr std::uint64_t kMftRecord = 0;
inline constexpr std::uint64_t kMirrorRecord = 1;
inline constexpr std::uint64_t kVolumeRecord = 3;
inline constexpr std::uint64_t kRootRecord = 5;
inline constexpr std::uint64_t kBitmapRecord = 6;
inline constexpr std::uint64_t kBadClusterRecord = 8;
inline constexpr std::uint64_t kUpcaseRecord = 10;
inline constexpr std::uint64_t kExtendRecord = 11;
inline constexpr std::uint64_t kFirstReserved = 12;  // up to kFirstUser: set aside, often nameless
inline constexpr std::uint64_t kFirstUser = 24;

inline constexpr std::uint16_t kRecordInUse = 1;
inline constexpr std::uint16_t kRecordIsFolder = 2;
inline constexpr std::uint16_t kCompressed = 0x00FF;
inline constexpr std::uint16_t kEncrypted = 0x4000;
inline constexpr std::uint16_t kSparse = 0x8000;

constexpr std::uint64_t RecordOf(std::uint64_t reference) { return reference & 0xFFFFFFFFFFFF; }
constexpr std::uint16_t SequenceOf(std::uint64_t reference) {
  return static_cast<std::uint16_t>(reference >> 48);
}
}  // namespace ntfs

struct NtfsGeometry {
  std::uint32_t sector = 0;  // bytes, as the following
  std::uint32_t cluster = 0;
  std::uint32_t record = 0;
  std::uint64_t volume_sectors = 0;
  std::int64_t clusters = 0;
  std::int64_t mft_lcn = 0;
  std::int64_t mirror_lcn = 0;
};

// A volume's bytes and its geometry.
struct RawNtfsVolume {
  const ByteSource* source = nullptr;
  std::uint64_t offset = 0;  // of the volume in source, bytes
  NtfsGeometry geometry;

  // False for clusters outside the volume as well.
  bool ReadClusters(std::int64_t lcn, std::uint64_t byte, std::span<std::uint8_t> out) const;
};

// One attribute, or one piece of an attribute that an attribute list spreads over records.
struct NtfsAttribute {
  std::uint64_t record = 0;  // where it stands
  std::uint32_t type = 0;
  std::uint16_t flags = 0;
  std::uint16_t instance = 0;
  bool resident = true;
  std::u16string name;
  Bytes value;  // resident: inside the table's bytes
  std::int64_t lowest_vcn = 0;
  std::int64_t end_vcn = 0;         // VCN after the last
  std::vector<CheckedExtent> runs;  // as stored, holes included
  std::uint8_t compression_unit = 0;
  std::uint64_t allocated = 0;  // this and the following: of the piece that starts at VCN 0
  std::uint64_t size = 0;
  std::uint64_t initialized = 0;
  std::uint64_t compressed_size = 0;
};

struct NtfsRecord {
  std::uint64_t number = 0;
  bool in_use = false;  // and readable
  std::uint16_t flags = 0;
  std::uint16_t sequence = 0;
  std::uint16_t links = 0;
  std::uint64_t base = 0;  // reference of the base record, 0 for a base record
  std::vector<NtfsAttribute> attributes;
};

// Empty when the volume's geometry is unusable; problems says why.
std::optional<NtfsGeometry> ReadNtfsBoot(const ByteSource& source, std::uint64_t offset,
                                         Problems& problems);

// Undoes the fixups of a FILE or INDX record. Returns what is wrong, empty when nothing.
std::string UndoFixups(std::span<std::uint8_t> record);

// Reads a record whose fixups are undone. bytes must outlive it.
NtfsRecord ParseNtfsRecord(const NtfsGeometry& geometry, std::uint64_t number, Bytes bytes,
                           Problems& problems);

}  // namespace vornalux::checking
