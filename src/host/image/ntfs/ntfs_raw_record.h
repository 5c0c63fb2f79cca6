// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/image/volume/move_plan.h"

namespace vornalux {

// What the boot sector says of an NTFS volume.
struct NtfsGeometry {
  std::uint64_t cluster_size = 0;  // bytes
  std::int64_t clusters = 0;
  std::uint32_t record_size = 0;  // bytes of a file record
  std::int64_t mft_lcn = 0;
  std::int64_t mirror_lcn = 0;

  // Clusters that hold so many bytes.
  std::int64_t ClustersOf(std::uint64_t bytes) const {
    return static_cast<std::int64_t>(bytes / cluster_size + (bytes % cluster_size != 0));
  }
};

namespace raw {
inline constexpr std::uint32_t kAttributeList = 0x20;
inline constexpr std::uint32_t kFileName = 0x30;
inline constexpr std::uint32_t kData = 0x80;
inline constexpr std::uint32_t kBitmap = 0xB0;

// Holds the clusters of bad sectors: they are the only runs with clusters in a stream as large as
// the volume. Its sizes and marks follow no rule.
inline constexpr std::uint64_t kBadClusterRecord = 8;

inline constexpr std::uint16_t kInUse = 1;  // flag of a record

constexpr std::uint64_t RecordOf(std::uint64_t reference) { return reference & 0xFFFFFFFFFFFF; }
constexpr std::uint16_t SequenceOf(std::uint64_t reference) {
  return static_cast<std::uint16_t>(reference >> 48);
}
}  // namespace raw

// One attribute of a record, or the piece of one that this record holds.
struct RawAttribute {
  std::uint32_t type = 0;
  std::uint16_t instance = 0;
  bool resident = true;
  std::span<const std::uint8_t> name;   // UTF-16, little-endian
  std::span<const std::uint8_t> value;  // resident
  // Not resident: the VCNs of its runs, lowest_vcn to before end_vcn. Its runs are
  // RawRecord::runs[first_run] to before [end_run], holes included.
  std::int64_t lowest_vcn = 0;
  std::int64_t end_vcn = 0;
  std::size_t first_run = 0;
  std::size_t end_run = 0;
  // Bytes, in the piece with lowest_vcn 0.
  std::uint64_t allocated = 0;
  std::uint64_t size = 0;
  std::uint64_t initialized = 0;
};

// A file record. The spans of its attributes are into the bytes that it was parsed from.
struct RawRecord {
  std::uint64_t number = 0;
  std::uint16_t sequence = 0;
  std::uint64_t base = 0;  // reference of the base record, 0 in a base record
  std::vector<RawAttribute> attributes;
  std::vector<ClusterRun> runs;
};

bool IsFileRecord(std::span<const std::uint8_t> record);  // by its first bytes
bool InUse(std::span<const std::uint8_t> record);         // of a file record

// Takes out what guards the record's sectors against torn writes. Returns what is wrong; empty when
// all is well.
std::string UndoFixups(std::span<std::uint8_t> record);

// Takes apart a record whose fixups are undone. Trusts nothing: returns what is wrong, and out is
// then not to be used. Empty for a record as every NTFS driver writes it.
std::string ParseRecord(const NtfsGeometry& geometry, std::uint64_t number,
                        std::span<const std::uint8_t> bytes, RawRecord& out);

// An entry of an attribute list: where a piece of an attribute is.
struct ListEntry {
  std::uint32_t type = 0;
  std::uint16_t instance = 0;
  std::int64_t lowest_vcn = 0;
  std::uint64_t reference = 0;  // of the record
  std::span<const std::uint8_t> name;
};

// False when the entries do not fill the list exactly.
bool ParseList(std::span<const std::uint8_t> list, std::vector<ListEntry>& out);

// UTF-16 as it may be shown: control characters become question marks.
std::string ShownName(std::span<const std::uint8_t> name);

}  // namespace vornalux
