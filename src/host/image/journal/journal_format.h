// SPDX-License-Identifier: GPL-2.0-or-later
// How a journal looks in its file; README.md has the byte tables.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>

#include "host/image/journal/volume_identity.h"

namespace vornalux::journal_format {

inline constexpr std::size_t kSector = 512;
inline constexpr std::uint64_t kProofOffset = 512;
inline constexpr std::uint64_t kRecordOffset = 4096;
inline constexpr std::uint64_t kBodyOffset = kRecordOffset + kSector;
inline constexpr std::size_t kRunBytes = 16;
inline constexpr std::size_t kChecksumBytes = 8;
inline constexpr std::size_t kCopyBytes = 32;
inline constexpr std::size_t kMostProofs = 40;
inline constexpr std::size_t kLongestDevice = 256;  // bytes of VolumeIdentity::device
inline constexpr std::size_t kLongestPlace = 128;   // bytes of VolumeIdentity::place
// Journal and volume are gone through in pieces of this size, whatever a record claims.
inline constexpr std::size_t kPieceBytes = std::size_t{1} << 20;

using HeaderSector = std::array<std::uint8_t, kSector>;

struct RecordHeader {
  std::uint64_t sequence = 0;
  std::uint64_t runs = 0;
  std::uint64_t sectors = 0;
  std::uint64_t copies = 0;
  std::uint32_t body_checksum = 0;
};

// Sectors of the volume, with their checksums, as they are once commit number sequence is done.
struct Proof {
  std::uint64_t sequence = 0;
  std::map<std::uint64_t, std::uint32_t> sectors;  // at most kMostProofs
};

struct RunEntry {
  std::uint64_t first_sector = 0;
  std::uint64_t sectors = 0;
};

HeaderSector EncodeIdentity(const VolumeIdentity& identity);
// Nothing when the sector is no whole identity header of a version that we know.
std::optional<VolumeIdentity> DecodeIdentity(const HeaderSector& sector);

HeaderSector EncodeRecordHeader(const RecordHeader& header);
// Nothing when the sector is no whole record header; its numbers are not checked.
std::optional<RecordHeader> DecodeRecordHeader(const HeaderSector& sector);

HeaderSector EncodeProof(const Proof& proof);
// Nothing when the sector is no whole proof.
std::optional<Proof> DecodeProof(const HeaderSector& sector);

// CRC-32 (IEEE 802.3) of bytes, going on from the checksum of what came before them.
std::uint32_t Checksum(std::span<const std::uint8_t> bytes, std::uint32_t checksum = 0);

}  // namespace vornalux::journal_format
