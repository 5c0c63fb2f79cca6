// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/windows_devices.h"

#include <limits>

#include "host/windows/smart_control.h"
#include "host/windows/system_headers.h"
#include "host/windows/windows_text.h"

namespace vornalux {
namespace {

bool FitsOneCall(std::size_t size) { return size <= std::numeric_limits<DWORD>::max(); }

DWORD Low(std::uint64_t offset) { return static_cast<DWORD>(offset); }
DWORD High(std::uint64_t offset) { return static_cast<DWORD>(offset >> 32); }

}  // namespace

Handle WindowsDevices::OpenDevice(const std::string& device_path) {
  return Portable(CreateFileA(ToAnsi(device_path).c_str(), GENERIC_READ | GENERIC_WRITE,
                              FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                              nullptr));
}

void WindowsDevices::CloseDevice(Handle device) { CloseHandle(Native(device)); }

std::uint32_t WindowsDevices::SetPointer(Handle device, std::int32_t low, std::int32_t high) {
  static_assert(INVALID_SET_FILE_POINTER == kNoPosition);
  LONG high_half = high;
  // As an answer without an error it would be the last byte below a multiple of 4 GiB, where no
  // sector begins.
  return SetFilePointer(Native(device), low, &high_half, FILE_BEGIN);
}

bool WindowsDevices::ReadDevice(Handle device, std::span<std::uint8_t> out) {
  DWORD done = 0;
  return FitsOneCall(out.size()) &&
         ReadFile(Native(device), out.data(), static_cast<DWORD>(out.size()), &done, nullptr) &&
         done == out.size();
}

bool WindowsDevices::WriteDevice(Handle device, std::span<const std::uint8_t> data) {
  DWORD done = 0;
  return FitsOneCall(data.size()) &&
         WriteFile(Native(device), data.data(), static_cast<DWORD>(data.size()), &done, nullptr) &&
         done == data.size();
}

void WindowsDevices::FlushDevice(Handle device) { FlushFileBuffers(Native(device)); }

void WindowsDevices::LockRange(Handle device, std::uint64_t offset, std::uint32_t count) {
  LockFile(Native(device), Low(offset), High(offset), count, 0);
}

void WindowsDevices::UnlockRange(Handle device, std::uint64_t offset, std::uint32_t count) {
  UnlockFile(Native(device), Low(offset), High(offset), count, 0);
}

ErrorCode WindowsDevices::ReadDriverVersion(Handle device, DriverVersion& version) {
  return GetDriverVersion(device, version);
}

ErrorCode WindowsDevices::SendDriveCommand(Handle device, const DriveRegisters& registers) {
  return SendSmartCommand(device, registers);
}

ErrorCode WindowsDevices::ReceiveDriveData(Handle device, const DriveRegisters& registers,
                                           DriveSector& data) {
  return ReceiveSmartData(device, registers, data);
}

}  // namespace vornalux
