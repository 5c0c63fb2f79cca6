// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/drive/whole_disk.h"

#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

#include "host/image/drive/sysfs.h"

namespace vornalux {
namespace {

namespace fs = std::filesystem;

constexpr int kDeepest = 8;  // devices on top of each other

// The only device below this one; empty when there is none or several.
fs::path OnlySlave(const fs::path& folder) {
  fs::path only;
  std::error_code error;
  for (fs::directory_iterator slave(folder / "slaves", error), end; !error && slave != end;
       slave.increment(error)) {
    if (!only.empty()) return {};
    only = slave->path();
  }
  return error ? fs::path() : only;
}

fs::path Below(const fs::path& folder) {
  std::error_code error;
  return fs::exists(folder / "partition", error) ? folder / ".." : OnlySlave(folder);
}

}  // namespace

std::string WholeDiskOf(const std::string& sysfs, const std::string& device) {
  std::string whole;
  fs::path folder = BlockFolder(sysfs, device);
  for (int depth = 0; depth < kDeepest && !folder.empty(); ++depth) {
    const fs::path below = Below(folder);
    if (below.empty()) return whole;
    whole = FirstLine(below / "dev");
    if (whole.empty()) return {};
    folder = BlockFolder(sysfs, whole);
  }
  return {};
}

std::string DeviceNodeOf(const std::string& sysfs, const std::string& device) {
  constexpr std::string_view kName = "DEVNAME=";
  const fs::path folder = BlockFolder(sysfs, device);
  if (folder.empty()) return {};
  std::ifstream file(folder / "uevent");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(kName)) return "/dev/" + line.substr(kName.size());
  }
  return {};
}

std::string FriendlyNodeOf(const std::string& sysfs, const std::string& device) {
  const std::string name = FirstLine(BlockFolder(sysfs, device) / "dm/name");
  return name.empty() ? DeviceNodeOf(sysfs, device) : "/dev/mapper/" + name;
}

std::string NodeOfPartition(const std::string& sysfs, const std::string& disk,
                            std::uint64_t offset) {
  constexpr std::uint64_t kUnit = 512;  // whatever the disk's sectors
  const fs::path folder = BlockFolder(sysfs, disk);
  std::error_code error;
  if (folder.empty() || offset == 0) return {};
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    if (!fs::exists(entry->path() / "partition", error)) continue;
    if (FirstLine(entry->path() / "start") != std::to_string(offset / kUnit)) continue;
    return DeviceNodeOf(sysfs, FirstLine(entry->path() / "dev"));
  }
  return {};
}

}  // namespace vornalux
