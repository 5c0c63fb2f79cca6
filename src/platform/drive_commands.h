// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <array>
#include <cstdint>

namespace vornalux {

// The registers of an ATA drive, as a command sets them.
struct DriveRegisters {
  std::uint8_t features = 0;
  std::uint8_t sector_count = 0;
  std::uint8_t sector_number = 0;
  std::uint8_t cylinder_low = 0;
  std::uint8_t cylinder_high = 0;
  std::uint8_t drive_head = 0;
  std::uint8_t command = 0;

  friend bool operator==(const DriveRegisters&, const DriveRegisters&) = default;
};

namespace drive_command {
inline constexpr std::uint8_t kNone = 0x00;
inline constexpr std::uint8_t kSmart = 0xB0;  // the features register says which one
}  // namespace drive_command

namespace smart_feature {
inline constexpr std::uint8_t kReadAttributes = 0xD0;
inline constexpr std::uint8_t kReadThresholds = 0xD1;
inline constexpr std::uint8_t kEnable = 0xD8;
}  // namespace smart_feature

// What a drive that keeps to SMART has in the two cylinder registers of its commands.
namespace smart_key {
inline constexpr std::uint8_t kCylinderLow = 0x4F;
inline constexpr std::uint8_t kCylinderHigh = 0xC2;
}  // namespace smart_key

// The sector that a drive answers with.
using DriveSector = std::array<std::uint8_t, 512>;

// What the system's driver says of itself: versions and a map of drives, capabilities, four words
// without meaning.
using DriverVersion = std::array<std::uint32_t, 6>;

// Where attributes and thresholds lie in a SMART sector: entries in a row after a revision number.
namespace smart_table {
inline constexpr std::size_t kFirstEntry = 2;  // bytes
inline constexpr std::size_t kEntrySize = 12;  // bytes
inline constexpr std::size_t kEntries = 30;
inline constexpr std::size_t kRawOffset = 5;  // bytes, of the raw value in an entry
inline constexpr std::uint8_t kTemperature = 194;
}  // namespace smart_table

}  // namespace vornalux
