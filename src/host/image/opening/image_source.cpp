// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/opening/image_source.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string_view>

#include "host/image/device/window_device.h"
#include "host/image/drive/block_drive.h"
#include "host/image/drive/device_identity.h"
#include "host/image/drive/hwmon_drive.h"
#include "host/image/drive/linux_drive_node.h"
#include "host/image/drive/rotation.h"
#include "host/image/drive/sysfs.h"
#include "host/image/drive/whole_disk.h"
#include "host/image/journal/journal_format.h"
#include "host/image/journal/scratch_journal.h"
#include "host/image/opening/foreign_content.h"
#include "host/image/opening/image_use.h"
#include "host/image/opening/journal_file.h"
#include "host/image/opening/partition_table.h"
#include "host/image/opening/signatures.h"
#include "host/image/opening/state_folder.h"

namespace vornalux {
namespace {

namespace fs = std::filesystem;

constexpr const char* kJournalSuffix = ".vornalux-journal";

std::string Text(int code) { return std::generic_category().message(code); }

[[noreturn]] void Refuse(const std::string& path, const std::string& why) {
  throw VolumeRefused(path + " " + why);
}

[[noreturn]] void RefuseForeign(const std::string& path, const ForeignContent& found,
                                const std::string& where) {
  const bool container = found.type.empty();
  Refuse(path, (container ? "is " : "holds ") + found.name + where + ", which is not supported" +
                   Remedy(found.advice, found.lines));
}

[[noreturn]] void RefuseUsed(const std::string& path, FileDevice& device, const Use& use) {
  std::array<std::uint8_t, 512> sector{};
  const bool read = device.Size() >= sector.size() && !device.Read(0, sector);
  // Of FAT and NTFS what is left from before is no matter.
  if (!use.mount_point.empty() && read && IdentifyBootSector(sector).kind == BootKind::None) {
    const auto found =
        FindForeign(device, 0, device.Size(), {.path = path, .mount_point = use.mount_point});
    if (found) RefuseForeign(path, *found, ", mounted on " + use.mount_point);
  }
  std::string lines;
  for (const std::string& line : use.lines) lines += "\n  " + line;
  Refuse(path, use.what + (lines.empty() ? "" : ":") + lines);
}

void RefuseWriteProtected(const std::string& path, const FileDevice& device) {
  int read_only = 0;
  if (!device.IsBlockDevice()) return;
  if (::ioctl(device.Descriptor(), BLKROGET, &read_only) != 0 || read_only == 0) return;
  Refuse(path, "is write-protected");
}

// The device as far as it can be looked at, to say why it cannot be written to.
std::unique_ptr<FileDevice> OpenToLook(const std::string& path) {
  std::unique_ptr<FileDevice> device;
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor >= 0 && FileDevice::Adopt(descriptor, false, device)) device.reset();
  return device;
}

[[noreturn]] void RefuseBusy(const std::string& path) {
  const std::unique_ptr<FileDevice> device = OpenToLook(path);
  const auto use = device ? FindUse(device->Descriptor()) : std::nullopt;
  if (use) RefuseUsed(path, *device, *use);
  std::string holders;
  if (device) {
    for (const std::string& node : FindHolders(device->Descriptor())) holders += "\n  " + node;
  }
  if (!holders.empty()) Refuse(path, "is in use as a part of what can be named instead:" + holders);
  Refuse(path, "is in use: mounted, or part of a RAID or a logical volume");
}

int OpenFile(const std::string& path, bool writable) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) Refuse(path, "cannot be opened: " + Text(errno));
  if (S_ISDIR(status.st_mode)) {
    Refuse(path, "is a folder; name an image file or a block device");
  }
  if (!S_ISREG(status.st_mode) && !S_ISBLK(status.st_mode)) {
    Refuse(path, "is neither a file nor a block device");
  }
  int flags = O_CLOEXEC | (writable ? O_RDWR : O_RDONLY);
  // The kernel's own claim on a device that is mounted or part of a larger one.
  if (writable && S_ISBLK(status.st_mode)) flags |= O_EXCL;
  const int descriptor = ::open(path.c_str(), flags);
  if (descriptor >= 0) return descriptor;
  const int error = errno;
  if (error == EBUSY) RefuseBusy(path);
  if (writable && S_ISBLK(status.st_mode)) {
    if (const auto device = OpenToLook(path)) RefuseWriteProtected(path, *device);
  }
  Refuse(path, (writable ? "cannot be opened for writing: " : "cannot be opened: ") + Text(error));
}

// Of the open file, not of the process: it lasts as long as the descriptor, and the classic record
// locks of other programs collide with it.
void Lock(const std::string& path, int descriptor, bool writable) {
  struct flock lock {};
  lock.l_type = writable ? F_WRLCK : F_RDLCK;
  lock.l_whence = SEEK_SET;
  if (::fcntl(descriptor, F_OFD_SETLK, &lock) == 0) return;
  if (errno == EAGAIN || errno == EACCES) {
    Refuse(path, "is in use by another program or another run of this one");
  }
  // Some network file systems lock nothing; looking needs no lock.
  if (writable) Refuse(path, "cannot be locked: " + Text(errno));
}

std::shared_ptr<FileDevice> OpenLocked(const std::string& path, bool writable) {
  std::unique_ptr<FileDevice> device;
  const std::error_code error = FileDevice::Adopt(OpenFile(path, writable), false, device);
  if (error) Refuse(path, "cannot be opened: " + error.message());
  Lock(path, device->Descriptor(), writable);
  if (const auto use = FindUse(device->Descriptor())) RefuseUsed(path, *device, *use);
  if (writable) RefuseWriteProtected(path, *device);
  return device;
}

BootSector ReadBoot(const ImageSource& source, std::uint64_t offset) {
  std::array<std::uint8_t, 512> sector;
  const std::uint64_t size = source.file->Size();
  if (offset > size || size - offset < sector.size()) return {};
  if (const std::error_code error = source.file->Read(offset, sector)) {
    Refuse(source.path,
           "cannot be read at byte " + std::to_string(offset) + ": " + error.message());
  }
  return IdentifyBootSector(sector);
}

bool IsVolume(const BootSector& boot) {
  return boot.kind == BootKind::Fat || boot.kind == BootKind::Ntfs;
}

// As sysfs has it, "8:1"; empty for a file.
std::string DeviceNumber(const FileDevice& file) {
  struct stat status {};
  if (!file.IsBlockDevice() || ::fstat(file.Descriptor(), &status) != 0) return {};
  return NumbersOf(status.st_rdev);
}

struct Place {
  std::uint64_t offset = 0;
  std::uint64_t room = 0;  // bytes up to the end of the partition or the device
};

std::vector<Partition> Partitions(const ImageSource& source) try {
  return ReadPartitions(*source.file);
} catch (const VolumeRefused& refused) {
  Refuse(source.path, std::string("has a partition table that cannot be used. ") + refused.what());
}

// As it is best named in a command line: a partition of a device by its own node.
ForeignPlace Named(const ImageSource& source, std::uint64_t offset) {
  const std::string node = NodeOfPartition(kSysfs, DeviceNumber(*source.file), offset);
  if (node.empty()) return {.path = source.path, .offset = offset};
  return {.path = node};
}

std::optional<ForeignContent> Foreign(const ImageSource& source, const Place& place) {
  const std::uint64_t size = source.file->Size();
  if (place.offset >= size) return std::nullopt;
  const std::uint64_t room = std::min(place.room, size - place.offset);
  return FindForeign(*source.file, place.offset, room, Named(source, place.offset));
}

std::string List(const ImageSource& source, const std::vector<Partition>& partitions) {
  std::string list;
  for (const Partition& partition : partitions) {
    std::string name = ReadBoot(source, partition.offset).name;
    if (name.empty()) {
      const auto found = Foreign(source, {partition.offset, partition.length});
      name = found ? found->name : "unknown";
    }
    list += "\n  " + std::to_string(partition.number) + "  " + name + ", " +
            std::to_string(partition.length >> 20) + " MiB at byte " +
            std::to_string(partition.offset);
  }
  return list;
}

Place NumberedPartition(const ImageSource& source, int number) {
  const std::vector<Partition> partitions = Partitions(source);
  if (partitions.empty()) Refuse(source.path, "has no partition table");
  for (const Partition& partition : partitions) {
    if (partition.number == number) return {partition.offset, partition.length};
  }
  Refuse(source.path,
         "has no partition " + std::to_string(number) + ", only:" + List(source, partitions));
}

// The whole image when a volume starts it, else its only partition with a volume in it.
Place OnlyVolume(const ImageSource& source) {
  const Place whole{0, source.file->Size()};
  if (ReadBoot(source, 0).kind != BootKind::None) return whole;
  if (FindContainer(*source.file, source.path)) return whole;
  const std::vector<Partition> partitions = Partitions(source);
  if (partitions.empty()) return whole;
  std::vector<Partition> volumes;
  std::copy_if(
      partitions.begin(), partitions.end(), std::back_inserter(volumes),
      [&](const Partition& partition) { return IsVolume(ReadBoot(source, partition.offset)); });
  if (volumes.empty()) {
    Refuse(source.path,
           "is a disk without FAT or NTFS volume. Its partitions:" + List(source, partitions));
  }
  if (volumes.size() > 1) {
    Refuse(source.path, "has several volumes; name one by --partition:" + List(source, volumes));
  }
  return {volumes.front().offset, volumes.front().length};
}

Place FindPlace(const ImageSource& source, const OpenOptions& options) {
  if (options.offset && options.partition) {
    Refuse(source.path, "can be opened at an offset or in a partition, not both at once");
  }
  if (options.partition) return NumberedPartition(source, *options.partition);
  if (!options.offset) return OnlyVolume(source);
  const std::uint64_t size = source.file->Size();
  if (*options.offset >= size) {
    Refuse(source.path, "has only " + std::to_string(size) + " bytes; offset " +
                            std::to_string(*options.offset) + " lies past its end");
  }
  return {*options.offset, size - *options.offset};
}

[[noreturn]] void RefuseContent(const ImageSource& source, const Place& place,
                                const std::string& where) {
  if (place.offset == 0) {
    if (const auto found = FindContainer(*source.file, source.path)) {
      RefuseForeign(source.path, *found, where);
    }
  }
  if (const auto found = Foreign(source, place)) RefuseForeign(source.path, *found, where);
  Refuse(source.path, "holds no FAT or NTFS volume" + where);
}

// A mirror's half passes for the volume on it, and would not be its other half's any more. The mark
// of a RAID lies behind what it holds; one inside the volume is left from before it.
void RefuseRaidMember(const ImageSource& source, const Place& place) {
  for (const Signature& found :
       FindSignatures(source.file->Descriptor(), place.offset, place.room)) {
    if (found.usage == "raid" && found.end > source.length) RefuseContent(source, place, "");
  }
}

// The window onto the volume is as large as the volume says, not as the room that it has.
void Fit(ImageSource& source, Place place) {
  const std::uint64_t size = source.file->Size();
  place.room = place.offset < size ? std::min(place.room, size - place.offset) : 0;
  source.offset = place.offset;
  source.boot = ReadBoot(source, place.offset);
  const std::string where = place.offset == 0 ? "" : " at byte " + std::to_string(place.offset);
  if (source.boot.kind == BootKind::DamagedNtfs) {
    Refuse(source.path, "holds an NTFS volume with a damaged boot sector" + where);
  }
  if (source.boot.kind == BootKind::None) RefuseContent(source, place, where);
  if (source.boot.volume_size > place.room) {
    Refuse(source.path, "is truncated: the " + source.boot.name + " volume" + where + " has " +
                            std::to_string(source.boot.volume_size) + " bytes, of which only " +
                            std::to_string(place.room) + " are there");
  }
  source.length = source.boot.volume_size;
  if (place.room - source.length >= source.boot.backup_size) {
    source.length += source.boot.backup_size;
  }
  RefuseRaidMember(source, place);
}

// What is free space of this volume could be full of another partition's files.
void RefuseOverlap(const ImageSource& source) {
  for (const Partition& other : Partitions(source)) {
    if (other.offset == source.offset || other.offset >= source.offset + source.length ||
        other.offset + other.length <= source.offset) {
      continue;
    }
    Refuse(source.path, "cannot be worked on: the volume at byte " + std::to_string(source.offset) +
                            " and partition " + std::to_string(other.number) +
                            " lie on the same sectors; mend the partition table");
  }
}

// The number of a file is used again once it has gone; its time of birth is not.
std::string FilePlace(int descriptor) {
  struct statx status {};
  if (::statx(descriptor, "", AT_EMPTY_PATH, STATX_INO | STATX_BTIME, &status) != 0) return {};
  if ((status.stx_mask & STATX_BTIME) == 0) return {};
  return "file " + std::to_string(status.stx_ino) + " born " +
         std::to_string(status.stx_btime.tv_sec) + "." + std::to_string(status.stx_btime.tv_nsec);
}

VolumeIdentity Identity(const ImageSource& source) {
  VolumeIdentity identity;
  source.boot.name.copy(identity.file_system.data(), identity.file_system.size());
  identity.serial = source.boot.serial;
  identity.volume_size = source.length;
  identity.volume_offset = source.offset;
  if (source.file->IsBlockDevice()) {
    const DiskPlace place = OnWholeDisk(kSysfs, DeviceNumber(*source.file), source.offset);
    identity.volume_offset = place.offset;
    identity.device = DeviceIdentity(kSysfs, place).substr(0, journal_format::kLongestDevice);
    identity.place = AttachedAs(kSysfs, place);
  } else {
    identity.place = FilePlace(source.file->Descriptor());
  }
  return identity;
}

// FNV-1a: short enough for a file name, and the same for ever.
std::uint64_t Hash(std::string_view text) {
  std::uint64_t hash = 0xCBF29CE484222325;
  for (const char c : text) hash = (hash ^ static_cast<std::uint8_t>(c)) * 0x100000001B3;
  return hash;
}

std::string Hex(std::uint64_t number) {
  std::array<char, 17> digits{};
  std::snprintf(digits.data(), digits.size(), "%016llx", static_cast<unsigned long long>(number));
  return digits.data();
}

// A block device's journal is found by what the device is, whatever its node is called today.
std::string JournalPath(const ImageSource& source) {
  const VolumeIdentity& identity = source.identity;
  std::string path = source.path;
  if (source.file->IsBlockDevice()) {
    path = StateFolder() + "/" + Hex(identity.serial);
    if (!identity.device.empty()) path += "-" + Hex(Hash(identity.device));
  }
  if (identity.volume_offset != 0) path += "+" + std::to_string(identity.volume_offset);
  return path + kJournalSuffix;
}

// A few sectors that formatting has left over are nothing; the footer of a virtual disk is
// something.
bool NothingBehind(const ImageSource& source) {
  constexpr std::uint64_t kFew = std::uint64_t{1} << 20;
  const std::uint64_t end = source.offset + source.length;
  const std::uint64_t left = source.file->Size() - end;
  if (left > kFew) return false;
  std::vector<std::uint8_t> rest(static_cast<std::size_t>(left));
  return !source.file->Read(end, rest) &&
         std::ranges::all_of(rest, [](std::uint8_t byte) { return byte == 0; });
}

// It stands for a file, whose own disk does not matter.
bool IsLoop(const std::string& sysfs, const std::string& disk) {
  std::error_code error;
  const fs::path folder = BlockFolder(sysfs, disk);
  return !folder.empty() && fs::exists(folder / "loop", error);
}

// What two records may take up, or the volume with all its sectors twice.
std::uint64_t JournalRoom(const ImageSource& source) {
  constexpr std::uint64_t kMost = journal_format::kBodiesOffset + journal_format::kRoom;
  constexpr std::uint64_t kFrame = std::uint64_t{128} << 10;
  return std::min(kMost, 2 * (source.length + source.length / 16) + kFrame);
}

}  // namespace

ImageSource LocateVolume(const std::string& path, const OpenOptions& options, bool writable) {
  ImageSource source;
  std::error_code error;
  const fs::path resolved = fs::canonical(path, error);
  source.path = error ? path : resolved.string();
  source.file = OpenLocked(source.path, writable);
  Fit(source, FindPlace(source, options));
  if (options.writable && !options.offset && source.offset != 0) RefuseOverlap(source);
  source.identity = Identity(source);
  source.journal_path = JournalPath(source);
  return source;
}

VolumePlace PlaceOf(const ImageSource& source, const std::string& sysfs) {
  VolumePlace place = {.device = source.file->IsBlockDevice(),
                       .partition = false,
                       .last = NothingBehind(source),
                       .offset = source.offset,
                       .length = source.length};
  if (place.device) {
    const std::string number = DeviceNumber(*source.file);
    const std::string disk = OnWholeDisk(sysfs, number, 0).disk;
    place.partition = disk != number;
    place.solid = !IsLoop(sysfs, disk) && IsRotational(sysfs, number) == false;
  }
  return place;
}

void RefuseChanged(const ImageSource& source) {
  struct stat ours {};
  struct stat there {};
  if (::fstat(source.file->Descriptor(), &ours) != 0 || ::stat(source.path.c_str(), &there) != 0 ||
      ours.st_dev != there.st_dev || ours.st_ino != there.st_ino) {
    Refuse(source.path, "is another file now than the one that was opened");
  }
  if (const auto use = FindUse(source.file->Descriptor())) {
    RefuseUsed(source.path, *source.file, *use);
  }
  const BootSector boot = ReadBoot(source, source.offset);
  const bool resized = !source.file->IsBlockDevice() &&
                       static_cast<std::uint64_t>(ours.st_size) != source.file->Size();
  if (resized || boot.kind != source.boot.kind || boot.serial != source.boot.serial ||
      boot.volume_size != source.boot.volume_size) {
    Refuse(source.path, "holds another volume now than the one that was opened");
  }
}

VolumeStore MakeStore(const ImageSource& source) {
  VolumeStore store;
  const std::shared_ptr<BlockDevice> disk =
      source.scratch ? std::shared_ptr<BlockDevice>(source.scratch) : source.file;
  store.device = std::make_unique<WindowDevice>(disk, source.offset, source.length);
  if (source.file->IsBlockDevice()) {
    // Keeps the device open for as long as somebody asks.
    auto drive = std::make_unique<BlockDrive>(std::make_unique<LinuxDriveNode>(
        source.file->Descriptor(), [file = source.file]() mutable { file.reset(); }));
    store.drive =
        std::make_unique<HwmonDrive>(kSysfs, DeviceNumber(*source.file), std::move(drive));
  }
  store.identity = source.identity;
  return store;
}

std::unique_ptr<JournalHome> MakeJournal(const ImageSource& source) {
  if (source.scratch) return std::make_unique<ScratchJournalHome>();
  if (source.file->IsBlockDevice()) {
    const std::string why = PrepareStateFolder(StateFolder());
    if (!why.empty()) {
      Refuse(source.path, "cannot be worked on: its journal must be kept in " + StateFolder() +
                              ", " + why + "; VORNALUX_STATE_DIR names another folder");
    }
  }
  auto home = std::make_unique<FileJournalHome>(source.journal_path);
  const std::string why = home->Make(JournalRoom(source));
  if (!why.empty()) {
    Refuse(source.path,
           "cannot be worked on: its journal " + source.journal_path + " " + why + ".");
  }
  return home;
}

}  // namespace vornalux
