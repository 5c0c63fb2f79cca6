// SPDX-License-Identifier: GPL-2.0-or-later
// The commands to a disk as the system's driver is asked, with a driver that answers what it is
// told to.
#include <gtest/gtest.h>

#include <cstring>
#include <numeric>

#include "host/windows/system_headers.h"
#include "host/windows/windows_devices.h"
#include "play/import_patch.h"

namespace vornalux {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct Driver {
  DWORD error = 0;  // 0: success
  Bytes answer;
  DWORD returned = 0;  // what it claims to have written

  HANDLE device = nullptr;
  std::vector<DWORD> codes;
  std::vector<Bytes> asked;
  std::vector<DWORD> room;
};
Driver driver;

BOOL WINAPI Control(HANDLE device, DWORD code, void* in, DWORD in_size, void* out, DWORD out_size,
                    DWORD* returned, OVERLAPPED* overlapped) {
  EXPECT_EQ(overlapped, nullptr);
  const auto* bytes = static_cast<const std::uint8_t*>(in);
  driver.device = device;
  driver.codes.push_back(code);
  driver.asked.emplace_back(bytes, bytes + in_size);
  driver.room.push_back(out_size);
  std::memcpy(out, driver.answer.data(), std::min<std::size_t>(out_size, driver.answer.size()));
  *returned = driver.returned;
  SetLastError(driver.error);
  return driver.error == 0;
}

// An answer whose sector counts its bytes.
Bytes Counted() {
  Bytes answer(528, 0xEE);
  std::iota(answer.begin() + 16, answer.end(), std::uint8_t{1});
  return answer;
}

Bytes Request(DWORD buffer_size, Bytes registers) {
  Bytes request(32);
  std::memcpy(request.data(), &buffer_size, sizeof buffer_size);
  std::copy(registers.begin(), registers.end(), request.begin() + 4);
  return request;
}

class Smart : public testing::Test {
 protected:
  Smart() { driver = {}; }
  play::ImportPatch control_{"DeviceIoControl", reinterpret_cast<void*>(&Control)};
  WindowsDevices devices_;
};

TEST_F(Smart, ARequestIsOneRecord) {
  constexpr DriveRegisters kAll = {1, 2, 3, 4, 5, 6, 7};
  DriveSector sector;
  DriverVersion version;
  driver.answer = Counted();
  driver.returned = 528;
  EXPECT_EQ(devices_.SendDriveCommand(0x1234, kAll), error::kSuccess);
  EXPECT_EQ(devices_.ReceiveDriveData(0x1234, kAll, sector), error::kSuccess);
  EXPECT_EQ(Bytes(sector.begin(), sector.end()),
            Bytes(driver.answer.begin() + 16, driver.answer.end()));
  driver.answer = {1, 0, 0, 0, 2, 0, 0, 0, 3, 0, 0, 0, 4, 0, 0, 0, 5, 0, 0, 0, 6, 0, 0, 0};
  driver.returned = 24;
  EXPECT_EQ(devices_.ReadDriverVersion(0x1234, version), error::kSuccess);
  EXPECT_EQ(version, (DriverVersion{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(driver.device, Native(0x1234));
  EXPECT_EQ(driver.codes, (std::vector<DWORD>{0x7C084, 0x7C088, 0x74080}));
  EXPECT_EQ(driver.asked, (std::vector<Bytes>{Request(0, {1, 2, 3, 4, 5, 6, 7}),
                                              Request(512, {1, 2, 3, 4, 5, 6, 7}), Bytes()}));
  EXPECT_EQ(driver.room, (std::vector<DWORD>{528, 528, 24}));
}

TEST_F(Smart, OfAnAnswerCountsWhatWasWritten) {
  struct Case {
    DWORD error;
    DWORD returned;
    std::size_t given;
  };
  for (const Case c : {Case{0, 528, 512},
                       {0, 100, 84},
                       {0, 16, 0},
                       {0, 3, 0},
                       {0, 0, 0},
                       {0, 0xFFFFFFFF, 512},
                       {ERROR_INVALID_FUNCTION, 528, 0},
                       {ERROR_ACCESS_DENIED, 528, 0}}) {
    SCOPED_TRACE(std::to_string(c.returned) + " error " + std::to_string(c.error));
    driver.error = c.error;
    driver.answer.assign(528, 0xEE);
    driver.returned = c.returned;
    DriveSector sector;
    sector.fill(1);
    EXPECT_EQ(devices_.ReceiveDriveData(0x1234, {}, sector), c.error);
    EXPECT_EQ(devices_.SendDriveCommand(0x1234, {}), c.error);
    EXPECT_EQ(static_cast<std::size_t>(std::count(sector.begin(), sector.end(), 0xEE)), c.given);
    EXPECT_EQ(static_cast<std::size_t>(std::count(sector.begin(), sector.end(), 0)), 512 - c.given);
  }
  driver = {};
  driver.answer.assign(24, 0xEE);
  driver.returned = 6;
  DriverVersion version{1, 1, 1, 1, 1, 1};
  EXPECT_EQ(devices_.ReadDriverVersion(0x1234, version), error::kSuccess);
  EXPECT_EQ(version, (DriverVersion{0xEEEEEEEE, 0xEEEE, 0, 0, 0, 0}));
}

}  // namespace
}  // namespace vornalux
