// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/drive_commands.h"
#include "platform/types.h"

namespace vornalux {

// The bytes of a volume below its file system, and the disk that holds them. Offsets are bytes from
// the volume's start, in two halves as the system takes them.
class RawDevices {
 public:
  virtual ~RawDevices() = default;

  // Opens "\\.\C:" for reading and writing, shared. kInvalidHandle on failure.
  virtual Handle OpenDevice(const std::string& device_path) = 0;
  virtual void CloseDevice(Handle device) = 0;

  // The low half of where the device now stands; kNoPosition for a failure.
  static constexpr std::uint32_t kNoPosition = 0xFFFFFFFF;
  virtual std::uint32_t SetPointer(Handle device, std::int32_t low, std::int32_t high) = 0;

  // From where the device stands: all of the span, or false.
  virtual bool ReadDevice(Handle device, std::span<std::uint8_t> out) = 0;
  virtual bool WriteDevice(Handle device, std::span<const std::uint8_t> data) = 0;

  virtual void FlushDevice(Handle device) = 0;
  virtual void LockRange(Handle device, std::uint64_t offset, std::uint32_t count) = 0;
  virtual void UnlockRange(Handle device, std::uint64_t offset, std::uint32_t count) = 0;

  // Commands to the disk by its registers, through an open device. kNotSupported where no way leads
  // to it. An answer that is missing or short is filled up with zeros.
  virtual ErrorCode ReadDriverVersion(Handle /*device*/, DriverVersion& version) {
    version = {};
    return error::kNotSupported;
  }
  virtual ErrorCode SendDriveCommand(Handle /*device*/, const DriveRegisters& /*registers*/) {
    return error::kNotSupported;
  }
  virtual ErrorCode ReceiveDriveData(Handle /*device*/, const DriveRegisters& /*registers*/,
                                     DriveSector& data) {
    data = {};
    return error::kNotSupported;
  }
};

}  // namespace vornalux
