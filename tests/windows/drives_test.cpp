// SPDX-License-Identifier: GPL-2.0-or-later
// Drives, volumes and devices of the system that the tests run on. tests/windows/run-under-wine
// makes the drives that are asked for here.
#include <gtest/gtest.h>

#include <cstdlib>

#include "host/windows/system_headers.h"
#include "host/windows/windows_devices.h"

namespace vornalux {
namespace {

class Drives : public testing::Test {
 protected:
  void SetUp() override {
    if (std::getenv("VORNALUX_TEST_DRIVES") == nullptr) GTEST_SKIP() << "no drives made for tests";
  }
  WindowsDevices devices_;
};

// I: is an image of 5 GiB with a FAT file system and a mark at 4 GiB + 1 MiB.
TEST_F(Drives, RawSectors) {
  EXPECT_EQ(devices_.OpenDevice("\\\\.\\Q:"), kInvalidHandle);
  const Handle device = devices_.OpenDevice("\\\\.\\I:");
  ASSERT_NE(device, kInvalidHandle);
  std::vector<std::uint8_t> sector(512);
  ASSERT_TRUE(devices_.ReadDevice(device, sector));
  EXPECT_EQ(sector[510], 0x55);
  EXPECT_EQ(sector[511], 0xAA);
  EXPECT_EQ(std::string(sector.begin() + 82, sector.begin() + 90), "FAT32   ");

  ASSERT_EQ(devices_.SetPointer(device, 0x100000, 1), 0x100000u);
  ASSERT_TRUE(devices_.ReadDevice(device, sector));
  EXPECT_EQ(std::string(sector.begin(), sector.begin() + 4), "mark");

  // A low half with its highest bit set is no negative distance.
  const std::vector<std::uint8_t> pattern(1024, 0xB7);
  const auto low = static_cast<std::int32_t>(0xC0000000);
  ASSERT_EQ(devices_.SetPointer(device, low, 0), 0xC0000000u);
  devices_.LockRange(device, 0xC0000000u, 1024);
  EXPECT_TRUE(devices_.WriteDevice(device, pattern));
  devices_.FlushDevice(device);
  devices_.UnlockRange(device, 0xC0000000u, 1024);
  ASSERT_EQ(devices_.SetPointer(device, low, 0), 0xC0000000u);
  std::vector<std::uint8_t> back(1024);
  EXPECT_TRUE(devices_.ReadDevice(device, back));
  EXPECT_EQ(back, pattern);

  EXPECT_EQ(devices_.SetPointer(device, 0, -1), RawDevices::kNoPosition);
  ASSERT_NE(devices_.SetPointer(device, 0x40000000 - 512, 1), RawDevices::kNoPosition);
  EXPECT_FALSE(devices_.ReadDevice(device, back)) << "half of it lies past the end";
  devices_.CloseDevice(device);
  EXPECT_FALSE(devices_.ReadDevice(device, sector));
}

}  // namespace
}  // namespace vornalux
