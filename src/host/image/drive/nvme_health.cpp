// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/drive/nvme_health.h"

#include "host/image/drive/temperature_sector.h"

namespace vornalux {
namespace {

constexpr std::uint8_t kGetLogPage = 0x02;
constexpr std::uint32_t kHealthLog = 0x02;
constexpr std::uint32_t kAllNamespaces = 0xFFFFFFFF;
constexpr std::uint32_t kDwords = sizeof(DriveSector) / 4;
constexpr std::size_t kCompositeTemperature = 1;  // byte of the log; Kelvin in two bytes
constexpr int kFreezingPoint = 273;               // Kelvin

}  // namespace

NvmeCommand HealthLogCommand() {
  return {.opcode = kGetLogPage,
          .namespace_id = kAllNamespaces,
          .dword10 = (kDwords - 1) << 16 | kHealthLog};
}

DriveSector AttributesFromHealthLog(const DriveSector& log) {
  const int kelvin = log[kCompositeTemperature] | log[kCompositeTemperature + 1] << 8;
  return TemperatureSector(kelvin - kFreezingPoint);
}

}  // namespace vornalux
