// SPDX-License-Identifier: GPL-2.0-or-later
#include "health/temperatures.h"

#include <algorithm>
#include <exception>
#include <span>

namespace vornalux {
namespace {

constexpr std::int16_t kHottest = 55;  // degrees Celsius that a disk may have

constexpr DriveRegisters SmartCommand(std::uint8_t feature) {
  return {.features = feature,
          .sector_count = 1,
          .sector_number = 1,
          .cylinder_low = smart_key::kCylinderLow,
          .cylinder_high = smart_key::kCylinderHigh,
          .drive_head = 0,
          .command = drive_command::kSmart};
}

// Names no command, so that drivers answer with what they know of the drive, if they answer.
constexpr DriveRegisters kIdentityRequest = {.features = 0,
                                             .sector_count = 1,
                                             .sector_number = 1,
                                             .cylinder_low = 0,
                                             .cylinder_high = 0,
                                             .drive_head = 0,
                                             .command = drive_command::kNone};

class OpenDevice {
 public:
  OpenDevice(RawDevices& devices, const std::string& path)
      : devices_(devices), handle_(devices.OpenDevice(path)) {}
  ~OpenDevice() {
    if (handle_ != kInvalidHandle) devices_.CloseDevice(handle_);
  }
  OpenDevice(const OpenDevice&) = delete;
  OpenDevice& operator=(const OpenDevice&) = delete;

  Handle get() const { return handle_; }

 private:
  RawDevices& devices_;
  Handle handle_;
};

SmartTable ParseTable(const DriveSector& sector) {
  SmartTable table;
  std::size_t at = smart_table::kFirstEntry;
  for (SmartAttribute& attribute : table) {
    const auto entry = std::span(sector).subspan(at, smart_table::kEntrySize);
    attribute.id = entry[0];
    attribute.flags = static_cast<std::uint16_t>(entry[1] | entry[2] << 8);
    attribute.current = entry[3];
    attribute.worst = entry[4];
    std::copy_n(entry.begin() + smart_table::kRawOffset, attribute.raw.size(),
                attribute.raw.begin());
    attribute.reserved = entry[11];
    at += smart_table::kEntrySize;
  }
  return table;
}

// Drives keep text in 16-bit words with the first character in the upper half.
std::string SwappedText(const DriveSector& sector, std::size_t first_word, std::size_t length) {
  std::string text;
  for (std::size_t i = 0; i < length; ++i) {
    text += static_cast<char>(sector[first_word * 2 + (i ^ 1)]);
  }
  return text;
}

DriveIdentity ParseIdentity(const DriveSector& sector) {
  return {.firmware = SwappedText(sector, 23, 8),
          .model = SwappedText(sector, 27, 40),
          .serial = SwappedText(sector, 10, 20)};
}

// The first entry is never looked at; of several the last one counts.
std::int16_t FindTemperature(const SmartTable& table) {
  std::int16_t temperature = 0;
  for (std::size_t i = 1; i < table.size(); ++i) {
    // Above the lowest byte drives put what they please, such as the extremes so far.
    if (table[i].id == smart_table::kTemperature) temperature = table[i].raw[0];
  }
  return temperature;
}

void Tell(const clsTemperatures::Event& event, std::int16_t temperature) {
  if (event) event(temperature);
}

}  // namespace

void clsTemperatures::QueryHDDTemperature() {
  try {
    temperature_ = Read();
  } catch (const std::exception&) {
    temperature_ = 0;
  }
  if (temperature_ == 0) {
    Tell(HDDTempNA, 0);
  } else {
    Tell(temperature_ > kHottest ? HDDTempCritical : HDDTempOK, temperature_);
  }
}

std::int16_t clsTemperatures::Read() {
  // The volume, not the disk: the system passes the commands on.
  const OpenDevice device(devices_, "\\\\.\\" + target_.Drive());
  if (device.get() == kInvalidHandle) return 0;
  // Some drivers know no such command, but answer the ones that follow.
  const ErrorCode enabled =
      devices_.SendDriveCommand(device.get(), SmartCommand(smart_feature::kEnable));
  if (enabled != error::kSuccess && enabled != error::kInvalidFunction) return 0;
  ReadTables(device.get());
  return FindTemperature(attributes_);
}

// What fails leaves zeros, which say nothing about a temperature.
void clsTemperatures::ReadTables(Handle device) {
  DriveSector sector{};
  devices_.ReceiveDriveData(device, SmartCommand(smart_feature::kReadAttributes), sector);
  attributes_ = ParseTable(sector);
  devices_.ReceiveDriveData(device, SmartCommand(smart_feature::kReadThresholds), sector);
  thresholds_ = ParseTable(sector);
  devices_.ReceiveDriveData(device, kIdentityRequest, sector);
  identity_ = ParseIdentity(sector);
  devices_.ReadDriverVersion(device, version_);
}

}  // namespace vornalux
