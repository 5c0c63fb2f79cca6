// SPDX-License-Identifier: GPL-2.0-or-later
// Where a journal lies, whose it is, and that there is one before a run depends on it.
#include "host/image/opening/journal_file.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

#include "host/image/device/little_endian.h"
#include "host/image/drive/device_identity.h"
#include "host/image/opening/image_file.h"
#include "host/image/opening/image_source.h"
#include "support/image_folder.h"
#include "support/loop_device.h"

namespace {
int interruptions = 0;  // of calls to come
}

// In place of the C library's, for this whole program.
extern "C" int fsync(int file) {
  if (interruptions == 0) return static_cast<int>(::syscall(SYS_fsync, file));
  --interruptions;
  errno = EINTR;
  return -1;
}

namespace vornalux::test {
namespace {

namespace fs = std::filesystem;

class JournalFileTest : public ImageFolder {
 protected:
  void SetUp() override {
    Put("image", Fat());
    before_ = Get("image");
  }

  // Why a pass is refused; empty when it is not.
  std::string Refusal(const std::string& path) const {
    OpenOptions options;
    options.writable = true;
    OpenReport report;
    try {
      OpenImage(path, options, report)->Close();
      return {};
    } catch (const VolumeRefused& refused) {
      return refused.what();
    }
  }

  // What a pass would be refused for, when the volume is only looked at.
  std::string Objection(const std::string& path) const {
    OpenReport report;
    OpenImage(path, {}, report);
    return report.objections.empty() ? "" : report.objections.front();
  }

  Bytes before_;
};

TEST_F(JournalFileTest, OfOthersIsNotObeyed) {
  const std::string journal = Path("image.vornalux-journal");
  struct Case {
    const char* what;
    const char* make;
    const char* why;
  };
  const Case cases[] = {
      {"another user's", "touch J; chown 4321 J", "another user (number 4321)"},
      {"for all to write", "touch J; chmod 666 J", "written by other users"},
      {"for a group to write", "touch J; chmod 620 J", "written by other users"},
      {"with a second name", "echo x > J; ln J other", "hard links"},
      {"a link", "echo x > other; ln -s other J", "cannot be opened"},
      {"a link to nowhere", "ln -s nowhere J", "cannot be opened"},
      {"a folder", "mkdir J", "has a journal"},
      {"a pipe", "mkfifo J", "is no file"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    if (std::string(c.make).find("chown") != std::string::npos && ::geteuid() != 0) continue;
    std::string command = c.make;
    for (std::size_t at = 0; (at = command.find(" J", at)) != std::string::npos; at += 2) {
      command.replace(at, 2, " image.vornalux-journal");
    }
    Run("rm -rf image.vornalux-journal other; " + command);
    for (const std::string& why : {Refusal(Path("image")), Objection(Path("image"))}) {
      EXPECT_NE(why.find(c.why), std::string::npos) << why;
      EXPECT_NE(why.find(journal), std::string::npos) << why;
    }
    EXPECT_TRUE(fs::symlink_status(journal).type() != fs::file_type::not_found);
    EXPECT_TRUE(Get("image") == before_);
  }
}

TEST_F(JournalFileTest, IsThereBeforeTheRunOrThereIsNone) {
  const std::string longest(249, 'n');
  fs::copy_file(Path("image"), Path(longest));
  EXPECT_NE(Refusal(Path(longest)).find("File name too long"), std::string::npos);
  EXPECT_EQ(Objection(Path(longest)), "");
  EXPECT_EQ(Refusal(Path("image")), "");
  EXPECT_FALSE(fs::exists(Path("image.vornalux-journal"))) << "a run that moves nothing";

  interruptions = 2;
  EXPECT_EQ(FileJournalHome(Path("interrupted")).Make(1000), "");
  EXPECT_EQ(interruptions, 0) << "asked again";

  fs::create_directory(Path("full"));
  if (::mount("none", Path("full").c_str(), "tmpfs", 0, "size=2M") != 0) return;
  fs::copy_file(Path("image"), Path("full/image"));
  Run("head -c 2M /dev/zero > full/rest || true");
  EXPECT_NE(Refusal(Path("full/image")).find("No space left"), std::string::npos);
  EXPECT_FALSE(fs::exists(Path("full/image.vornalux-journal")));
  EXPECT_EQ(Objection(Path("full/image")), "");
  ::umount(Path("full").c_str());
}

TEST_F(JournalFileTest, OfABlockDeviceOutlivesAPowerCut) {
  struct Restore {
    ~Restore() { ::unsetenv("VORNALUX_STATE_DIR"); }
  } restore;
  const LoopDevice device(Path("image"));
  if (device.Node().empty()) GTEST_SKIP() << "no loop devices here";
  const auto refusal = [&](const std::string& folder) {
    ::setenv("VORNALUX_STATE_DIR", folder.c_str(), 1);
    return Refusal(device.Node());
  };
  const auto names = [](const std::string& why, const char* part) {
    return why.find(part) != std::string::npos &&
           why.find("VORNALUX_STATE_DIR") != std::string::npos;
  };
  fs::create_directory(Path("fleeting"));
  if (::mount("none", Path("fleeting").c_str(), "tmpfs", 0, nullptr) == 0) {
    EXPECT_TRUE(names(refusal(Path("fleeting/a/b")), "tmpfs"));
    EXPECT_TRUE(fs::is_empty(Path("fleeting")));
    ::umount(Path("fleeting").c_str());
  }
  Run("mkdir others open && chown 4321 others && chmod 777 open");
  EXPECT_TRUE(names(refusal(Path("others")), "another user"));
  EXPECT_TRUE(names(refusal(Path("open")), "other users"));
  EXPECT_EQ(refusal(Path("fresh/folder")), "");
  EXPECT_TRUE(fs::is_empty(Path("fresh/folder")));

  const LoopDevice read_only(Path("image"), "-r");
  const std::string protected_device = Refusal(read_only.Node());
  EXPECT_NE(protected_device.find("write-protected"), std::string::npos) << protected_device;
  Run("blockdev --setro " + device.Node());
  EXPECT_NE(Refusal(device.Node()).find("write-protected"), std::string::npos);
  Run("blockdev --setrw " + device.Node());
  EXPECT_TRUE(fs::is_empty(Path("fresh/folder")));
}

TEST_F(JournalFileTest, IsHeldByOneRunAtATime) {
  const std::string path = Path("image.vornalux-journal");
  auto first = std::make_unique<FileJournalHome>(path);
  ASSERT_EQ(first->Make(1000), "");
  FileJournalHome second(path);
  EXPECT_NE(second.Make(1000), "");
  EXPECT_TRUE(second.Busy());
  EXPECT_NE(second.Take(true), "");
  EXPECT_NE(second.Take(false), "");
  EXPECT_NE(Refusal(Path("image")).find("in use by another run"), std::string::npos);
  EXPECT_NE(Objection(Path("image")).find("in use by another run"), std::string::npos);

  // The lock lasts as long as the store, and what was replaced under it is not removed.
  std::shared_ptr<BlockDevice> store;
  ASSERT_FALSE(first->Open(store));
  ASSERT_FALSE(store->Write(0, Bytes(512, 1)));
  first.reset();
  EXPECT_NE(second.Take(true), "");
  store.reset();
  EXPECT_EQ(second.Take(true), "");
  fs::rename(path, Path("moved"));
  Run("echo of another run > image.vornalux-journal");
  EXPECT_TRUE(second.Open(store)) << "nobody would find it after an interruption";
  EXPECT_FALSE(second.Remove());
  EXPECT_TRUE(fs::exists(path));
}

// As the kernel shows two sticks and a disk.
TEST_F(JournalFileTest, OfADeviceIsNamedAfterTheDisk) {
  Run("mkdir -p sys/dev/block sys/devices/hub/stick1/block/sdb/sdb1 "
      "sys/devices/hub/stick2/block/sdc sys/devices/ata/disk/block/sda && "
      "echo 0000:00:14.0 > sys/devices/hub/serial && echo A1 > sys/devices/hub/stick1/serial && "
      "echo ' B 2 ' > sys/devices/hub/stick2/serial && cd sys/dev/block && "
      "ln -s ../../devices/hub/stick1/block/sdb/sdb1 8:17 && "
      "ln -s ../../devices/hub/stick1/block/sdb 8:16 && "
      "ln -s ../../devices/hub/stick2/block/sdc 8:32 && "
      "ln -s ../../devices/ata/disk/block/sda 8:0 && cd 8:16 && echo 8:16 > dev && "
      "echo 7 > diskseq && echo 1 > sdb1/partition && echo 2048 > sdb1/start");
  const std::string sys = Path("sys");
  const DiskPlace partition = OnWholeDisk(sys, "8:17", 512);
  EXPECT_EQ(partition.disk, "8:16");
  EXPECT_EQ(partition.offset, kMebibyte + 512);
  EXPECT_EQ(DeviceIdentity(sys, partition), "A1");
  EXPECT_EQ(DeviceIdentity(sys, OnWholeDisk(sys, "8:32", 0)), "B2");
  EXPECT_EQ(DeviceIdentity(sys, OnWholeDisk(sys, "8:0", 0)), "");
  EXPECT_EQ(DeviceIdentity(sys, OnWholeDisk(sys, "9:9", 0)), "");
  EXPECT_NE(AttachedAs(sys, partition).find("disk 7 of boot"), std::string::npos);
  EXPECT_EQ(AttachedAs(sys, {"8:0", 0}), "") << "an old kernel";
}

// By its node or by its number on the disk, a partition is the same volume.
TEST_F(JournalFileTest, OfAPartitionIsOne) {
  Bytes disk(4 * kMebibyte);
  std::copy(before_.begin(), before_.end(), disk.begin() + kMebibyte);
  StoreLittle<std::uint32_t>(disk, 440, 0xCAFE0001);
  disk[446 + 4] = 6;
  StoreLittle<std::uint32_t>(disk, 446 + 8, 2048);
  StoreLittle<std::uint32_t>(disk, 446 + 12, 2048);
  StoreLittle<std::uint16_t>(disk, 510, 0xAA55);
  Put("disk", disk);
  const LoopDevice device(Path("disk"), "-P");
  if (device.Node().empty()) GTEST_SKIP() << "no loop devices here";
  OpenOptions options;
  options.partition = 1;
  const ImageSource by_number = LocateVolume(device.Node(), options, false);
  const std::string& identity = by_number.identity.device;
  EXPECT_NE(identity.find("cafe0001-01"), std::string::npos) << identity;
  // Not every kernel makes nodes for the partitions of such devices.
  if (!fs::is_block_file(device.Node() + "p1")) return;
  const ImageSource by_node = LocateVolume(device.Node() + "p1", {}, false);
  EXPECT_EQ(by_number.journal_path, by_node.journal_path);
  EXPECT_TRUE(by_number.identity == by_node.identity);
}

}  // namespace
}  // namespace vornalux::test
