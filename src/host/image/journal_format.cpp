// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/journal_format.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <string_view>

#include "host/image/little_endian.h"

namespace vornalux::journal_format {
namespace {

constexpr std::string_view kStoreMagic = "VXJOURNL";
constexpr std::string_view kRecordMagic = "VXRECORD";
constexpr std::uint32_t kVersion = 1;
constexpr std::size_t kChecksumAt = kSector - 4;

void Seal(HeaderSector& sector, std::string_view magic) {
  std::memcpy(sector.data(), magic.data(), magic.size());
  StoreLittle<std::uint32_t>(sector, kChecksumAt, Checksum(std::span(sector).first(kChecksumAt)));
}

bool Sealed(const HeaderSector& sector, std::string_view magic) {
  return std::memcmp(sector.data(), magic.data(), magic.size()) == 0 &&
         LoadLittle<std::uint32_t>(sector, kChecksumAt) ==
             Checksum(std::span(sector).first(kChecksumAt));
}

}  // namespace

HeaderSector EncodeIdentity(const VolumeIdentity& identity) {
  HeaderSector sector{};
  StoreLittle<std::uint32_t>(sector, 8, kVersion);
  std::memcpy(sector.data() + 16, identity.file_system.data(), identity.file_system.size());
  StoreLittle<std::uint64_t>(sector, 24, identity.serial);
  StoreLittle<std::uint64_t>(sector, 32, identity.volume_size);
  StoreLittle<std::uint64_t>(sector, 40, identity.volume_offset);
  Seal(sector, kStoreMagic);
  return sector;
}

std::optional<VolumeIdentity> DecodeIdentity(const HeaderSector& sector) {
  if (!Sealed(sector, kStoreMagic)) return std::nullopt;
  if (LoadLittle<std::uint32_t>(sector, 8) != kVersion) return std::nullopt;
  VolumeIdentity identity;
  std::memcpy(identity.file_system.data(), sector.data() + 16, identity.file_system.size());
  identity.serial = LoadLittle<std::uint64_t>(sector, 24);
  identity.volume_size = LoadLittle<std::uint64_t>(sector, 32);
  identity.volume_offset = LoadLittle<std::uint64_t>(sector, 40);
  return identity;
}

HeaderSector EncodeRecordHeader(const RecordHeader& header) {
  HeaderSector sector{};
  StoreLittle<std::uint64_t>(sector, 8, header.sequence);
  StoreLittle<std::uint64_t>(sector, 16, header.runs);
  StoreLittle<std::uint64_t>(sector, 24, header.sectors);
  StoreLittle<std::uint32_t>(sector, 32, header.body_checksum);
  Seal(sector, kRecordMagic);
  return sector;
}

std::optional<RecordHeader> DecodeRecordHeader(const HeaderSector& sector) {
  if (!Sealed(sector, kRecordMagic)) return std::nullopt;
  RecordHeader header;
  header.sequence = LoadLittle<std::uint64_t>(sector, 8);
  header.runs = LoadLittle<std::uint64_t>(sector, 16);
  header.sectors = LoadLittle<std::uint64_t>(sector, 24);
  header.body_checksum = LoadLittle<std::uint32_t>(sector, 32);
  return header;
}

std::uint32_t Checksum(std::span<const std::uint8_t> bytes, std::uint32_t checksum) {
  return static_cast<std::uint32_t>(::crc32_z(checksum, bytes.data(), bytes.size()));
}

}  // namespace vornalux::journal_format
