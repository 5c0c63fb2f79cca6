// SPDX-License-Identifier: GPL-2.0-or-later
// Devices below the file systems: a real one of the system that the tests run on, and commands to a
// disk whose driver answers what it is told to. tests/windows/run-under-wine makes the drive.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <numeric>
#include <tuple>

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
  std::vector<std::tuple<DWORD, Bytes, DWORD>> asked;  // code, request, room
};
Driver driver;

BOOL WINAPI Control(HANDLE device, DWORD code, void* in, DWORD in_size, void* out, DWORD out_size,
                    DWORD* returned, OVERLAPPED* overlapped) {
  EXPECT_EQ(overlapped, nullptr);
  const auto* bytes = static_cast<const std::uint8_t*>(in);
  driver.device = device;
  driver.asked.emplace_back(code, Bytes(bytes, bytes + in_size), out_size);
  std::memcpy(out, driver.answer.data(), std::min<std::size_t>(out_size, driver.answer.size()));
  *returned = driver.returned;
  SetLastError(driver.error);
  return driver.error == 0;
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
  play::ImportPatch control_{"DeviceIoControl", Control};
  WindowsDevices devices_;
};

TEST_F(Smart, ARequestIsOneRecord) {
  constexpr DriveRegisters kAll = {1, 2, 3, 4, 5, 6, 7};
  DriveSector sector;
  DriverVersion version;
  driver.answer.resize(528, 0xEE);
  std::iota(driver.answer.begin() + 16, driver.answer.end(), std::uint8_t{1});
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
  const Bytes registers = {1, 2, 3, 4, 5, 6, 7};
  EXPECT_EQ(driver.asked[0], std::tuple(0x7C084, Request(0, registers), 528));
  EXPECT_EQ(driver.asked[1], std::tuple(0x7C088, Request(512, registers), 528));
  EXPECT_EQ(driver.asked[2], std::tuple(0x74080, Bytes(), 24));
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
}

// I: is an image of 5 GiB with a FAT file system and a mark at 4 GiB + 1 MiB.
TEST(Drives, RawSectors) {
  if (std::getenv("VORNALUX_TEST_DRIVES") == nullptr) GTEST_SKIP() << "no drives made for tests";
  WindowsDevices devices;
  EXPECT_EQ(devices.OpenDevice("\\\\.\\Q:"), kInvalidHandle);
  const Handle device = devices.OpenDevice("\\\\.\\I:");
  ASSERT_NE(device, kInvalidHandle);
  std::vector<std::uint8_t> sector(512);
  ASSERT_TRUE(devices.ReadDevice(device, sector));
  EXPECT_EQ(sector[510], 0x55);
  EXPECT_EQ(sector[511], 0xAA);
  EXPECT_EQ(std::string(sector.begin() + 82, sector.begin() + 90), "FAT32   ");

  ASSERT_EQ(devices.SetPointer(device, 0x100000, 1), 0x100000u);
  ASSERT_TRUE(devices.ReadDevice(device, sector));
  EXPECT_EQ(std::string(sector.begin(), sector.begin() + 4), "mark");

  // A low half with its highest bit set is no negative distance.
  const std::vector<std::uint8_t> pattern(1024, 0xB7);
  const auto low = static_cast<std::int32_t>(0xC0000000);
  ASSERT_EQ(devices.SetPointer(device, low, 0), 0xC0000000u);
  devices.LockRange(device, 0xC0000000u, 1024);
  EXPECT_TRUE(devices.WriteDevice(device, pattern));
  devices.FlushDevice(device);
  devices.UnlockRange(device, 0xC0000000u, 1024);
  ASSERT_EQ(devices.SetPointer(device, low, 0), 0xC0000000u);
  std::vector<std::uint8_t> back(1024);
  EXPECT_TRUE(devices.ReadDevice(device, back));
  EXPECT_EQ(back, pattern);

  EXPECT_EQ(devices.SetPointer(device, 0, -1), RawDevices::kNoPosition);
  ASSERT_NE(devices.SetPointer(device, 0x40000000 - 512, 1), RawDevices::kNoPosition);
  EXPECT_FALSE(devices.ReadDevice(device, back)) << "half of it lies past the end";
  devices.CloseDevice(device);
  EXPECT_FALSE(devices.ReadDevice(device, sector));
}

}  // namespace
}  // namespace vornalux
