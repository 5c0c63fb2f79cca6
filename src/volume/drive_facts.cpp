// SPDX-License-Identifier: GPL-2.0-or-later
#include "volume/drive_facts.h"

#include "text/trimmed.h"
#include "volume/sector_io.h"

namespace vornalux {
namespace {

constexpr std::int32_t kSectorBytes = 512;

// Up to the first NUL, without blanks at its ends.
std::string FieldText(const std::string& field) {
  return Trimmed(field.substr(0, field.find('\0')));
}

// FAT volumes name themselves in their first sector, each size of table in its own words.
std::string ReadBootText(RawDevices& devices, const std::string& root, const DriveFacts& facts) {
  const std::int64_t sector = facts.space.bytes_per_sector;
  const bool usual = sector >= kSectorBytes && sector <= 8 * kSectorBytes;
  SectorIo sectors(devices);
  sectors.device_path = "\\\\.\\" + root.substr(0, 2);
  sectors.bytes_per_sector = usual ? static_cast<std::int32_t>(sector) : kSectorBytes;
  sectors.ReadWriteSector(0, sectors.bytes_per_sector, SectorIo::kRead);
  if (sectors.SectorIoFailed) return {};
  constexpr std::ptrdiff_t kTextBytes = 8;
  const auto text = sectors.SectorBuffer.begin() + (facts.names.file_system == "FAT32" ? 82 : 54);
  return FieldText(std::string(text, text + kTextBytes));
}

}  // namespace

DriveFacts ReadDriveFacts(Platform& platform, const std::string& root) {
  DriveFacts facts;
  facts.type = platform.volumes.DriveType(root);
  VolumeName names;
  if (platform.volumes.VolumeNames(root, names) == error::kSuccess) {
    facts.names = {.label = FieldText(names.label),
                   .file_system = FieldText(names.file_system),
                   .serial = names.serial};
  }
  facts.answers = platform.volumes.FreeSpaceFigures(root, facts.space) == error::kSuccess &&
                  !facts.names.file_system.empty();
  if (facts.names.file_system.starts_with("FAT")) {
    facts.boot_text = ReadBootText(platform.devices, root, facts);
  }
  return facts;
}

}  // namespace vornalux
