// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>

#include "engine/run_target.h"
#include "platform/raw_devices.h"

namespace vornalux {

// One entry of a SMART table as the drive has it.
struct SmartAttribute {
  std::uint8_t id = 0;
  std::uint16_t flags = 0;
  std::uint8_t current = 0;
  std::uint8_t worst = 0;
  std::array<std::uint8_t, 6> raw{};  // least significant byte first
  std::uint8_t reserved = 0;
};
using SmartTable = std::array<SmartAttribute, smart_table::kEntries>;

struct DriveIdentity {
  std::string firmware;  // 8 characters
  std::string model;     // 40 characters
  std::string serial;    // 20 characters
};

// Reads how warm the disk of the volume at work is. Changes nothing on it.
class clsTemperatures {
 public:
  using Event = std::function<void(std::int16_t intTemp)>;  // degrees Celsius

  // Both outlive this.
  clsTemperatures(RawDevices& devices, const RunTarget& target)
      : devices_(devices), target_(target) {}

  Event HDDTempOK;        // 1 to 55
  Event HDDTempNA;        // no reading; 0
  Event HDDTempCritical;  // above 55

  // Takes one reading and raises exactly one of the events. Whatever fails is no reading; only what
  // a handler throws reaches the caller.
  void QueryHDDTemperature();

  // Of the last reading.
  std::int16_t Temperature() const { return temperature_; }
  const SmartTable& Attributes() const { return attributes_; }
  const SmartTable& Thresholds() const { return thresholds_; }
  const DriveIdentity& Identity() const { return identity_; }
  const DriverVersion& Version() const { return version_; }

 private:
  std::int16_t Read();
  void ReadTables(Handle device);

  RawDevices& devices_;
  const RunTarget& target_;
  std::int16_t temperature_ = 0;
  SmartTable attributes_;
  SmartTable thresholds_;
  DriveIdentity identity_;
  DriverVersion version_{};
};

}  // namespace vornalux
