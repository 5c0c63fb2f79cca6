// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/drive/device_identity.h"

#include <algorithm>
#include <charconv>
#include <filesystem>

#include "host/image/drive/blkid_probe.h"
#include "host/image/drive/sysfs.h"
#include "host/image/drive/whole_disk.h"

namespace vornalux {
namespace {

namespace fs = std::filesystem;

std::string WithoutBlanks(std::string line) {
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
      const std::string found = WithoutBlanks(FirstLine(folder / name));
      if (!found.empty()) return found;
    }
  }
  return {};
}

std::string PartitionUuid(const std::string& sysfs, const DiskPlace& place) {
  const std::string disk = DeviceNodeOf(sysfs, place.disk);
  if (disk.empty()) return {};
  const BlkidProbe probe(blkid_new_probe_from_filename(disk.c_str()));
  blkid_partlist partitions = probe ? blkid_probe_get_partitions(probe.get()) : nullptr;
  if (partitions == nullptr) return {};
  for (int i = 0; i < blkid_partlist_numof_partitions(partitions); ++i) {
    blkid_partition partition = blkid_partlist_get_partition(partitions, i);
    const auto start = static_cast<std::uint64_t>(blkid_partition_get_start(partition));
    if (start * kBlkidSector != place.offset) continue;
    const char* const uuid = blkid_partition_get_uuid(partition);
    return uuid != nullptr ? uuid : "";
  }
  return {};
}

}  // namespace

DiskPlace OnWholeDisk(const std::string& sysfs, const std::string& device, std::uint64_t offset) {
  constexpr std::uint64_t kUnit = 512;
  std::error_code error;
  const fs::path folder = BlockFolder(sysfs, device);
  if (folder.empty() || !fs::exists(folder / "partition", error)) return {device, offset};
  std::uint64_t start = 0;
  const std::string text = FirstLine(folder / "start");
  std::from_chars(text.data(), text.data() + text.size(), start);
  return {FirstLine(folder.parent_path() / "dev"), offset + start * kUnit};
}

std::string DeviceIdentity(const std::string& sysfs, const DiskPlace& place) {
  const fs::path folder = BlockFolder(sysfs, place.disk);
  std::error_code error;
  if (folder.empty()) return {};
  const std::string serial = SerialNumber(fs::canonical(sysfs, error), folder);
  const std::string uuid = PartitionUuid(sysfs, place);
  return uuid.empty() ? serial : serial + " partition " + uuid;
}

std::string AttachedAs(const std::string& sysfs, const DiskPlace& place) {
  const std::string number = FirstLine(BlockFolder(sysfs, place.disk) / "diskseq");
  const std::string boot = FirstLine("/proc/sys/kernel/random/boot_id");
  if (number.empty() || boot.empty()) return {};
  return "disk " + number + " of boot " + boot;
}

}  // namespace vornalux
