// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/drive/nvme_health.h"

namespace vornalux {
namespace {

constexpr std::uint8_t kGetLogPage = 0x02;
constexpr std::uint32_t kHealthLog = 0x02;
constexpr std::uint32_t kAllNamespaces = 0xFFFFFFFF;
constexpr std::uint32_t kDwords = sizeof(DriveSector) / 4;
constexpr std::size_t kCompositeTemperature = 1;  // byte of the log; Kelvin in two bytes
constexpr int kFreezingPoint = 273;               // Kelvin
constexpr int kHottest = 255;                     // degrees Celsius that the entry has room for

}  // namespace

NvmeCommand HealthLogCommand() {
  return {.opcode = kGetLogPage,
          .namespace_id = kAllNamespaces,
          .dword10 = (kDwords - 1) << 16 | kHealthLog};
}

DriveSector AttributesFromHealthLog(const DriveSector& log) {
  DriveSector sector{};
  const int kelvin = log[kCompositeTemperature] | log[kCompositeTemperature + 1] << 8;
  const int degrees = kelvin - kFreezingPoint;
  if (degrees < 1 || degrees > kHottest) return sector;
  constexpr std::size_t kEntry = smart_table::kFirstEntry + smart_table::kEntrySize;
  sector[0] = 1;  // revision
  sector[kEntry] = smart_table::kTemperature;
  sector[kEntry + smart_table::kRawOffset] = static_cast<std::uint8_t>(degrees);
  return sector;
}

}  // namespace vornalux
