// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/opening/volume_list.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <map>
#include <memory>
#include <string_view>
#include <system_error>
#include <tuple>

#include "host/image/device/window_device.h"
#include "host/image/drive/rotation.h"
#include "host/image/drive/sysfs.h"
#include "host/image/drive/whole_disk.h"
#include "host/image/fat/fat_free.h"
#include "host/image/ntfs/ntfs_free.h"
#include "host/image/opening/boot_sector.h"
#include "host/image/opening/file_device.h"
#include "host/image/opening/foreign_content.h"
#include "host/image/opening/image_use.h"
#include "host/image/opening/mounts.h"
#include "host/image/opening/partition_table.h"
#include "host/image/opening/signatures.h"
#include "host/image/volume/refused.h"

namespace vornalux {
namespace {

namespace fs = std::filesystem;

constexpr const char* kOtherProgram = "by another program";
constexpr std::uint64_t kSysfsUnit = 512;  // bytes, whatever the disk's sectors

// What is mounted where, and what is swap, by device number.
struct InUse {
  std::map<std::string, std::vector<Mount>> mounts;
  std::vector<std::string> swaps;
};

InUse ReadUse(const ListSources& sources) {
  InUse use;
  for (Mount& mount : ReadMounts(sources.mounts)) {
    // Some file systems have a number of their own instead of the device's.
    struct stat status {};
    const bool node = mount.source.starts_with('/') && ::stat(mount.source.c_str(), &status) == 0 &&
                      S_ISBLK(status.st_mode);
    const std::string device = node ? NumbersOf(status.st_rdev) : mount.device;
    use.mounts[device].push_back(std::move(mount));
  }
  for (const Mount& swap : ReadSwaps(sources.swaps)) use.swaps.push_back(swap.source);
  return use;
}

std::error_code OpenToRead(const std::string& path, std::shared_ptr<FileDevice>& out) {
  std::unique_ptr<FileDevice> device;
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return {errno, std::generic_category()};
  if (!S_ISREG(status.st_mode) && !S_ISBLK(status.st_mode)) {
    return std::make_error_code(std::errc::no_such_device);
  }
  // A drive without a medium, or one that is busy with it, is not waited for.
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) return {errno, std::generic_category()};
  const std::error_code error = FileDevice::Adopt(descriptor, false, device);
  out = std::move(device);
  return error;
}

// Runs of this program, and other careful ones, lock what they work on or look at.
bool IsLocked(const FileDevice& file) {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return ::fcntl(file.Descriptor(), F_OFD_GETLK, &lock) == 0 && lock.l_type != F_UNLCK;
}

// Free bytes of what is mounted there, as the system counts them.
std::optional<std::uint64_t> FreeBytesAt(const std::string& point) {
  struct statvfs status {};
  if (::statvfs(point.c_str(), &status) != 0) return std::nullopt;
  return std::uint64_t{status.f_bfree} * status.f_frsize;
}

// The kernel's name for a file system as users know it.
std::string NameOfType(const std::string& type) {
  if (type == "vfat" || type == "msdos") return "FAT";
  return type == "ntfs" || type == "ntfs3" ? "NTFS" : type;
}

// Fills in what lies in [offset, offset + size) of the device.
void Look(const std::shared_ptr<FileDevice>& device, std::uint64_t offset, ListedVolume& volume) {
  const std::uint64_t end = device->Size();
  const std::uint64_t room = offset < end ? std::min(volume.size, end - offset) : 0;
  std::array<std::uint8_t, 512> sector{};
  if (room < sector.size()) return;
  if (const std::error_code error = device->Read(offset, sector)) {
    volume.unreadable = error.message();
    return;
  }
  const BootSector boot = IdentifyBootSector(sector);
  volume.workable = boot.kind == BootKind::Fat || boot.kind == BootKind::Ntfs;
  volume.file_system = boot.name;
  for (const Signature& found : FindSignatures(device->Descriptor(), offset, room)) {
    const bool same = found.type == (boot.kind == BootKind::Fat ? "vfat" : "ntfs");
    if (found.usage == "raid" && found.end > boot.volume_size + boot.backup_size) {
      volume.workable = false;
    } else if (volume.workable && !same) {
      continue;  // left from before
    }
    volume.label = found.label;
    volume.uuid = found.uuid;
    if (!volume.workable) volume.file_system = found.type;
    if (volume.workable && !found.version.empty() && boot.kind == BootKind::Fat) {
      volume.file_system = found.version;
    }
    break;
  }
  if (!volume.workable || boot.volume_size > room) return;
  WindowDevice window(device, offset, boot.volume_size);
  volume.free = boot.kind == BootKind::Fat ? FreeBytesOfFat(window) : FreeBytesOfNtfs(window);
}

std::uint64_t SizeInSysfs(const fs::path& folder) {
  const std::string text = FirstLine(folder / "size");
  std::uint64_t sectors = 0;
  std::from_chars(text.data(), text.data() + text.size(), sectors);
  return sectors * kSysfsUnit;
}

// "sdb10" behind "sdb9".
std::tuple<std::string, std::uint64_t> SortKey(const fs::path& folder) {
  const std::string name = folder.filename();
  const std::size_t digits = name.find_last_not_of("0123456789") + 1;
  std::uint64_t number = 0;
  std::from_chars(name.data() + digits, name.data() + name.size(), number);
  return {name.substr(0, digits), number};
}

std::vector<fs::path> Folders(const fs::path& folder) {
  std::vector<fs::path> found;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    found.push_back(entry->path());
  }
  std::ranges::sort(found, {}, SortKey);
  return found;
}

class Lister {
 public:
  explicit Lister(const ListSources& sources) : sources_(sources), use_(ReadUse(sources)) {}

  // A block device by its number; what is found in its partition table where the system has made
  // no partitions of it.
  std::vector<ListedVolume> Device(const std::string& device) const {
    ListedVolume volume;
    const fs::path folder = BlockFolder(sources_.sys, device);
    const std::string node = Node(DeviceNodeOf(sources_.sys, device));
    volume.path = Node(FriendlyNodeOf(sources_.sys, device));
    if (!fs::exists(volume.path)) volume.path = node;
    volume.size = SizeInSysfs(folder);
    volume.rotational = IsRotational(sources_.sys, device);
    std::shared_ptr<FileDevice> file;
    if (const std::error_code error = OpenToRead(node, file)) {
      volume.unreadable = error.message();
    } else {
      Look(file, 0, volume);
    }
    AddUse(device, node, folder, volume);
    if (file && volume.in_use.empty() && IsLocked(*file)) volume.in_use = kOtherProgram;
    return file && volume.unreadable.empty() ? WithPartitions(file, volume)
                                             : std::vector{std::move(volume)};
  }

  std::vector<ListedVolume> Image(const std::shared_ptr<FileDevice>& file, const std::string& path,
                                  const std::string& device) const {
    ListedVolume volume;
    volume.path = path;
    volume.size = file->Size();
    volume.rotational = IsRotational(sources_.sys, device);
    Look(file, 0, volume);
    if (const auto use =
            FindUse(file->Descriptor(), {sources_.mounts, sources_.swaps, sources_.sys})) {
      constexpr std::string_view kIs = "is ";
      volume.in_use = use->what.substr(use->what.starts_with(kIs) ? kIs.size() : 0);
    } else if (IsLocked(*file)) {
      volume.in_use = kOtherProgram;
    }
    return WithPartitions(file, volume);
  }

 private:
  std::string Node(const std::string& path) const {
    return path.starts_with("/dev/") ? sources_.dev + path.substr(4) : path;
  }

  void AddUse(const std::string& device, const std::string& node, const fs::path& folder,
              ListedVolume& volume) const {
    if (const auto found = use_.mounts.find(device); found != use_.mounts.end()) {
      for (const Mount& mount : found->second) volume.mounted.push_back(mount.point);
      // The system knows better than what is on the disk so far.
      if (const auto free = FreeBytesAt(volume.mounted.front())) volume.free = free;
      if (volume.file_system.empty()) {
        volume.file_system = NameOfType(found->second.front().type);
        volume.workable = volume.file_system == "FAT" || volume.file_system == "NTFS";
      }
    }
    if (std::ranges::count(use_.swaps, node) > 0) volume.in_use = "swap";
    for (const fs::path& holder : Folders(folder / "holders")) {
      volume.in_use += (volume.in_use.empty() ? "" : ", ") +
                       Node(FriendlyNodeOf(sources_.sys, FirstLine(holder / "dev")));
    }
  }

  // The partitions of what is no volume itself, where it has any.
  static std::vector<ListedVolume> WithPartitions(const std::shared_ptr<FileDevice>& file,
                                                  ListedVolume& whole) {
    std::vector<ListedVolume> all;
    try {
      if (!whole.workable) {
        for (const Partition& partition : ReadPartitions(*file)) {
          ListedVolume volume;
          volume.path = whole.path;
          volume.partition = partition.number;
          volume.offset = partition.offset;
          volume.size = partition.length;
          volume.rotational = whole.rotational;
          volume.in_use = whole.in_use;
          Look(file, partition.offset, volume);
          all.push_back(std::move(volume));
        }
      }
    } catch (const VolumeRefused& refused) {
      whole.unreadable = refused.what();
    }
    if (all.empty()) all.push_back(std::move(whole));
    return all;
  }

  const ListSources& sources_;
  InUse use_;
};

// Of a disk with partitions these alone.
std::vector<ListedVolume> DiskWithParts(const Lister& lister, const fs::path& disk) {
  std::vector<ListedVolume> all;
  std::error_code error;
  for (const fs::path& part : Folders(disk)) {
    if (!fs::exists(part / "partition", error)) continue;
    std::ranges::move(lister.Device(FirstLine(part / "dev")), std::back_inserter(all));
  }
  return all.empty() ? lister.Device(FirstLine(disk / "dev")) : all;
}

}  // namespace

std::vector<ListedVolume> ListVolumes(const ListSources& sources) {
  const Lister lister(sources);
  std::vector<ListedVolume> all;
  for (const fs::path& disk : Folders(sources.sys + "/block")) {
    const std::string name = disk.filename();
    if (name.starts_with("ram") || name.starts_with("zram") || SizeInSysfs(disk) == 0) continue;
    std::vector<ListedVolume> found = DiskWithParts(lister, disk);
    // For who may read all, a drive that cannot be read is one without a medium.
    const bool empty = found.size() == 1 && !found[0].unreadable.empty();
    if (FirstLine(disk / "removable") == "1" && empty && ::geteuid() == 0) continue;
    std::ranges::move(found, std::back_inserter(all));
  }
  return all;
}

std::vector<ListedVolume> ListImage(const std::string& path, const ListSources& sources) {
  std::shared_ptr<FileDevice> file;
  if (const std::error_code error = OpenToRead(path, file)) {
    const bool other = error == std::errc::no_such_device;
    const bool folder = other && fs::is_directory(path);
    throw VolumeRefused(path + (folder  ? " is a folder; name an image file or a block device"
                                : other ? " is neither a file nor a block device"
                                        : " cannot be opened: " + error.message()));
  }
  // In full: a line must not take the path for an option, or for a protocol of QEMU's.
  if (const auto container = FindContainer(*file, fs::absolute(path))) {
    throw VolumeRefused(path + " is " + container->name + ", which is not supported" +
                        Remedy(container->advice, container->lines));
  }
  struct stat status {};
  if (::fstat(file->Descriptor(), &status) != 0) {
    throw VolumeRefused(path + " cannot be looked at: " + std::generic_category().message(errno));
  }
  const Lister lister(sources);
  const std::string device = DeviceOf(status);
  return file->IsBlockDevice() ? DiskWithParts(lister, BlockFolder(sources.sys, device))
                               : lister.Image(file, path, device);
}

}  // namespace vornalux
