// SPDX-License-Identifier: GPL-2.0-or-later
// The kernel's file system about devices, whose root is given; devices are "8:1" (major:minor).
#pragma once

#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace vornalux {

inline constexpr const char* kSysfs = "/sys";

inline std::string NumbersOf(dev_t device) {
  return std::to_string(major(device)) + ":" + std::to_string(minor(device));
}

// The block device itself, or the one that a file lies on.
inline std::string DeviceOf(const struct stat& status) {
  return NumbersOf(S_ISBLK(status.st_mode) ? status.st_rdev : status.st_dev);
}

// Empty for what cannot be read.
inline std::string FirstLine(const std::filesystem::path& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

// The folder of a block device; empty for one that sysfs does not know.
inline std::filesystem::path BlockFolder(const std::string& sysfs, const std::string& device) {
  std::error_code error;
  auto folder =
      std::filesystem::canonical(std::filesystem::path(sysfs) / "dev/block" / device, error);
  return error ? std::filesystem::path() : folder;
}

}  // namespace vornalux
