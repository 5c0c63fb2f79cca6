// SPDX-License-Identifier: GPL-2.0-or-later
// How a journal looks in its file; README.md has the byte tables.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <system_error>
#include <vector>

#include "host/image/device/block_device.h"
#include "host/image/journal/sector_run.h"
#include "host/image/journal/volume_identity.h"

namespace vornalux::journal_format {

inline constexpr std::size_t kSector = 512;
inline constexpr std::uint32_t kVersion = 4;
inline constexpr std::uint32_t kNoSumVersion = 3;      // still finished, no longer written
inline constexpr std::uint32_t kOneRecordVersion = 2;  // still finished, no longer written
inline constexpr std::uint64_t kProofOffset = 512;
inline constexpr std::uint64_t kStillOffset = 1024;
// Record headers, used in turn, and the bodies behind them. Each begins a block of this size, so
// that none is rewritten for the sake of another.
inline constexpr std::uint64_t kBlock = 4096;
inline constexpr std::uint64_t kRecordOffset = kBlock;
inline constexpr std::uint64_t kRecordSlots = 2;
inline constexpr std::uint64_t kBodiesOffset = kRecordOffset + kRecordSlots * kBlock;
// What two records may take up together, unless one of them alone needs more.
inline constexpr std::uint64_t kRoom = std::uint64_t{20} << 20;
inline constexpr std::size_t kRunBytes = 24;
inline constexpr std::size_t kChecksumBytes = 8;
inline constexpr std::size_t kCopyBytes = 32;
inline constexpr std::size_t kMostProofs = 39;
inline constexpr std::size_t kMostOldProofs = 40;
inline constexpr std::size_t kMostStill = 30;
inline constexpr std::size_t kLongestDevice = 256;  // bytes of VolumeIdentity::device
inline constexpr std::size_t kLongestPlace = 128;   // bytes of VolumeIdentity::place
// Journal and volume are gone through in pieces of this size, whatever a record claims.
inline constexpr std::size_t kPieceBytes = std::size_t{1} << 20;

using HeaderSector = std::array<std::uint8_t, kSector>;

constexpr std::uint64_t SlotOffset(std::uint64_t sequence) {
  return kRecordOffset + sequence % kRecordSlots * kBlock;
}

// What a record is, and where its parts lie. Offsets are sums of numbers that nobody has checked
// until the record is known to fit its store.
struct RecordHeader {
  std::uint32_t version = kVersion;
  std::uint64_t sequence = 0;
  std::uint64_t runs = 0;
  std::uint64_t sectors = 0;
  std::uint64_t contents = 0;  // of the sectors, those whose content the record holds
  std::uint64_t copies = 0;
  std::uint64_t body = 0;  // its offset in the store
  std::uint32_t body_checksum = 0;

  std::size_t RunBytes() const { return version == kOneRecordVersion ? 16 : kRunBytes; }
  std::size_t ProofBytes() const { return version == kOneRecordVersion ? kSector : 2 * kSector; }
  std::uint64_t ChecksumsAt() const { return body + runs * RunBytes(); }
  std::uint64_t ContentsAt() const { return ChecksumsAt() + sectors * kChecksumBytes; }
  std::uint64_t CopiesAt() const { return ContentsAt() + contents * kSector; }
  std::uint64_t ProofsAt() const { return CopiesAt() + copies * kCopyBytes; }
  std::uint64_t BodyEnd() const { return ProofsAt() + ProofBytes(); }
};

// Sectors of the volume, with their checksums, as they are once commit number sequence is done.
struct Proof {
  std::uint64_t sequence = 0;
  std::map<std::uint64_t, std::uint32_t> sectors;  // at most kMostProofs
  std::optional<std::uint64_t> still_sum;          // of all still sectors, where it is known
};

struct RunEntry {
  std::uint64_t first_sector = 0;
  std::uint64_t sectors = 0;
  std::uint64_t source = kNoSource;  // where the content lies that the record does not hold
};

HeaderSector EncodeIdentity(const VolumeIdentity& identity);
// Nothing when the sector is no whole identity header of a version that we know. version is set
// whenever the header is whole: where it lies and how it is sealed is the same in all of them.
std::optional<VolumeIdentity> DecodeIdentity(const HeaderSector& sector, std::uint32_t& version);

HeaderSector EncodeRecordHeader(const RecordHeader& header);
// Nothing when the sector is no whole record header; its numbers are not checked.
std::optional<RecordHeader> DecodeRecordHeader(const HeaderSector& sector, std::uint32_t version);

// Where file data never lies: ascending and apart, at most kMostStill.
HeaderSector EncodeStill(const std::vector<SectorRange>& ranges);
// Nothing when the sector is no whole list of ranges inside a volume of so many sectors.
std::optional<std::vector<SectorRange>> DecodeStill(const HeaderSector& sector,
                                                    std::uint64_t volume_sectors);

// What a sector with that checksum adds to the sum of the still sectors.
std::uint64_t StillTerm(std::uint64_t sector, std::uint32_t checksum);
// Adds up the sectors of the ranges as the volume holds them.
std::error_code SumStillSectors(BlockDevice& volume, const std::vector<SectorRange>& ranges,
                                std::uint64_t& sum);

HeaderSector EncodeProof(const Proof& proof);
// Nothing when the sector is no whole proof.
std::optional<Proof> DecodeProof(const HeaderSector& sector);

// CRC-32 (IEEE 802.3) of bytes, going on from the checksum of what came before them.
std::uint32_t Checksum(std::span<const std::uint8_t> bytes, std::uint32_t checksum = 0);

}  // namespace vornalux::journal_format
