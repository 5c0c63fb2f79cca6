// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/opening/foreign_content.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <utility>

#include "host/image/opening/signatures.h"
#include "text/shell_text.h"

namespace vornalux {
namespace {

namespace fs = std::filesystem;

// In the lines below stands
// {path}    for the file or device,
// {node}    for the same as a block device, attached where it is a file or lies inside one,
// {attach}  for a command that does that, and "&&"; nothing for a block device,
// {mount}   for one that mounts it at {at}; nothing where it is mounted,
// {raw}     for a file that does not exist yet, named after the path; QEMU takes its options apart
//           at commas, and {qemu path} and {qemu raw} have them doubled.

struct ForeignRow {
  std::string_view type;  // as libblkid calls it
  const char* name;
  const char* advice = "";
  const char* line = "";
};

constexpr const char* kCopied =
    "On Linux its files come into one piece by being copied off it and back";
constexpr const char* kCopy = "{mount}cp -a {at}/. ~/copy";
constexpr const char* kRaid = "Work on the RAID as a whole";
constexpr const char* kAssemble = "{attach}mdadm --assemble --scan && cat /proc/mdstat";

constexpr ForeignRow kForeign[] = {
    {"ext4", "an ext4 volume", "While it is mounted, e4defrag works on it", "{mount}e4defrag {at}"},
    {"btrfs", "a Btrfs volume", "While it is mounted, its own tool works on it",
     "{mount}btrfs filesystem defragment -r {at}"},
    {"xfs", "an XFS volume", "While it is mounted, xfs_fsr works on it", "{mount}xfs_fsr {at}"},
    {"ext2", "an ext2 volume", kCopied, kCopy},
    {"ext3", "an ext3 volume", kCopied, kCopy},
    {"exfat", "an exFAT volume", kCopied, kCopy},
    {"udf", "a UDF volume", kCopied, kCopy},
    {"iso9660", "an ISO 9660 image",
     "Its files are in one piece, and nothing can be written to it"},
    {"swap", "Linux swap space", "There are no files in it"},
    {"swsuspend", "the memory of a Linux system that sleeps", "There are no files in it"},
    {"LVM2_member", "a part of LVM", "Work on one of the logical volumes in it",
     "{attach}vgchange -ay && lvs -o lv_path,lv_size"},
    {"linux_raid_member", "a member of a Linux RAID", kRaid, kAssemble},
    {"isw_raid_member", "a member of a firmware RAID", kRaid, kAssemble},
    {"ddf_raid_member", "a member of a firmware RAID", kRaid, kAssemble},
    {"zfs_member", "a part of a ZFS pool"},
    {"bcache", "a part of bcache", "Work on the device that it is part of", "ls /dev/bcache*"},
    {"crypto_LUKS", "a LUKS container", "Open it, then work on /dev/mapper/opened",
     "cryptsetup open --type luks {node} opened"},
    {"BitLocker", "a volume encrypted with BitLocker", "Open it, then work on /dev/mapper/opened",
     "cryptsetup open --type bitlk {node} opened"},
    {"ReFS", "a ReFS volume"},
    {"apfs", "an APFS volume"},
    {"hfsplus", "an HFS+ volume"},
};

struct ContainerRow {
  std::uint64_t offset;
  std::string_view magic;
  const char* name;
  const char* line;
  const char* driver = "";  // of QEMU: it can be written to without being unpacked
};

using namespace std::string_view_literals;

constexpr ContainerRow kContainers[] = {
    {0, "QFI\xFB"sv, "a qcow2 image", "qemu-img convert -O raw {path} {raw}", "qcow2"},
    {0, "QED\0"sv, "a QED image", "qemu-img convert -O raw {path} {raw}", "qed"},
    // A fixed VHD has this at its end only: the disk as it is comes first.
    {0, "conectix"sv, "a VHD image that is not of the fixed kind",
     "qemu-img convert -f vpc -O raw {path} {raw}", "vpc"},
    {0, "vhdxfile"sv, "a VHDX image", "qemu-img convert -O raw {path} {raw}", "vhdx"},
    {0, "KDMV"sv, "a VMDK image", "qemu-img convert -O raw {path} {raw}", "vmdk"},
    {0, "COWD"sv, "a VMDK image", "qemu-img convert -O raw {path} {raw}", "vmdk"},
    {0, "# Disk DescriptorFile"sv, "the description of a VMDK image",
     "qemu-img convert -O raw {path} {raw}", "vmdk"},
    {64, "\x7F\x10\xDA\xBE"sv, "a VDI image", "qemu-img convert -O raw {path} {raw}", "vdi"},
    {0, "WithoutFreeSpac"sv, "a Parallels image", "qemu-img convert -O raw {path} {raw}",
     "parallels"},
    {0, "EVF\x09\x0D\x0A\xFF\0"sv, "an E01 image (evidence file)",
     "ewfexport -u -f raw -t - {path} > {raw}"},
    {0, "EVF2\x0D\x0A\x81\0"sv, "an Ex01 image (evidence file)",
     "ewfexport -u -f raw -t - {path} > {raw}"},
    {0, "\x1F\x8B\x08"sv, "packed with gzip", "gzip -dc {path} > {raw}"},
    {0,
     "\xFD"
     "7zXZ\0"sv,
     "packed with xz", "xz -dc {path} > {raw}"},
    {0, "\x28\xB5\x2F\xFD"sv, "packed with zstd", "zstd -dc {path} > {raw}"},
    {0, "BZh"sv, "packed with bzip2", "bzip2 -dc {path} > {raw}"},
    {0, "\x04\x22\x4D\x18"sv, "packed with lz4", "lz4 -dc {path} > {raw}"},
    {0, "7z\xBC\xAF\x27\x1C"sv, "packed with 7-Zip", "7z x -so {path} > {raw}"},
    {0, "PK\x03\x04"sv, "packed with ZIP", "unzip -p {path} > {raw}"},
    {0, "\0ntfsclone-image\x10"sv, "an image of ntfsclone",
     "ntfsclone --restore-image --overwrite {raw} {path}"},
    {0, "partclone-image"sv, "an image of Partclone", "partclone.restore -C -s {path} -o {raw}"},
};

constexpr const char* kExport =
    "touch {raw} && qemu-storage-daemon"
    " --blockdev driver=file,node-name=file,filename={qemu path}"
    " --blockdev driver={driver},node-name=disk,file=file"
    " --export type=fuse,id=export,node-name=disk,mountpoint={qemu raw},writable=on";

using Words = std::vector<std::pair<std::string_view, std::string>>;

// In one go: what stands in a path is no such word.
std::string FilledIn(std::string_view line, const Words& words) {
  std::string filled;
  while (!line.empty()) {
    const auto word = std::find_if(words.begin(), words.end(),
                                   [&](const auto& each) { return line.starts_with(each.first); });
    const bool found = word != words.end();
    filled += found ? word->second : std::string(line.substr(0, 1));
    line.remove_prefix(found ? word->first.size() : 1);
  }
  return filled;
}

// "disk.img.gz" unpacked is disk.img, "disk.qcow2" converted disk.raw, beside it.
std::string UnpackedPath(const std::string& path, bool packed) {
  const fs::path given(path);
  fs::path base = given.parent_path() / given.stem();
  if (!packed || !base.has_extension()) base += ".raw";
  fs::path free = base;
  std::error_code error;
  for (int i = 2; fs::exists(free, error); ++i) {
    free = base.parent_path() /
           (base.stem().string() + "-" + std::to_string(i) + base.extension().string());
  }
  return free;
}

std::string CommasDoubled(const std::string& text) {
  std::string doubled;
  for (const char c : text) doubled += c == ',' ? ",," : std::string(1, c);
  return doubled;
}

Words WordsFor(const ForeignPlace& place, bool device) {
  const std::string path = ShellQuoted(place.path);
  const std::string offset = std::to_string(place.offset);
  const bool node = device && place.offset == 0;
  const std::string attach =
      "losetup -f --show " + (place.offset == 0 ? "" : "-o " + offset + " ") + path;
  const std::string how = place.offset == 0 ? "-o loop " : "-o loop,offset=" + offset + " ";
  const bool mounted = !place.mount_point.empty();
  return {{"{path}", path},
          {"{node}", node ? path : "\"$(" + attach + ")\""},
          {"{attach}", node ? "" : attach + " && "},
          {"{mount}", mounted ? "" : "mount " + (node ? "" : how) + path + " /mnt && "},
          {"{at}", mounted ? ShellQuoted(place.mount_point) : "/mnt"}};
}

std::string Generic(const Signature& signature) {
  const std::string type = "\"" + signature.type + "\"";
  if (signature.usage == "raid") return "a member of a RAID or pool of the kind " + type;
  if (signature.usage == "crypto") return "an encrypted volume of the kind " + type;
  if (signature.usage == "filesystem") return "a volume with the file system " + type;
  return "something of the kind " + type;
}

}  // namespace

std::string Remedy(const std::string& advice, const std::vector<std::string>& lines) {
  if (advice.empty()) return {};
  std::string text = ". " + advice + (lines.empty() ? "" : ":");
  for (const std::string& line : lines) text += "\n  " + line;
  return text;
}

std::optional<ForeignContent> FindContainer(FileDevice& file, const std::string& path) {
  std::array<std::uint8_t, 128> start{};
  if (file.Size() < start.size() || file.Read(0, start)) return std::nullopt;
  const std::string_view bytes(reinterpret_cast<const char*>(start.data()), start.size());
  for (const ContainerRow& row : kContainers) {
    if (!bytes.substr(row.offset).starts_with(row.magic)) continue;
    const bool packed = std::string_view(row.name).starts_with("packed");
    const bool exported = *row.driver != '\0';
    const std::string raw = file.IsBlockDevice() ? "disk.raw" : UnpackedPath(path, packed);
    const Words words = {{"{path}", ShellQuoted(path)},
                         {"{raw}", ShellQuoted(raw)},
                         {"{driver}", row.driver},
                         {"{qemu path}", ShellQuoted(CommasDoubled(path))},
                         {"{qemu raw}", ShellQuoted(CommasDoubled(raw))}};
    ForeignContent found{.type = {}, .name = row.name, .advice = {}, .lines = {}};
    found.advice =
        std::string(packed ? "Unpack" : "Convert") + " it and work on " + raw +
        (exported ? ", or export it as that file and end qemu-storage-daemon when done" : "");
    found.lines.push_back(FilledIn(row.line, words));
    if (exported) found.lines.push_back(FilledIn(kExport, words));
    return found;
  }
  return std::nullopt;
}

std::optional<ForeignContent> FindForeign(const FileDevice& file, std::uint64_t offset,
                                          std::uint64_t length, const ForeignPlace& place) {
  for (const Signature& signature : FindSignatures(file.Descriptor(), offset, length)) {
    if (signature.type == "vfat" || signature.type == "ntfs" || signature.type.empty()) continue;
    ForeignContent found{
        .type = signature.type, .name = Generic(signature), .advice = {}, .lines = {}};
    const auto* const row = std::find_if(std::begin(kForeign), std::end(kForeign),
                                         [&](const auto& each) { return each.type == found.type; });
    if (row == std::end(kForeign)) return found;
    found.name = row->name;
    found.advice = row->advice;
    if (*row->line != '\0') {
      found.lines.push_back(FilledIn(row->line, WordsFor(place, file.IsBlockDevice())));
    }
    return found;
  }
  return std::nullopt;
}

}  // namespace vornalux
