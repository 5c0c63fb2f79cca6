// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/opening/image_use.h"

#include <sys/stat.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "host/image/drive/sysfs.h"

namespace vornalux {
namespace {

struct Mount {
  std::string device;  // "major:minor"
  std::string source;
  std::string point;
};

// The kernel writes blanks and the like as three octal digits.
std::string Unescape(const std::string& text) {
  const auto octal = [&](std::size_t at) { return text[at] >= '0' && text[at] <= '7'; };
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size() && octal(i + 1) && octal(i + 2) && octal(i + 3)) {
      const int value = (text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0');
      out += static_cast<char>(value);
      i += 3;
    } else {
      out += text[i];
    }
  }
  return out;
}

std::vector<Mount> ReadMounts(const std::string& path) {
  std::vector<Mount> mounts;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    const std::size_t separator = line.find(" - ");
    if (separator == std::string::npos) continue;
    std::istringstream left(line.substr(0, separator));
    std::istringstream right(line.substr(separator + 3));
    std::string skipped;
    Mount mount;
    left >> skipped >> skipped >> mount.device >> skipped >> mount.point;
    right >> skipped >> mount.source;
    mount.source = Unescape(mount.source);
    mount.point = Unescape(mount.point);
    mounts.push_back(std::move(mount));
  }
  return mounts;
}

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
  if (folder.empty() || !std::filesystem::exists(folder / "partition", error)) return {};
  return FirstLine(folder.parent_path() / "dev");
}

std::optional<std::string> FindMount(const struct stat& ours, const UseSources& sources) {
  const bool is_device = S_ISBLK(ours.st_mode);
  const std::string our_number = is_device ? NumbersOf(ours.st_rdev) : std::string();
  const std::string our_disk = is_device ? DiskOf(our_number, sources) : std::string();
  for (const Mount& mount : ReadMounts(sources.mounts)) {
    if (SameThing(ours, mount.source)) return "is mounted at " + mount.point;
    if (!is_device) continue;
    if (mount.device == our_number) return "is mounted at " + mount.point;
    if (mount.device == our_disk) return "is part of a disk that is mounted at " + mount.point;
    if (DiskOf(mount.device, sources) == our_number) {
      return "has a partition that is mounted at " + mount.point +
             " (name the partition's own device instead)";
    }
  }
  return std::nullopt;
}

std::string AttachedTo(const std::string& device) {
  return "is attached to " + device + " (losetup -d " + device + " detaches it)";
}

std::optional<std::string> FindLoopDevice(const struct stat& ours, const UseSources& sources) {
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(sources.sys + "/block", error)) {
    const std::string name = entry.path().filename();
    if (!name.starts_with("loop")) continue;
    if (SameThing(ours, FirstLine(entry.path() / "loop/backing_file"))) {
      return AttachedTo("/dev/" + name);
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> FindUse(int descriptor, const UseSources& sources) {
  struct stat ours {};
  if (::fstat(descriptor, &ours) != 0) return std::nullopt;
  if (auto mounted = FindMount(ours, sources)) return mounted;
  return FindLoopDevice(ours, sources);
}

}  // namespace vornalux
