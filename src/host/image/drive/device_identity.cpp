// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/drive/device_identity.h"

#include <blkid/blkid.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <memory>

#include "host/image/drive/whole_disk.h"

namespace vornalux {
namespace {

namespace fs = std::filesystem;

struct FreeProbe {
  void operator()(blkid_probe probe) const { blkid_free_probe(probe); }
};

std::string FirstLine(const fs::path& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  const auto is_blank = [](unsigned char c) { return c <= ' ' || c == 127; };
  line.erase(std::remove_if(line.begin(), line.end(), is_blank), line.end());
  return line;
}

// The nearest folder above the device that knows a name decides: further up there are hubs and
// controllers, which have serial numbers of their own.
std::string SerialNumber(const fs::path& sysfs, fs::path folder) {
  constexpr const char* kNames[] = {"serial", "wwid",    "device/serial", "device/wwid",
                                    "cid",    "dm/uuid", "md/uuid",       "loop/backing_file"};
  for (; folder != sysfs && folder.has_relative_path(); folder = folder.parent_path()) {
    for (const char* const name : kNames) {
      const std::string found = FirstLine(folder / name);
      if (!found.empty()) return found;
    }
  }
  return {};
}

std::string PartitionUuid(const std::string& sysfs, const std::string& device) {
  const std::string disk = DeviceNodeOf(sysfs, WholeDiskOf(sysfs, device));
  if (disk.empty()) return {};
  const std::unique_ptr<std::remove_pointer_t<blkid_probe>, FreeProbe> probe(
      blkid_new_probe_from_filename(disk.c_str()));
  if (!probe) return {};
  blkid_partlist partitions = blkid_probe_get_partitions(probe.get());
  if (partitions == nullptr) return {};
  unsigned numbers[2] = {0, 0};
  const char* const end = device.data() + device.size();
  const auto major_end = std::from_chars(device.data(), end, numbers[0]).ptr;
  if (major_end == end) return {};
  std::from_chars(major_end + 1, end, numbers[1]);
  blkid_partition partition =
      blkid_partlist_devno_to_partition(partitions, makedev(numbers[0], numbers[1]));
  const char* const uuid = partition != nullptr ? blkid_partition_get_uuid(partition) : nullptr;
  return uuid != nullptr ? uuid : "";
}

}  // namespace

std::string DeviceIdentity(const std::string& sysfs, const std::string& device) {
  std::error_code error;
  const fs::path root = fs::canonical(sysfs, error);
  const fs::path folder = fs::canonical(root / "dev" / "block" / device, error);
  if (error) return {};
  std::string identity = SerialNumber(root, folder);
  if (!fs::exists(folder / "partition", error)) return identity;
  const std::string uuid = PartitionUuid(sysfs, device);
  if (!uuid.empty()) identity += " partition " + uuid;
  return identity;
}

std::string DevicePlace(const std::string& sysfs, const std::string& device) {
  std::error_code error;
  fs::path folder = fs::canonical(fs::path(sysfs) / "dev" / "block" / device, error);
  if (!error && fs::exists(folder / "partition", error)) folder = folder.parent_path();
  const std::string number = error ? std::string() : FirstLine(folder / "diskseq");
  const std::string boot = FirstLine("/proc/sys/kernel/random/boot_id");
  if (number.empty() || boot.empty()) return {};
  return "disk " + number + " of boot " + boot;
}

}  // namespace vornalux
