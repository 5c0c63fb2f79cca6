// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/drive/hwmon_drive.h"

#include <charconv>
#include <filesystem>
#include <vector>

#include "host/image/drive/sysfs.h"
#include "host/image/drive/temperature_sector.h"
#include "host/image/drive/whole_disk.h"

namespace vornalux {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> Below(const fs::path& folder, std::string_view name) {
  std::vector<fs::path> found;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    if (entry->path().filename().string().starts_with(name)) found.push_back(entry->path());
  }
  return found;
}

std::optional<int> Read(const fs::path& sensor) {
  const std::string name = FirstLine(sensor / "name");
  if (name != "drivetemp" && name != "nvme") return std::nullopt;
  const std::string text = FirstLine(sensor / "temp1_input");
  int thousandths = 0;
  const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), thousandths);
  if (error != std::errc() || rest != text.data() + text.size()) return std::nullopt;
  const int degrees = thousandths / 1000;
  return degrees > 0 && degrees < 256 ? std::optional(degrees) : std::nullopt;
}

bool AsksForTemperature(const DriveRegisters& registers) {
  return registers.command == drive_command::kSmart &&
         registers.features == smart_feature::kReadAttributes;
}

}  // namespace

std::optional<int> SensedTemperature(const std::string& sysfs, const std::string& device) {
  const std::string whole = WholeDiskOf(sysfs, device);
  const fs::path folder = BlockFolder(sysfs, whole.empty() ? device : whole);
  if (folder.empty()) return std::nullopt;
  // Sensors stand below what drives the disk: a SCSI device, an NVMe controller, or the one
  // controller of several that an NVMe subsystem has.
  std::vector<fs::path> drivers = Below(folder / "device", "nvme");
  drivers.push_back(folder / "device");
  drivers.push_back(folder / "device/device");
  for (const fs::path& driver : drivers) {
    std::vector<fs::path> sensors = Below(driver, "hwmon");
    for (fs::path& sensor : Below(driver / "hwmon", "hwmon")) sensors.push_back(std::move(sensor));
    for (const fs::path& sensor : sensors) {
      if (const auto degrees = Read(sensor)) return degrees;
    }
  }
  return std::nullopt;
}

ErrorCode HwmonDrive::Send(const DriveRegisters& registers) {
  return SensedTemperature(sysfs_, device_) ? error::kSuccess : otherwise_->Send(registers);
}

ErrorCode HwmonDrive::Receive(const DriveRegisters& registers, DriveSector& data) {
  const std::optional<int> degrees = SensedTemperature(sysfs_, device_);
  if (!degrees) return otherwise_->Receive(registers, data);
  data = {};
  if (!AsksForTemperature(registers)) return error::kInvalidFunction;
  data = TemperatureSector(*degrees);
  return error::kSuccess;
}

}  // namespace vornalux
