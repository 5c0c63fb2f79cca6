// SPDX-License-Identifier: GPL-2.0-or-later
// What cannot be worked on is named, and what to do about it is a line to copy.
#include <gtest/gtest.h>
#include <zlib.h>

#include <filesystem>

#include "host/image/device/little_endian.h"
#include "host/image/opening/foreign_content.h"
#include "host/image/opening/image_source.h"
#include "support/image_folder.h"
#include "support/loop_device.h"
#include "text/shell_text.h"

namespace vornalux::test {
namespace {

namespace fs = std::filesystem;

class Foreign : public ImageFolder {
 protected:
  // The message of the refusal; empty when the volume is found.
  std::string Refusal(const std::string& path, const OpenOptions& options = {}) const {
    try {
      LocateVolume(path, options, false);
      return "";
    } catch (const VolumeRefused& refused) {
      return refused.what();
    }
  }
};

void Stamp(Bytes& disk, std::size_t offset, std::string_view mark) {
  std::copy(mark.begin(), mark.end(), disk.begin() + static_cast<std::ptrdiff_t>(offset));
}

// The label of a physical volume, with the checksum as LVM starts it.
Bytes LvmMember() {
  Bytes disk(4 * kMebibyte);
  Stamp(disk, 512, "LABELONE");
  StoreLittle<std::uint64_t>(disk, 512 + 8, 1);
  StoreLittle<std::uint32_t>(disk, 512 + 20, 32);
  Stamp(disk, 512 + 24, "LVM2 001abcdefabcdefabcdefabcdefabcdefab");
  const std::uint32_t sum =
      static_cast<std::uint32_t>(::crc32_z(~0xF597A6CFU, &disk[512 + 20], 492));
  StoreLittle<std::uint32_t>(disk, 512 + 16, ~sum);
  return disk;
}

// The superblock that a mirror of old keeps near the end of each half.
void MarkAsMirror(Bytes& disk) {
  const std::size_t at = disk.size() / 65536 * 65536 - 65536;
  StoreLittle<std::uint32_t>(disk, at, 0xA92B4EFC);
  StoreLittle<std::uint32_t>(disk, at + 8, 90);
}

TEST_F(Foreign, IsNamedWithALineToCopy) {
  struct Case {
    const char* what;     // also the file's name
    const char* command;  // makes it; else content does
    Bytes content;
    std::string name, line;  // {} is the path, quoted
  };
  const auto stamped = [](std::size_t offset, std::string_view mark) {
    Bytes disk(8192);
    Stamp(disk, offset, mark);
    return disk;
  };
  const std::string loop = "mount -o loop {} /mnt && ";
  const std::string copy = "cp -a /mnt/. ~/copy";
  const std::string raid = "losetup -f --show {} && mdadm --assemble --scan && cat /proc/mdstat";
  Bytes member(4 * kMebibyte);
  MarkAsMirror(member);
  // What its header says, and the metadata that this leads to.
  Bytes bitlocker = stamped(0, "\xEB\x58\x90-FVE-FS-");
  Stamp(bitlocker, 160, "\x3B\xD6\x67\x49\x29\x2E\xD8\x4A\x83\x99\xF6\xA3\x39\xE3\xD0\x01");
  StoreLittle<std::uint64_t>(bitlocker, 176, 4096);
  Stamp(bitlocker, 4096, "-FVE-FS-");
  bitlocker[4096 + 10] = 2;
  const Case kCases[] = {
      {"a b's ext4", "mkfs.ext4 -q", Bytes(8 * kMebibyte), "ext4", loop + "e4defrag /mnt"},
      {"ext3", "mkfs.ext3 -q", Bytes(8 * kMebibyte), "ext3", loop + copy},
      {"btrfs",
       "truncate -s 128M btrfs; mkfs.btrfs -q",
       {},
       "Btrfs",
       loop + "btrfs filesystem defragment -r /mnt"},
      {"xfs", "truncate -s 320M xfs; mkfs.xfs -q", {}, "XFS", loop + "xfs_fsr /mnt"},
      {"exfat", "mkfs.exfat", Bytes(4 * kMebibyte), "exFAT", loop + copy},
      {"iso", "mkdir d; genisoimage -quiet d >", {}, "ISO 9660", ""},
      {"swap", "mkswap -q", Bytes(kMebibyte), "swap", ""},
      {"lvm", "", LvmMember(), "LVM",
       "losetup -f --show {} && vgchange -ay && lvs -o lv_path,lv_size"},
      {"mirror", "", member, "RAID", raid},
      {"luks", "echo -n x | cryptsetup luksFormat -q --type luks1 --pbkdf-force-iterations 1000",
       Bytes(4 * kMebibyte), "LUKS",
       "cryptsetup open --type luks \"$(losetup -f --show {})\" opened"},
      {"bitlocker", "", bitlocker, "BitLocker",
       "cryptsetup open --type bitlk \"$(losetup -f --show {})\" opened"},
      {"refs", "", stamped(3, std::string_view("ReFS\0\0\0\0", 8)), "ReFS", ""},
      {"e01", "", stamped(0, std::string_view("EVF\x09\x0D\x0A\xFF\0", 8)), "E01",
       "ewfexport -u -f raw -t - {} > {raw}"},
      {"bad-ntfs", "", stamped(3, "NTFS    "), "damaged", ""},
      {"zeros", "", Bytes(8192), "no FAT or NTFS", ""},
      {"empty", "", {}, "no FAT or NTFS", ""},
      {"short", "", Bytes(100, 1), "no FAT or NTFS", ""},
      {"folder", "mkdir", {}, "is a folder", ""},
      {"missing", ":", {}, "No such file", ""},
      {"cut",
       "mkfs.fat -C cut 1024; truncate -s -512",
       {},
       "1048576 bytes, of which only 1048064",
       ""}};
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.what);
    const std::string path = Path(c.what);
    if (!c.content.empty() || *c.command == '\0') Put(c.what, c.content);
    if (*c.command != '\0') Run(c.command + (" " + ShellQuoted(c.what)));
    const std::string refusal = Refusal(path);
    EXPECT_NE(refusal.find(path), std::string::npos) << refusal;
    EXPECT_NE(refusal.find(c.name), std::string::npos) << refusal;
    std::string line = c.line;
    for (std::size_t at = 0; (at = line.find("{}")) != std::string::npos;) {
      line.replace(at, 2, ShellQuoted(path));
    }
    if (const std::size_t at = line.find("{raw}"); at != std::string::npos) {
      line.replace(at, 5, ShellQuoted(path + ".raw"));
    }
    const std::size_t lines = refusal.find('\n');
    EXPECT_EQ(lines == std::string::npos ? "" : refusal.substr(lines),
              line.empty() ? "" : "\n  " + line)
        << refusal;
  }
}

// The first line of each makes a file that can be worked on.
TEST_F(Foreign, ContainersAreUnpackedByTheLineThatIsTold) {
  struct Case {
    const char *name, *command, *made;
  };
  const Case kCases[] = {{"a, b.qcow2", "qemu-img convert -O qcow2 fat", "a, b.raw"},
                         {"dyn.vhd", "qemu-img convert -O vpc fat", "dyn.raw"},
                         {"x.vhdx", "qemu-img convert -O vhdx fat", "x.raw"},
                         {"x's.vmdk", "qemu-img convert -O vmdk fat", "x's.raw"},
                         {"x.vdi", "qemu-img convert -O vdi fat", "x-2.raw"},
                         {"disk.img.gz", "gzip -c fat >", "disk.img"},
                         {"disk.xz", "xz -c fat >", "disk.raw"},
                         {"-o.zst", "zstd -qc fat > ./", "-o.raw"}};
  Put("fat", Fat());
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.name);
    std::string made = c.command;
    made += (made.ends_with('/') ? "" : " ") + ShellQuoted(c.name);
    Run(made);
    const std::string refusal = Refusal(Path(c.name));
    const std::size_t begin = refusal.find("\n  ");
    ASSERT_NE(begin, std::string::npos) << refusal;
    const std::size_t end = refusal.find('\n', begin + 1);
    Run(refusal.substr(begin, end - begin));
    EXPECT_EQ(Refusal(Path(c.made)), "") << refusal;
    EXPECT_EQ(refusal.find("qemu-storage-daemon") != std::string::npos, end != std::string::npos);
  }
  // The disk as it is, with something behind it.
  Run("qemu-img convert -O vpc -o subformat=fixed,force_size fat fixed.vhd");
  EXPECT_EQ(Refusal(Path("fixed.vhd")), "");
}

TEST_F(Foreign, InAPartitionIsNamedByItsPlace) {
  Put("disk", Bytes(16 * kMebibyte));
  Run("printf '2048,16384,L\\n20480,2048,82\\n' | sfdisk -q disk; truncate -s 8M ext4;"
      "mkfs.ext4 -q ext4; dd if=ext4 of=disk seek=1 bs=1M conv=notrunc");
  const std::string all = Refusal(Path("disk"));
  EXPECT_NE(all.find("1  an ext4 volume, 8 MiB"), std::string::npos) << all;
  EXPECT_NE(all.find("2  unknown, 1 MiB"), std::string::npos) << all;
  OpenOptions options;
  options.partition = 1;
  const std::string one = Refusal(Path("disk"), options);
  EXPECT_NE(one.find("\n  mount -o loop,offset=1048576 " + Path("disk") + " /mnt && e4defrag /mnt"),
            std::string::npos)
      << one;
}

// Half of a mirror passes for the volume on it; what a mirror of old has left inside one is no
// harm.
TEST_F(Foreign, HalfOfAMirrorIsNoVolume) {
  for (const bool within : {false, true}) {
    Put("half", Bytes(4 * kMebibyte));
    Run(within ? "mkfs.fat half" : "mkfs.fat half 3072");
    Bytes half = Get("half");
    EXPECT_EQ(Refusal(Path("half")), "");
    MarkAsMirror(half);
    Put("half", half);
    const std::string refusal = Refusal(Path("half"));
    EXPECT_EQ(refusal.find("a member of a Linux RAID") == std::string::npos, within) << refusal;
  }
}

TEST_F(Foreign, DeviceThatIsMountedOrOpenedElsewhereIsNamed) {
  Put("image", Bytes(8 * kMebibyte));
  Run("mkfs.ext4 -q image; mkdir 'm t'");
  const LoopDevice device(Path("image"));
  if (device.Node().empty()) GTEST_SKIP() << "no loop devices here";
  EXPECT_NE(Refusal(device.Node()).find("\n  mount " + device.Node() + " /mnt && e4defrag /mnt"),
            std::string::npos);
  try {
    Run("mount " + device.Node() + " 'm t'");
  } catch (const std::runtime_error&) {
    GTEST_SKIP() << "nothing can be mounted here";
  }
  const std::string refusal = Refusal(device.Node());
  const std::string image = Refusal(Path("image"));
  Run("umount 'm t'");
  EXPECT_NE(refusal.find("\n  e4defrag " + ShellQuoted(Path("m t"))), std::string::npos) << refusal;
  EXPECT_NE(image.find("\n  e4defrag " + ShellQuoted(Path("m t"))), std::string::npos) << image;
}

}  // namespace
}  // namespace vornalux::test
