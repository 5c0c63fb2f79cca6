// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/raw_devices.h"

namespace vornalux {

// Volumes below their file system. The system wants whole sectors.
class WindowsDevices final : public RawDevices {
 public:
  Handle OpenDevice(const std::string& device_path) override;
  void CloseDevice(Handle device) override;
  std::uint32_t SetPointer(Handle device, std::int32_t low, std::int32_t high) override;
  bool ReadDevice(Handle device, std::span<std::uint8_t> out) override;
  bool WriteDevice(Handle device, std::span<const std::uint8_t> data) override;
  void FlushDevice(Handle device) override;
  void LockRange(Handle device, std::uint64_t offset, std::uint32_t count) override;
  void UnlockRange(Handle device, std::uint64_t offset, std::uint32_t count) override;
  ErrorCode ReadDriverVersion(Handle device, DriverVersion& version) override;
  ErrorCode SendDriveCommand(Handle device, const DriveRegisters& registers) override;
  ErrorCode ReceiveDriveData(Handle device, const DriveRegisters& registers,
                             DriveSector& data) override;
};

}  // namespace vornalux
