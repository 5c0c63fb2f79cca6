// SPDX-License-Identifier: GPL-2.0-or-later
// Finding the volume in an image, and refusing what must not be worked on.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>

#include "host/image/device/little_endian.h"
#include "host/image/opening/foreign_content.h"
#include "host/image/opening/image_source.h"
#include "host/image/opening/image_use.h"
#include "support/image_folder.h"
#include "support/loop_device.h"
#include "text/shell_text.h"

// What answers the system's call in this program; 0, or the error that it fails with. Nothing set:
// nothing is done.
static std::function<int(off64_t, off64_t, unsigned)> at_sync_file_range;

extern "C" int sync_file_range(int, off64_t offset, off64_t length, unsigned how) noexcept {
  const int error = at_sync_file_range ? at_sync_file_range(offset, length, how) : 0;
  errno = error;
  return error == 0 ? 0 : -1;
}

namespace vornalux::test {
namespace {

namespace fs = std::filesystem;

class ImageTest : public ImageFolder {};

// The message of the refusal; empty when the volume is found.
std::string Refusal(const std::string& path, const OpenOptions& options = {},
                    bool writable = false) {
  try {
    LocateVolume(path, options, writable);
    return "";
  } catch (const VolumeRefused& refused) {
    return refused.what();
  }
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

void Place(Bytes& disk, std::size_t offset, const Bytes& content) {
  std::copy(content.begin(), content.end(), disk.begin() + static_cast<std::ptrdiff_t>(offset));
}

// Entry index of the MBR or EBR that starts at table, in sectors of 512 bytes.
void SetMbrEntry(Bytes& disk, std::size_t table, std::size_t index, std::uint8_t type,
                 std::size_t start, std::size_t length) {
  const std::span<std::uint8_t> entry = std::span(disk).subspan(table * 512 + 446 + index * 16, 16);
  entry[4] = type;
  StoreLittle<std::uint32_t>(entry, 8, static_cast<std::uint32_t>(start));
  StoreLittle<std::uint32_t>(entry, 12, static_cast<std::uint32_t>(length));
  disk[table * 512 + 510] = 0x55;
  disk[table * 512 + 511] = 0xAA;
}

void SealGpt(Bytes& disk, std::size_t header_at, std::size_t entries_at, std::size_t unit) {
  const auto crc = [](std::span<const std::uint8_t> bytes) {
    return static_cast<std::uint32_t>(::crc32_z(0, bytes.data(), bytes.size()));
  };
  const auto header = std::span(disk).subspan(header_at * unit, 92);
  std::copy_n("EFI PART", 8, header.begin());
  StoreLittle<std::uint32_t>(header, 12, 92);
  StoreLittle<std::uint64_t>(header, 24, header_at);
  StoreLittle<std::uint64_t>(header, 40, 16);                       // first usable
  StoreLittle<std::uint64_t>(header, 48, disk.size() / unit - 16);  // last
  StoreLittle<std::uint64_t>(header, 72, entries_at);
  StoreLittle<std::uint32_t>(header, 80, 4);
  StoreLittle<std::uint32_t>(header, 84, 128);
  StoreLittle<std::uint32_t>(header, 88, crc(std::span(disk).subspan(entries_at * unit, 4 * 128)));
  StoreLittle<std::uint32_t>(header, 16, 0);
  StoreLittle<std::uint32_t>(header, 16, crc(header));
}

// A GPT with the volume in partition 3, from byte 1 MiB on.
Bytes GptDisk(const Bytes& volume, std::size_t unit) {
  Bytes disk(8 * kMebibyte);
  SetMbrEntry(disk, 0, 0, 0xEE, 1, disk.size() / unit - 1);
  const std::size_t last = disk.size() / unit - 1;
  for (const std::size_t entries : {std::size_t{2}, last - 8}) {
    const auto entry = std::span(disk).subspan(entries * unit + 2 * 128, 128);
    entry[0] = 0xA2;
    StoreLittle<std::uint64_t>(entry, 32, kMebibyte / unit);
    StoreLittle<std::uint64_t>(entry, 40, (kMebibyte + volume.size()) / unit - 1);
  }
  SealGpt(disk, 1, 2, unit);
  SealGpt(disk, last, last - 8, unit);
  Place(disk, kMebibyte, volume);
  return disk;
}

TEST_F(ImageTest, FindsAVolumeWithoutPartitions) {
  Put("fat", Fat());
  const ImageSource fat = LocateVolume(Path("fat"), {}, false);
  EXPECT_EQ(fat.boot.kind, BootKind::Fat);
  EXPECT_EQ(fat.identity.serial, 0x1234ABCDU);
  EXPECT_EQ(fat.length, kMebibyte);
  EXPECT_EQ(fat.journal_path, Path("fat.vornalux-journal"));

  Bytes content = Ntfs();
  content.resize(content.size() + 4096);
  Put("ntfs", content);
  fs::create_symlink("ntfs", Path("link"));
  const ImageSource ntfs = LocateVolume(Path("link"), {}, false);
  EXPECT_EQ(ntfs.boot.kind, BootKind::Ntfs);
  EXPECT_EQ(ntfs.length, 2 * kMebibyte) << "what follows the volume is none of its business";
  EXPECT_EQ(ntfs.journal_path, Path("ntfs.vornalux-journal")) << "one journal, whatever the path";
}

TEST_F(ImageTest, FindsTheVolumeInAPartition) {
  const Bytes fat = Fat();
  Bytes disk(8 * kMebibyte);
  SetMbrEntry(disk, 0, 0, 0x83, 1000, 100);
  SetMbrEntry(disk, 0, 2, 0, 0, 24);  // no partition, whatever its sizes say
  SetMbrEntry(disk, 0, 1, 0x05, 4096, 8192);
  SetMbrEntry(disk, 4096, 0, 0x83, 10, 10);
  SetMbrEntry(disk, 4096, 1, 0x05, 2048, 4000);
  SetMbrEntry(disk, 6144, 0, 0x06, 64, 2048);
  Place(disk, (6144 + 64) * 512, fat);
  Put("mbr", disk);
  for (const std::optional<int> partition : {std::optional<int>(), std::optional<int>(6)}) {
    OpenOptions options;
    options.partition = partition;
    const ImageSource source = LocateVolume(Path("mbr"), options, false);
    EXPECT_EQ(source.offset, (6144U + 64U) * 512U);
    EXPECT_EQ(source.length, kMebibyte);
    EXPECT_EQ(source.journal_path, Path("mbr+3178496.vornalux-journal"));
  }
  for (const std::size_t unit : {512U, 4096U}) {
    Bytes gpt = GptDisk(fat, unit);
    Put("gpt", gpt);
    EXPECT_EQ(LocateVolume(Path("gpt"), {}, false).offset, kMebibyte) << unit;
    fs::resize_file(Path("gpt"), 3 * kMebibyte);
    EXPECT_EQ(LocateVolume(Path("gpt"), {}, false).offset, kMebibyte) << "cut short, " << unit;
    gpt[2 * unit + 2 * 128 + 32] ^= 8;
    Put("gpt", gpt);
    EXPECT_EQ(LocateVolume(Path("gpt"), {}, false).offset, kMebibyte) << "from the copy " << unit;
    gpt[unit + 72] ^= 1;
    Put("gpt", gpt);
    EXPECT_EQ(LocateVolume(Path("gpt"), {}, false).offset, kMebibyte) << "from the copy " << unit;
    gpt[gpt.size() - unit + 72] ^= 1;
    Put("gpt", gpt);
    EXPECT_TRUE(Contains(Refusal(Path("gpt")), "damaged")) << unit;
  }
}

TEST_F(ImageTest, RefusesPartitionsThatAreUnclear) {
  Bytes disk(8 * kMebibyte);
  SetMbrEntry(disk, 0, 0, 0x06, 2048, 2048);
  SetMbrEntry(disk, 0, 2, 0x06, 8192, 1024);
  Place(disk, 2048 * 512, Fat());
  Place(disk, 8192 * 512, Fat());
  Put("disk", disk);
  const std::string several = Refusal(Path("disk"));
  EXPECT_TRUE(Contains(several, "--partition")) << several;
  EXPECT_TRUE(Contains(several, "1  FAT, 1 MiB at byte 1048576")) << several;
  OpenOptions options;
  options.partition = 2;
  EXPECT_TRUE(Contains(Refusal(Path("disk"), options), "no partition 2"));
  options.partition = 3;
  const std::string cut = Refusal(Path("disk"), options);
  EXPECT_TRUE(Contains(cut, "1048576") && Contains(cut, "524288")) << cut;
  options.offset = 2048 * 512;
  EXPECT_TRUE(Contains(Refusal(Path("disk"), options), "not both"));
  options.partition.reset();
  EXPECT_EQ(Refusal(Path("disk"), options), "");
  options.offset = disk.size();
  EXPECT_TRUE(Contains(Refusal(Path("disk"), options), "past its end"));

  Bytes endless(kMebibyte);
  SetMbrEntry(endless, 0, 0, 0x05, 100, 1000);
  SetMbrEntry(endless, 100, 1, 0x05, 0, 1000);
  SetMbrEntry(endless, 100, 1, 0x05, 0, 1000);
  Put("endless", endless);
  EXPECT_TRUE(Contains(Refusal(Path("endless")), "does not end"));
  SetMbrEntry(endless, 100, 1, 0x05, 0xFFFFFF00, 1000);
  Put("endless", endless);
  EXPECT_TRUE(Contains(Refusal(Path("endless")), "past the end"));
}

TEST_F(ImageTest, WorksOnNoVolumeThatSharesSectorsWithAnotherPartition) {
  struct Case {
    std::size_t start;
    std::size_t length;
    bool refused;
  };
  for (const Case& c : {Case{4095, 100, true}, Case{4096, 100, false}, Case{1, 2047, false},
                        Case{1, 2048, true}, Case{2048, 9000, false}}) {
    Bytes disk(8 * kMebibyte);
    SetMbrEntry(disk, 0, 0, 0x06, 2048, 2048 + 1000);
    SetMbrEntry(disk, 0, 1, 0x83, c.start, c.length);
    Place(disk, 2048 * 512, Fat());
    Put("disk", disk);
    OpenOptions options;
    options.partition = 1;
    EXPECT_EQ(Refusal(Path("disk"), options), "") << "to look is no harm";
    options.writable = true;
    EXPECT_EQ(Contains(Refusal(Path("disk"), options), "partition 2 lie"), c.refused) << c.start;
  }
}

TEST_F(ImageTest, LocksOthersOutAndIsLockedOut) {
  Put("fat", Fat());
  {
    const ImageSource reader = LocateVolume(Path("fat"), {}, false);
    EXPECT_EQ(Refusal(Path("fat")), "") << "readers do not mind each other";
    EXPECT_TRUE(Contains(Refusal(Path("fat"), {}, true), "in use"));
  }
  {
    const ImageSource writer = LocateVolume(Path("fat"), {}, true);
    EXPECT_TRUE(Contains(Refusal(Path("fat")), "in use"));
    // The classic record lock that other programs take.
    const pid_t child = ::fork();
    if (child == 0) {
      const int descriptor = ::open(Path("fat").c_str(), O_RDWR);
      struct flock lock {};
      lock.l_type = F_WRLCK;
      ::_exit(::fcntl(descriptor, F_SETLK, &lock) == 0 ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0) << "another program got a lock";
  }
  EXPECT_EQ(Refusal(Path("fat"), {}, true), "");
}

TEST_F(ImageTest, SeesWhatIsMountedOrAttached) {
  Put("an image", Bytes(512));
  Put("other", Bytes(512));
  fs::create_directories(Path("sys/block/loop7/loop"));
  std::ofstream(Path("sys/block/loop7/dev")) << "7:7\n";
  const int descriptor = ::open(Path("an image").c_str(), O_RDONLY);
  std::string escaped = Path("an image");
  escaped.replace(escaped.find(' '), 1, "\\040");
  struct Case {
    std::string source, backing, swap, use;
    std::string autoclear = "0", device = "0:50";
  };
  const std::string image = Path("an image");
  const std::string attached = "is attached to /dev/loop7";
  const Case kCases[] = {
      {escaped, "", "", "is mounted on /mnt/a b|umount '/mnt/a b'"},
      {Path("other"), "", "", "free"},
      {"tmpfs", Path("other"), "/dev/sda3", "free"},
      {"tmpfs", image, "", attached + "|losetup -d /dev/loop7"},
      {"tmpfs", "", escaped, "is in use as swap space|swapoff " + image},
      {"/dev/loop7", image, "",
       attached + ", which is mounted on /mnt/a b|umount '/mnt/a b'|losetup -d /dev/loop7", "0",
       "7:7"},
      {"/dev/loop7", image, "", attached + ", which is mounted on /mnt/a b|umount '/mnt/a b'", "1",
       "7:7"}};
  for (const Case& c : kCases) {
    std::ofstream(Path("mountinfo"))
        << "22 1 8:1 / / rw - ext4 /dev/root rw\nnonsense\n"
        << "30 22 " << c.device << " / /mnt/a\\040b rw,nosuid shared:5 - fuse " << c.source
        << " rw\n";
    std::ofstream(Path("swaps")) << "Filename Type Size Used Priority\n"
                                 << c.swap << " file 1024 0 -2\n";
    std::ofstream(Path("sys/block/loop7/loop/backing_file")) << c.backing << "\n";
    std::ofstream(Path("sys/block/loop7/loop/autoclear")) << c.autoclear << "\n";
    const auto use = FindUse(descriptor, {Path("mountinfo"), Path("swaps"), Path("sys")});
    std::string told = use ? use->what : "free";
    for (const std::string& line : use ? use->lines : std::vector<std::string>())
      told += "|" + line;
    std::string expected = c.use;
    if (const std::size_t at = expected.find(image); at != std::string::npos) {
      expected.replace(at, image.size(), ShellQuoted(image));
    }
    EXPECT_EQ(told, expected);
  }
  ::close(descriptor);
}

TEST_F(ImageTest, IsRefusedWhileALoopDeviceHasIt) {
  Put("fat", Fat());
  const LoopDevice device(Path("fat"));
  if (device.Node().empty()) GTEST_SKIP() << "no loop devices here";
  const std::string refusal = Refusal(Path("fat"));
  EXPECT_TRUE(Contains(refusal, "attached to /dev/loop")) << refusal;
}

// What a flush finds to do after a large copy is bounded, and data that got lost on its way before
// the flush fails it all the same: the system tells such a loss once.
TEST_F(ImageTest, LargeWritesAreSentOnAndTheirLossIsTold) {
  for (const int error : {0, EIO, ENOSPC, ENOSYS}) {
    Put("file", Bytes(16 * kMebibyte));
    std::unique_ptr<FileDevice> device;
    ASSERT_FALSE(FileDevice::Adopt(::open(Path("file").c_str(), O_RDWR), false, device));
    std::map<off64_t, off64_t> unsettled;
    off64_t most = 0;
    int calls = 0;
    at_sync_file_range = [&](off64_t offset, off64_t length, unsigned how) {
      if (how & SYNC_FILE_RANGE_WAIT_AFTER) unsettled.erase(offset);
      if (how == SYNC_FILE_RANGE_WRITE) unsettled[offset] = length;
      off64_t sum = 0;
      for (const auto& [from, count] : unsettled) sum += count;
      most = std::max(most, sum);
      return ++calls == 3 ? error : 0;
    };
    for (std::size_t i = 0; i < 8; ++i) {
      EXPECT_FALSE(device->Write(2 * i * kMebibyte, Bytes(2 * kMebibyte, 1)));
      EXPECT_FALSE(device->Write(0, Bytes(4096, 2)));
    }
    at_sync_file_range = {};
    EXPECT_EQ(unsettled.size(), 1u);
    EXPECT_LE(most, static_cast<off64_t>(4 * kMebibyte));
    const bool lost = error == EIO || error == ENOSPC;
    for (int again = 0; again < 2; ++again) {
      EXPECT_EQ(device->Flush().value(), lost ? error : 0) << "it stays lost";
    }
  }
}

TEST_F(ImageTest, FilesKeepTheirSizeAndJournalsGrow) {
  for (const bool growable : {false, true}) {
    Put("file", Bytes(1000, 1));
    std::unique_ptr<FileDevice> device;
    ASSERT_FALSE(FileDevice::Adopt(::open(Path("file").c_str(), O_RDWR), growable, device));
    EXPECT_EQ(!device->Write(990, Bytes(20, 2)), growable);
    EXPECT_EQ(device->Size(), growable ? 1010U : 1000U);
    Bytes tail(10);
    EXPECT_FALSE(device->Read(device->Size() - 10, tail));
    EXPECT_EQ(tail, Bytes(10, growable ? 2 : 1));
    EXPECT_TRUE(device->Read(device->Size() - 9, tail));
    EXPECT_FALSE(device->Flush());
    fs::resize_file(Path("file"), 500);
    EXPECT_EQ(device->Read(600, tail), std::errc::io_error) << "cut short under us";
  }
  std::unique_ptr<FileDevice> device;
  EXPECT_TRUE(FileDevice::Adopt(::open("/dev/null", O_RDWR), false, device));
  EXPECT_EQ(device, nullptr);
}

}  // namespace
}  // namespace vornalux::test
