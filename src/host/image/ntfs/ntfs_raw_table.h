// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include "host/image/device/block_device.h"
#include "host/image/ntfs/ntfs_raw_record.h"

namespace vornalux {

// Bytes from offset on of a stream with these runs, in VCN order from 0 on and inside the volume.
// invalid_argument where the stream has none.
std::error_code ReadStream(BlockDevice& device, const NtfsGeometry& geometry,
                           std::span<const ClusterRun> runs, std::uint64_t offset,
                           std::span<std::uint8_t> out);

// Where the value of an attribute is: in the record or in clusters.
struct RawValue {
  std::vector<std::uint8_t> resident;
  std::vector<ClusterRun> runs;  // when not resident
  std::uint64_t size = 0;        // bytes

  static RawValue Of(const RawRecord& record, const RawAttribute& attribute);
  std::error_code Read(BlockDevice& device, const NtfsGeometry& geometry, std::uint64_t offset,
                       std::span<std::uint8_t> out) const;
};

// No driver accepts a longer attribute list.
inline constexpr std::uint64_t kLongestList = 0x40000;  // bytes

// The file records of a volume in their order, read from the device in large pieces.
class RawFileTable {
 public:
  RawFileTable(BlockDevice& device, const NtfsGeometry& geometry)
      : device_(device), geometry_(geometry) {}

  // Finds out where $MFT lies. Returns what is wrong; empty when all is well.
  std::string Locate();

  std::uint64_t Records() const { return records_; }

  // Does the file table hold a file past its last record, where there should be none?
  bool HasFilePastEnd(std::uint64_t number);

  // Calls visit for each record with its number and its bytes as they are stored, which it may
  // change. Ends at one that cannot be read (a failing disk takes its time for each) and names it.
  using Visit = std::function<void(std::uint64_t, std::span<std::uint8_t>)>;
  std::string Each(const Visit& visit);

 private:
  std::string LocateFrom(const RawRecord& first);
  std::string AddPiece(const ListEntry& entry);
  std::string Add(const RawRecord& record, const RawAttribute& data);
  std::string Load(std::uint64_t offset, std::uint64_t number, RawRecord& record);

  BlockDevice& device_;
  const NtfsGeometry& geometry_;
  std::vector<ClusterRun> runs_;
  std::uint64_t records_ = 0;
  std::vector<std::uint8_t> buffer_;
};

}  // namespace vornalux
