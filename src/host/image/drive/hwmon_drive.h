// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "host/mounted/smart_drive.h"

namespace vornalux {

// What the kernel's sensors (hwmon: drivetemp, nvme) tell of the disk that a block device is on or
// is a part of, degrees Celsius. Device is "8:1" (major:minor), as sysfs, whose root is given, has
// it. Nothing where there is no such sensor, or it does not answer.
std::optional<int> SensedTemperature(const std::string& sysfs, const std::string& device);

// A disk whose temperature the kernel is asked for first: no command is then sent to the disk
// itself, which is otherwise's to do.
class HwmonDrive final : public SmartDrive {
 public:
  HwmonDrive(std::string sysfs, std::string device, std::unique_ptr<SmartDrive> otherwise)
      : sysfs_(std::move(sysfs)), device_(std::move(device)), otherwise_(std::move(otherwise)) {}

  ErrorCode Send(const DriveRegisters& registers) override;
  ErrorCode Receive(const DriveRegisters& registers, DriveSector& data) override;

 private:
  std::string sysfs_;
  std::string device_;
  std::unique_ptr<SmartDrive> otherwise_;
};

}  // namespace vornalux
