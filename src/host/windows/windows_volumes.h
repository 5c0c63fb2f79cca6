// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/volumes.h"

namespace vornalux {

// Drives and volumes as the system has them. Each method is a call and a conversion.
class WindowsVolumes final : public Volumes {
 public:
  std::string LogicalDriveStrings() override;
  std::uint32_t DriveType(const std::string& root) override;
  Handle OpenVolume(const std::string& device_path) override;
  void CloseVolume(Handle volume) override;
  ErrorCode FreeSpaceFigures(const std::string& root, FreeSpace& out) override;
  ErrorCode VolumeNames(const std::string& root, VolumeName& out) override;
  // out.bits is empty after a failure.
  ErrorCode VolumeBitmap(Handle volume, std::int64_t starting_lcn, std::size_t max_bytes,
                         BitmapChunk& out) override;
  bool BitmapChanges(Handle, std::uint64_t& mark, std::vector<std::int64_t>&) override {
    mark = 0;
    return false;
  }
  ErrorCode NtfsData(Handle volume, NtfsVolumeData& out) override;
  ErrorCode MoveClusters(Handle volume, Handle file, std::int64_t starting_vcn,
                         std::int64_t starting_lcn, std::uint32_t cluster_count,
                         const MoveCheckpoint& checkpoint = {}) override;
};

}  // namespace vornalux
