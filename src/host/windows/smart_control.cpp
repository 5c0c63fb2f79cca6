// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/windows/smart_control.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <span>

#include "host/windows/system_headers.h"

namespace vornalux {
namespace {

static_assert(SMART_GET_VERSION == 0x74080);
static_assert(SMART_SEND_DRIVE_COMMAND == 0x7C084);
static_assert(SMART_RCV_DRIVE_DATA == 0x7C088);

static_assert(sizeof(GETVERSIONINPARAMS) == sizeof(DriverVersion));

// Both records end in a first byte of data, which is no part of their length.
constexpr std::size_t kRequestSize = 32;
static_assert(offsetof(SENDCMDINPARAMS, cBufferSize) == 0);
static_assert(offsetof(SENDCMDINPARAMS, irDriveRegs) == 4);
static_assert(offsetof(SENDCMDINPARAMS, bDriveNumber) == 12);
static_assert(offsetof(SENDCMDINPARAMS, bBuffer) == kRequestSize);
static_assert(offsetof(IDEREGS, bFeaturesReg) == 0);
static_assert(offsetof(IDEREGS, bCommandReg) == 6);

constexpr std::size_t kAnswerHeader = 16;
static_assert(offsetof(SENDCMDOUTPARAMS, bBuffer) == kAnswerHeader);
using Answer = std::array<std::uint8_t, kAnswerHeader + sizeof(DriveSector)>;

SENDCMDINPARAMS Pack(const DriveRegisters& registers, std::size_t buffer_size) {
  SENDCMDINPARAMS request = {};
  request.cBufferSize = static_cast<DWORD>(buffer_size);
  request.irDriveRegs = {.bFeaturesReg = registers.features,
                         .bSectorCountReg = registers.sector_count,
                         .bSectorNumberReg = registers.sector_number,
                         .bCylLowReg = registers.cylinder_low,
                         .bCylHighReg = registers.cylinder_high,
                         .bDriveHeadReg = registers.drive_head,
                         .bCommandReg = registers.command,
                         .bReserved = 0};
  return request;
}

// answered: how many bytes of out can be believed.
ErrorCode Control(Handle device, DWORD code, SENDCMDINPARAMS* request, std::span<std::uint8_t> out,
                  std::size_t& answered) {
  answered = 0;
  DWORD returned = 0;
  if (!DeviceIoControl(Native(device), code, request, request != nullptr ? kRequestSize : 0,
                       out.data(), static_cast<DWORD>(out.size()), &returned, nullptr)) {
    return LastError();
  }
  answered = std::min<std::size_t>(returned, out.size());
  return error::kSuccess;
}

}  // namespace

ErrorCode GetDriverVersion(Handle device, DriverVersion& version) {
  version = {};
  std::array<std::uint8_t, sizeof(DriverVersion)> answer{};
  std::size_t answered = 0;
  const ErrorCode error = Control(device, SMART_GET_VERSION, nullptr, answer, answered);
  std::memcpy(version.data(), answer.data(), answered);
  return error;
}

ErrorCode SendSmartCommand(Handle device, const DriveRegisters& registers) {
  SENDCMDINPARAMS request = Pack(registers, 0);
  Answer answer{};
  std::size_t answered = 0;
  return Control(device, SMART_SEND_DRIVE_COMMAND, &request, answer, answered);
}

ErrorCode ReceiveSmartData(Handle device, const DriveRegisters& registers, DriveSector& data) {
  data = {};
  SENDCMDINPARAMS request = Pack(registers, data.size());
  Answer answer{};
  std::size_t answered = 0;
  const ErrorCode error = Control(device, SMART_RCV_DRIVE_DATA, &request, answer, answered);
  if (answered > kAnswerHeader) {
    std::memcpy(data.data(), answer.data() + kAnswerHeader, answered - kAnswerHeader);
  }
  return error;
}

}  // namespace vornalux
