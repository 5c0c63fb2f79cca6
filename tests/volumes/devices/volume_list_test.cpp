// SPDX-License-Identifier: GPL-2.0-or-later
// What there is to work on, on a made-up machine whose devices are files.
#include "host/image/opening/volume_list.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "host/image/device/little_endian.h"
#include "support/image_folder.h"
#include "support/seed.h"

namespace vornalux::test {
namespace {

namespace fs = std::filesystem;

class VolumeList : public ImageFolder {
 protected:
  // A disk "sda", or a partition of it, "sda/sda1"; content is what is in its node, null for none.
  void Add(const std::string& name, const std::string& numbers, const Bytes* content,
           std::uint64_t bytes = 0) const {
    const fs::path folder = Path("sys/block/" + name);
    fs::create_directories(folder / "holders");
    fs::create_directories(Path("sys/dev/block"));
    fs::create_directories(Path("dev"));
    std::ofstream(folder / "dev") << numbers << "\n";
    std::ofstream(folder / "uevent") << "DEVNAME=" << folder.filename().string() << "\n";
    std::ofstream(folder / "size") << (content != nullptr ? content->size() : bytes) / 512 << "\n";
    if (name.find('/') != std::string::npos) std::ofstream(folder / "partition") << "1\n";
    if (content != nullptr) Put("dev/" + folder.filename().string(), *content);
    fs::create_directory_symlink(folder, Path("sys/dev/block/" + numbers));
  }

  // Each as "PATH FILE-SYSTEM LABEL SIZE FREE TURNS USE"; an asterisk after what can be worked on.
  std::vector<std::string> List() const {
    std::vector<std::string> lines;
    const std::string folder = Path("dev/");
    for (const ListedVolume& each :
         ListVolumes({Path("sys"), Path("dev"), Path("mounts"), Path("swaps")})) {
      EXPECT_TRUE(each.path.starts_with(folder)) << each.path;
      std::string line = each.path.substr(folder.size()) + " " + each.file_system +
                         (each.workable ? "* " : " ") + each.label + " " +
                         std::to_string(each.size) + " ";
      line += each.free ? "free" : "-";
      line += !each.rotational ? " -" : *each.rotational ? " turns" : " stands";
      for (const std::string& point : each.mounted) line += " " + point;
      if (!each.in_use.empty()) line += " " + each.in_use;
      if (!each.unreadable.empty()) line += " unreadable";
      lines.push_back(line);
    }
    return lines;
  }
};

TEST_F(VolumeList, TellsOfEachDiskAndPartitionWhatItCan) {
  Bytes fat = Fat();
  const Bytes ntfs = Ntfs();
  Add("sda", "8:0", nullptr, 1 << 30);
  fs::create_directory(Path("sys/block/sda/queue"));
  std::ofstream(Path("sys/block/sda/queue/rotational")) << "1\n";
  Add("sda/sda10", "8:10", &ntfs);
  Add("sda/sda2", "8:2", nullptr, 4096);  // not to be read, and mounted
  Add("sda/sda9", "8:9", nullptr, 8192);  // not to be read
  Add("sdb", "8:16", &fat);               // without partitions
  const Bytes zeros(4096);
  Add("sdc", "8:32", &zeros);
  Add("sr0", "11:0", nullptr, 0);  // no medium
  Add("zram0", "252:0", nullptr, 1 << 20);
  Run("truncate -s 8M ext4; mkfs.ext4 -q -L 'a b' ext4");
  const Bytes ext4 = Get("ext4");
  Add("sdd", "8:48", &ext4);
  fs::create_directory_symlink(Path("sys/block/sdc"), Path("sys/block/sdb/holders/sdc"));
  std::ofstream(Path("mounts")) << "1 0 8:2 / " << Path("") << " rw - vfat /dev/none rw\n"
                                << "2 0 8:48 / /no\\040where rw - ext4 none rw\n";
  std::ofstream(Path("swaps")) << "Filename Type Size Used Priority\n"
                               << Path("dev/sdc") << " partition 4 0 -2\n";
  const std::vector<std::string> expected = {
      "sda2 FAT*  4096 free turns " + Path("") + " unreadable",
      "sda9   8192 - turns unreadable",
      "sda10 NTFS*  2097152 free turns",
      "sdb FAT12*  1048576 free - " + Path("dev/sdc"),
      "sdc   4096 - - swap",
      "sdd ext4 a b 8388608 - - /no where"};
  EXPECT_EQ(List(), expected);
}

// Whatever stands in the blocks that are looked at, it is listed and nothing more.
TEST_F(VolumeList, SurvivesDamage) {
  TestRandom random;
  for (const Bytes& content : {Fat(), Ntfs()}) {
    const std::size_t cluster = content[0x0D] * std::size_t{512};
    const bool ntfs = content[3] == 'N';
    const std::size_t bitmap = LoadLittle<std::uint64_t>(content, 0x30) * cluster + 6 * 1024;
    for (int round = 0; round < 150; ++round) {
      Bytes damaged = content;
      for (int i = 0; i < 2; ++i) {
        const std::size_t place = (ntfs && round % 2 == 0 ? bitmap : 11) + random.Below(400U);
        damaged[place] = static_cast<std::uint8_t>(random.Below(256U));
      }
      Put("image", damaged);
      const auto volumes = ListImage(Path("image"));
      ASSERT_EQ(volumes.size(), 1U);
      ASSERT_LE(volumes[0].free.value_or(0), content.size());
    }
  }
}

}  // namespace
}  // namespace vornalux::test
