// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include "platform/drive_commands.h"

namespace vornalux {

// A temperature as the attribute sector of an ATA drive has it: attribute 194, in the second entry,
// since readers skip the first one. No attribute for what is not above 0 °C, or what no disk
// survives.
inline DriveSector TemperatureSector(int degrees) {
  constexpr int kHottest = 255;  // that the entry has room for
  constexpr std::size_t kEntry = smart_table::kFirstEntry + smart_table::kEntrySize;
  DriveSector sector{};
  if (degrees < 1 || degrees > kHottest) return sector;
  sector[0] = 1;  // revision
  sector[kEntry] = smart_table::kTemperature;
  sector[kEntry + smart_table::kRawOffset] = static_cast<std::uint8_t>(degrees);
  return sector;
}

}  // namespace vornalux
