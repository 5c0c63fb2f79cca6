// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/journal/journal_format.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "host/image/device/in_memory.h"
#include "host/image/device/little_endian.h"

namespace vornalux::journal_format {
namespace {

constexpr std::string_view kStoreMagic = "VXJOURNL";
constexpr std::string_view kRecordMagic = "VXRECORD";
constexpr std::string_view kOldProofMagic = "VXPROOF1";
constexpr std::string_view kProofMagic = "VXPROOF2";
constexpr std::string_view kStillMagic = "VXSTILL1";
constexpr std::size_t kDeviceAt = 64;
constexpr std::size_t kPlaceAt = kDeviceAt + kLongestDevice;
constexpr std::size_t kProofsAt = 24;
constexpr std::size_t kProofBytes = 12;
constexpr std::size_t kChecksumAt = kSector - 4;
constexpr std::size_t kSumAt = kChecksumAt - 12;
constexpr std::size_t kRangesAt = 16;
constexpr std::size_t kRangeBytes = 16;
static_assert(kProofsAt + kMostProofs * kProofBytes <= kSumAt);
static_assert(kProofsAt + kMostOldProofs * kProofBytes <= kChecksumAt);
static_assert(kRangesAt + kMostStill * kRangeBytes <= kChecksumAt);
static_assert(kPlaceAt + kLongestPlace <= kChecksumAt);

void Seal(HeaderSector& sector, std::string_view magic) {
  std::memcpy(sector.data(), magic.data(), magic.size());
  StoreLittle<std::uint32_t>(sector, kChecksumAt, Checksum(std::span(sector).first(kChecksumAt)));
}

bool Sealed(const HeaderSector& sector, std::string_view magic) {
  return std::memcmp(sector.data(), magic.data(), magic.size()) == 0 &&
         LoadLittle<std::uint32_t>(sector, kChecksumAt) ==
             Checksum(std::span(sector).first(kChecksumAt));
}

// A length and, elsewhere, so many bytes of text.
void StoreText(HeaderSector& sector, std::size_t length_at, std::size_t text_at,
               std::size_t longest, const std::string& text) {
  const std::size_t length = std::min(text.size(), longest);
  StoreLittle<std::uint64_t>(sector, length_at, length);
  std::memcpy(sector.data() + text_at, text.data(), length);
}

bool LoadText(const HeaderSector& sector, std::size_t length_at, std::size_t text_at,
              std::size_t longest, std::string& text) {
  const auto length = LoadLittle<std::uint64_t>(sector, length_at);
  if (length > longest) return false;
  text.assign(reinterpret_cast<const char*>(sector.data()) + text_at, AtMost(longest, length));
  return true;
}

}  // namespace

HeaderSector EncodeIdentity(const VolumeIdentity& identity) {
  HeaderSector sector{};
  StoreLittle<std::uint32_t>(sector, 8, kVersion);
  std::memcpy(sector.data() + 16, identity.file_system.data(), identity.file_system.size());
  StoreLittle<std::uint64_t>(sector, 24, identity.serial);
  StoreLittle<std::uint64_t>(sector, 32, identity.volume_size);
  StoreLittle<std::uint64_t>(sector, 40, identity.volume_offset);
  StoreText(sector, 48, kDeviceAt, kLongestDevice, identity.device);
  StoreText(sector, 56, kPlaceAt, kLongestPlace, identity.place);
  Seal(sector, kStoreMagic);
  return sector;
}

std::optional<VolumeIdentity> DecodeIdentity(const HeaderSector& sector, std::uint32_t& version) {
  if (!Sealed(sector, kStoreMagic)) return std::nullopt;
  version = LoadLittle<std::uint32_t>(sector, 8);
  if (version != kVersion && version != kNoSumVersion && version != kOneRecordVersion)
    return std::nullopt;
  VolumeIdentity identity;
  std::memcpy(identity.file_system.data(), sector.data() + 16, identity.file_system.size());
  identity.serial = LoadLittle<std::uint64_t>(sector, 24);
  identity.volume_size = LoadLittle<std::uint64_t>(sector, 32);
  identity.volume_offset = LoadLittle<std::uint64_t>(sector, 40);
  if (!LoadText(sector, 48, kDeviceAt, kLongestDevice, identity.device) ||
      !LoadText(sector, 56, kPlaceAt, kLongestPlace, identity.place)) {
    return std::nullopt;
  }
  return identity;
}

HeaderSector EncodeRecordHeader(const RecordHeader& header) {
  HeaderSector sector{};
  StoreLittle<std::uint64_t>(sector, 8, header.sequence);
  StoreLittle<std::uint64_t>(sector, 16, header.runs);
  StoreLittle<std::uint64_t>(sector, 24, header.sectors);
  StoreLittle<std::uint32_t>(sector, 32, header.body_checksum);
  StoreLittle<std::uint64_t>(sector, 40, header.copies);
  StoreLittle<std::uint64_t>(sector, 48, header.body);
  StoreLittle<std::uint64_t>(sector, 56, header.contents);
  Seal(sector, kRecordMagic);
  return sector;
}

std::optional<RecordHeader> DecodeRecordHeader(const HeaderSector& sector, std::uint32_t version) {
  if (!Sealed(sector, kRecordMagic)) return std::nullopt;
  RecordHeader header;
  header.version = version;
  header.sequence = LoadLittle<std::uint64_t>(sector, 8);
  header.runs = LoadLittle<std::uint64_t>(sector, 16);
  header.sectors = LoadLittle<std::uint64_t>(sector, 24);
  header.body_checksum = LoadLittle<std::uint32_t>(sector, 32);
  header.copies = LoadLittle<std::uint64_t>(sector, 40);
  const bool one_record = version == kOneRecordVersion;
  header.body = one_record ? kRecordOffset + kSector : LoadLittle<std::uint64_t>(sector, 48);
  header.contents = one_record ? header.sectors : LoadLittle<std::uint64_t>(sector, 56);
  return header;
}

HeaderSector EncodeStill(const std::vector<SectorRange>& ranges) {
  HeaderSector sector{};
  StoreLittle<std::uint64_t>(sector, 8, ranges.size());
  std::size_t at = kRangesAt;
  for (const SectorRange& range : ranges) {
    StoreLittle<std::uint64_t>(sector, at, range.first);
    StoreLittle<std::uint64_t>(sector, at + 8, range.count);
    at += kRangeBytes;
  }
  Seal(sector, kStillMagic);
  return sector;
}

std::optional<std::vector<SectorRange>> DecodeStill(const HeaderSector& sector,
                                                    std::uint64_t volume_sectors) {
  if (!Sealed(sector, kStillMagic)) return std::nullopt;
  const auto count = LoadLittle<std::uint64_t>(sector, 8);
  if (count > kMostStill) return std::nullopt;
  std::vector<SectorRange> ranges;
  std::uint64_t end = 0;
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t at = kRangesAt + i * kRangeBytes;
    const SectorRange range{LoadLittle<std::uint64_t>(sector, at),
                            LoadLittle<std::uint64_t>(sector, at + 8)};
    if (range.first < end || range.first > volume_sectors ||
        range.count > volume_sectors - range.first) {
      return std::nullopt;
    }
    end = range.first + range.count;
    ranges.push_back(range);
  }
  return ranges;
}

// The finishing steps of SplitMix64: sums of these collide by chance alone.
std::uint64_t StillTerm(std::uint64_t sector, std::uint32_t checksum) {
  std::uint64_t term = sector * 0x9E3779B97F4A7C15 + checksum;
  term = (term ^ (term >> 30)) * 0xBF58476D1CE4E5B9;
  term = (term ^ (term >> 27)) * 0x94D049BB133111EB;
  return term ^ (term >> 31);
}

std::error_code SumStillSectors(BlockDevice& volume, const std::vector<SectorRange>& ranges,
                                std::uint64_t& sum) {
  constexpr std::uint64_t kSectors = kPieceBytes / kSector;
  std::vector<std::uint8_t> piece;
  for (const SectorRange& range : ranges) {
    for (std::uint64_t done = 0; done < range.count; done += kSectors) {
      const std::size_t count = AtMost(kSectors, range.count - done);
      const std::uint64_t first = range.first + done;
      piece.resize(count * kSector);
      if (const std::error_code error = volume.Read(first * kSector, piece)) return error;
      for (std::size_t i = 0; i < count; ++i) {
        sum += StillTerm(first + i, Checksum(std::span(piece).subspan(i * kSector, kSector)));
      }
    }
  }
  return {};
}

HeaderSector EncodeProof(const Proof& proof) {
  HeaderSector sector{};
  StoreLittle<std::uint64_t>(sector, 8, proof.sequence);
  StoreLittle<std::uint64_t>(sector, 16, proof.sectors.size());
  std::size_t at = kProofsAt;
  for (const auto& [number, checksum] : proof.sectors) {
    StoreLittle<std::uint64_t>(sector, at, number);
    StoreLittle<std::uint32_t>(sector, at + 8, checksum);
    at += kProofBytes;
  }
  if (proof.still_sum) StoreLittle<std::uint64_t>(sector, kSumAt, *proof.still_sum);
  Seal(sector, proof.still_sum ? kProofMagic : kOldProofMagic);
  return sector;
}

std::optional<Proof> DecodeProof(const HeaderSector& sector) {
  const bool old = Sealed(sector, kOldProofMagic);
  if (!old && !Sealed(sector, kProofMagic)) return std::nullopt;
  Proof proof;
  proof.sequence = LoadLittle<std::uint64_t>(sector, 8);
  const auto count = LoadLittle<std::uint64_t>(sector, 16);
  if (count > (old ? kMostOldProofs : kMostProofs)) return std::nullopt;
  if (!old) proof.still_sum = LoadLittle<std::uint64_t>(sector, kSumAt);
  for (std::size_t i = 0; i < count; ++i) {
    const std::size_t at = kProofsAt + i * kProofBytes;
    proof.sectors[LoadLittle<std::uint64_t>(sector, at)] =
        LoadLittle<std::uint32_t>(sector, at + 8);
  }
  return proof;
}

}  // namespace vornalux::journal_format
