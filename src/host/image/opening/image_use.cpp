// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/opening/image_use.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "host/image/drive/sysfs.h"
#include "host/image/drive/whole_disk.h"
#include "host/image/opening/foreign_content.h"
#include "host/image/opening/mounts.h"
#include "text/shell_text.h"

namespace vornalux {
namespace {

namespace fs = std::filesystem;

bool SameThing(const struct stat& ours, const std::string& path) {
  struct stat theirs {};
  if (path.empty() || path.front() != '/' || ::stat(path.c_str(), &theirs) != 0) return false;
  if (S_ISBLK(ours.st_mode)) return S_ISBLK(theirs.st_mode) && ours.st_rdev == theirs.st_rdev;
  return ours.st_dev == theirs.st_dev && ours.st_ino == theirs.st_ino;
}

// The disk that a partition is of; empty for what is no partition.
std::string DiskOf(const std::string& device, const UseSources& sources) {
  std::error_code error;
  const auto folder = BlockFolder(sources.sys, device);
  if (folder.empty() || !fs::exists(folder / "partition", error)) return {};
  return FirstLine(folder.parent_path() / "dev");
}

std::string Unmount(const Mount& mount, const UseSources& sources) {
  const std::string node = DeviceNodeOf(sources.sys, mount.device);
  if (node.empty()) return "umount " + ShellQuoted(mount.point);
  return "udisksctl unmount -b " + ShellQuoted(node);
}

std::optional<Use> FindMount(const struct stat& ours, const UseSources& sources) {
  const bool is_device = S_ISBLK(ours.st_mode);
  const std::string our_number = is_device ? NumbersOf(ours.st_rdev) : std::string();
  const std::string our_disk = is_device ? DiskOf(our_number, sources) : std::string();
  for (const Mount& mount : ReadMounts(sources.mounts)) {
    const auto use = [&](const std::string& what, const std::string& more = "") {
      return Use{.what = what + mount.point + more, .lines = {Unmount(mount, sources)}};
    };
    if (SameThing(ours, mount.source) || (is_device && mount.device == our_number)) {
      Use itself = use("is mounted on ");
      itself.mount_point = mount.point;
      return itself;
    }
    if (!is_device) continue;
    if (mount.device == our_disk) return use("is part of a disk that is mounted on ");
    if (DiskOf(mount.device, sources) == our_number) {
      return use("has a partition that is mounted on ",
                 " (name the partition's own device instead)");
    }
  }
  return std::nullopt;
}

std::optional<Use> FindSwap(const struct stat& ours, const UseSources& sources) {
  for (const Mount& swap : ReadSwaps(sources.swaps)) {
    if (!SameThing(ours, swap.source)) continue;
    return Use{.what = "is in use as swap space", .lines = {"swapoff " + ShellQuoted(swap.source)}};
  }
  return std::nullopt;
}

std::optional<Use> FindLoopDevice(const struct stat& ours, const UseSources& sources) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(sources.sys + "/block", error)) {
    const std::string name = entry.path().filename();
    if (!name.starts_with("loop")) continue;
    if (!SameThing(ours, FirstLine(entry.path() / "loop/backing_file"))) continue;
    const std::string node = "/dev/" + name;
    Use use{.what = "is attached to " + node, .lines = {"losetup -d " + node}};
    const std::string device = FirstLine(entry.path() / "dev");
    for (const Mount& mount : ReadMounts(sources.mounts)) {
      if (mount.device != device && DiskOf(mount.device, sources) != device) continue;
      use.what += ", which is mounted on " + mount.point;
      // Such a device is detached with the last mount.
      if (FirstLine(entry.path() / "loop/autoclear") == "1") use.lines.clear();
      use.lines.insert(use.lines.begin(), Unmount(mount, sources));
      if (mount.device == device) use.mount_point = mount.point;
      break;
    }
    return use;
  }
  return std::nullopt;
}

}  // namespace

std::optional<Use> FindUse(int descriptor, const UseSources& sources) {
  struct stat ours {};
  if (::fstat(descriptor, &ours) != 0) return std::nullopt;
  if (auto mounted = FindMount(ours, sources)) return mounted;
  if (auto swap = FindSwap(ours, sources)) return swap;
  return FindLoopDevice(ours, sources);
}

std::vector<std::string> FindHolders(int descriptor, const std::string& sys) {
  std::vector<std::string> nodes;
  struct stat ours {};
  if (::fstat(descriptor, &ours) != 0 || !S_ISBLK(ours.st_mode)) return nodes;
  const fs::path folder = BlockFolder(sys, NumbersOf(ours.st_rdev));
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(folder / "holders", error)) {
    nodes.push_back(FriendlyNodeOf(sys, FirstLine(entry.path() / "dev")));
  }
  std::erase(nodes, "");
  std::sort(nodes.begin(), nodes.end());
  return nodes;
}

}  // namespace vornalux
