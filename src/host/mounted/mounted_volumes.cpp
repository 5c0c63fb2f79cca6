// SPDX-License-Identifier: GPL-2.0-or-later
// The questions about volumes as a whole.
#include <algorithm>
#include <optional>
#include <utility>

#include "host/mounted/mounted_platform.h"
#include "text/windows_path.h"

namespace vornalux {

std::string MountedPlatform::LogicalDriveStrings() {
  std::string roots;
  for (const auto& [letter, drive] : drives_) roots += std::string{letter, ':', '\\', '\0'};
  return roots;
}

std::uint32_t MountedPlatform::DriveType(const std::string& root) {
  return FindDrive(DriveOfRoot(root)) != nullptr ? drive_type::kFixed : drive_type::kNoRoot;
}

Handle MountedPlatform::OpenDevice(const std::string& device_path) {
  const Drive* drive = FindDrive(DriveOfDevice(device_path));
  if (drive == nullptr) return kInvalidHandle;
  const Handle handle = NextHandle();
  devices_.emplace(handle, OpenDrive{.volume = drive->volume});
  return handle;
}

std::uint32_t MountedPlatform::SetPointer(Handle device, std::int32_t low, std::int32_t high) {
  const auto open = devices_.find(device);
  if (open == devices_.end() || high < 0) return kNoPosition;
  const auto low_half = static_cast<std::uint32_t>(low);
  open->second.position = static_cast<std::uint64_t>(high) << 32 | low_half;
  return low_half;
}

bool MountedPlatform::ReadDevice(Handle device, std::span<std::uint8_t> out) {
  const auto open = devices_.find(device);
  if (open == devices_.end()) return false;
  if (open->second.volume->ReadDevice(open->second.position, out) != error::kSuccess) return false;
  open->second.position += out.size();
  return true;
}

SmartDrive* MountedPlatform::DiskOf(Handle device, ErrorCode& why) {
  const auto open = devices_.find(device);
  SmartDrive* const disk = open != devices_.end() ? open->second.volume->Drive() : nullptr;
  why = open == devices_.end() ? error::kInvalidHandle : error::kNotSupported;
  return disk;
}

ErrorCode MountedPlatform::ReadDriverVersion(Handle device, DriverVersion& version) {
  version = {};
  ErrorCode why = error::kSuccess;
  return DiskOf(device, why) != nullptr ? error::kInvalidFunction : why;
}

ErrorCode MountedPlatform::SendDriveCommand(Handle device, const DriveRegisters& registers) {
  ErrorCode why = error::kSuccess;
  SmartDrive* const disk = DiskOf(device, why);
  return disk != nullptr ? disk->Send(registers) : why;
}

ErrorCode MountedPlatform::ReceiveDriveData(Handle device, const DriveRegisters& registers,
                                            DriveSector& data) {
  data = {};
  ErrorCode why = error::kSuccess;
  SmartDrive* const disk = DiskOf(device, why);
  return disk != nullptr ? disk->Receive(registers, data) : why;
}

Handle MountedPlatform::OpenVolume(const std::string& device_path) {
  Drive* drive = FindDrive(DriveOfDevice(device_path));
  if (drive == nullptr) return kInvalidHandle;
  const Handle handle = NextHandle();
  volumes_.emplace(handle, drive);
  return handle;
}

void MountedPlatform::CloseVolume(Handle volume) { volumes_.erase(volume); }

ErrorCode MountedPlatform::FreeSpaceFigures(const std::string& root, FreeSpace& out) {
  const Drive* drive = FindDrive(DriveOfRoot(root));
  if (drive == nullptr) return error::kPathNotFound;
  const VolumeFacts& facts = drive->volume->Facts();
  out = {.sectors_per_cluster = facts.sectors_per_cluster,
         .bytes_per_sector = facts.bytes_per_sector,
         .free_clusters = drive->volume->FreeClusters(),
         .total_clusters = facts.total_clusters};
  return error::kSuccess;
}

ErrorCode MountedPlatform::VolumeNames(const std::string& root, VolumeName& out) {
  const Drive* drive = FindDrive(DriveOfRoot(root));
  if (drive == nullptr) return error::kPathNotFound;
  const VolumeFacts& facts = drive->volume->Facts();
  out = {.label = facts.label,
         .file_system = facts.file_system,
         .serial = static_cast<std::uint32_t>(facts.serial)};
  return error::kSuccess;
}

ErrorCode MountedPlatform::VolumeBitmap(Handle volume, std::int64_t starting_lcn,
                                        std::size_t max_bytes, BitmapChunk& out) {
  const Drive* drive = DriveOf(volume);
  if (drive == nullptr) return error::kInvalidHandle;
  const std::int64_t total = drive->volume->Facts().total_clusters;
  if (starting_lcn < 0 || starting_lcn >= total || max_bytes == 0) return error::kInvalidParameter;

  out.starting_lcn = starting_lcn - starting_lcn % 8;
  out.bitmap_size = total - out.starting_lcn;
  const auto whole = static_cast<std::uint64_t>((out.bitmap_size + 7) / 8);
  out.bits.resize(static_cast<std::size_t>(std::min<std::uint64_t>(whole, max_bytes)));
  drive->volume->CopyBitmap(out.starting_lcn, out.bits);
  return out.bits.size() < whole ? error::kMoreData : error::kSuccess;
}

bool MountedPlatform::BitmapChanges(Handle volume, std::uint64_t& mark,
                                    std::vector<std::int64_t>& lcns) {
  Drive* drive = DriveOf(volume);
  if (drive != nullptr) return drive->volume->BitmapChanges(mark, lcns);
  mark = 0;
  return false;
}

ErrorCode MountedPlatform::NtfsData(Handle volume, NtfsVolumeData& out) {
  const Drive* drive = DriveOf(volume);
  if (drive == nullptr) return error::kInvalidHandle;
  const std::optional<NtfsVolumeData> data = drive->volume->NtfsData();
  if (!data) return error::kInvalidParameter;
  out = *data;
  return error::kSuccess;
}

ErrorCode MountedPlatform::MoveClusters(Handle volume, Handle file, std::int64_t starting_vcn,
                                        std::int64_t starting_lcn, std::uint32_t cluster_count,
                                        const MoveCheckpoint& checkpoint) {
  Drive* drive = DriveOf(volume);
  const OpenFile* open = FileOf(file);
  if (drive == nullptr || open == nullptr) return error::kInvalidHandle;
  if (open->found.drive != drive) return error::kInvalidParameter;
  // A copy: what happens at a checkpoint may close the file.
  const StreamRef stream = open->found.stream;
  const std::string path = open->path;
  std::pair<ItemId, std::string> key(stream.item, stream.stream);
  if (const auto known = drive->fixed.find(key);
      known != drive->fixed.end() && !checkpoint.must_finish) {
    return known->second;
  }
  const ErrorCode result =
      drive->volume->Move(stream, starting_vcn, starting_lcn, cluster_count, checkpoint);
  // Last: extents read at a checkpoint are those of before the move.
  ++drive->moves;
  if (const std::optional<std::uint64_t> byte = drive->volume->TakeReadFault()) {
    failures_.Note(path, result != error::kSuccess ? result : error::kReadFault, byte);
    if (result != error::kSuccess) drive->fixed.emplace(std::move(key), result);
  }
  return result;
}

}  // namespace vornalux
