// SPDX-License-Identifier: GPL-2.0-or-later
// `vornalux list`: the figures are those of an analysis, and what it prints can be typed.
#include <fcntl.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "support/loop_device.h"
#include "support/made_volume.h"
#include "support/setting.h"
#include "volumes/program/program_process.h"

namespace vornalux::test {
namespace {

using Json = nlohmann::ordered_json;

class ListTest : public MadeVolume {
 protected:
  Json List(const Arguments& more) const {
    const ProgramEnd end = RunProgram(And({"list", "--json"}, more));
    EXPECT_EQ(end.code, 0) << end.err;
    return Json::parse(end.out)["volumes"];
  }
};

TEST_F(ListTest, FreeSpaceIsWhatAnAnalysisFinds) {
  for (const char* recipe :
       {"ntfs size=32M files=200 fill=50%", "fat12 size=2M files=20 fill=50%",
        "fat16 size=16M files=50 fill=30%", "fat32 size=64M cluster=512 files=100 fill=40%"}) {
    Make(recipe);
    SCOPED_TRACE(recipe_);
    const Json listed = List({image_});
    const Json analyzed = Json::parse(RunProgram({"analyze", image_, "--json"}).out);
    ASSERT_EQ(listed.size(), 1U);
    EXPECT_EQ(listed[0]["free_bytes"], analyzed["free_clusters"].get<std::uint64_t>() *
                                           analyzed["cluster_bytes"].get<std::uint64_t>());
    EXPECT_EQ(listed[0]["bytes"], before_.size());
    std::string kind = listed[0]["file_system"];
    for (char& c : kind) c = static_cast<char>(std::tolower(c));
    EXPECT_EQ(kind, recipe_.substr(0, recipe_.find(' ')));
  }
  // FAT32 without a count that can be believed: the table tells.
  const Json free = List({image_})[0]["free_bytes"];
  Run("printf '\\377\\377\\377\\377' | dd of=disk.img bs=1 seek=1000 conv=notrunc");
  EXPECT_EQ(List({image_})[0]["free_bytes"], free);
}

TEST_F(ListTest, WhatItPrintsCanBeTyped) {
  Put("a b.img", Bytes(16 * kMebibyte));
  Run("printf '2048,4096,6\\n8192,,5\\n8300,4096,6\\n14000,4096,L\\n' | sfdisk -q 'a b.img';"
      "truncate -s 2M fat ext4; mkfs.fat -n ONE fat; mkfs.ext4 -q ext4; for at in 2048 8300; do "
      "dd if=fat of='a b.img' seek=$at conv=notrunc; done;"
      "dd if=ext4 of='a b.img' seek=14000 conv=notrunc");
  const ProgramEnd end = RunProgram({"list", Path("a b.img")});
  EXPECT_EQ(end.code, 0) << end.err;
  for (const int partition : {1, 5}) {
    const std::string number = std::to_string(partition);
    EXPECT_NE(
        end.out.find("'" + Path("a b.img") + "' --partition " + number + "  FAT12        ONE"),
        std::string::npos)
        << end.out;
    EXPECT_EQ(RunProgram({"analyze", Path("a b.img"), "--partition", number}).code, 0);
  }
  const Json json = List({Path("a b.img")});
  ASSERT_EQ(json.size(), 3U) << json;
  EXPECT_EQ(json[1]["offset"], 8300 * 512);
  EXPECT_EQ(json[2]["file_system"], "ext4");
  EXPECT_EQ(json[2]["workable"], false);
  const int locked = ::open(Path("a b.img").c_str(), O_RDONLY | O_CLOEXEC);
  struct flock lock {};
  lock.l_type = F_RDLCK;
  EXPECT_EQ(::fcntl(locked, F_OFD_SETLK, &lock), 0);
  EXPECT_EQ(List({Path("a b.img")})[2]["in_use"], "by another program");
  ::close(locked);
}

TEST_F(ListTest, DevicesOfThisMachineAreFound) {
  Put("fat", Fat());
  const LoopDevice device(Path("fat"));
  if (device.Node().empty()) GTEST_SKIP() << "no loop devices here";
  const auto find = [&](const Arguments& more) {
    Json found;
    for (const Json& volume : List(more)) {
      if (volume["path"] == device.Node()) found = volume;
    }
    return found;
  };
  EXPECT_EQ(find({})["file_system"], "FAT12");
  EXPECT_EQ(find({device.Node()}), find({}));
  const std::string attached = List({Path("fat")})[0]["in_use"];
  EXPECT_EQ(attached, "attached to " + device.Node());
  Put("fat", Bytes(kMebibyte));
  EXPECT_EQ(find({}), Json());
  EXPECT_EQ(find({"--all"})["workable"], false);
  // Partitions that the system has not made devices of.
  Run("printf '64,,6\\n' | sfdisk -q --force fat; mkfs.fat --offset 64 fat 900");
  EXPECT_EQ(find({})["partition"], 1);
  EXPECT_EQ(find({})["workable"], true);
}

TEST_F(ListTest, WhatCannotBeLookedAtIsTold) {
  Put("fat", Fat());
  Put("packed.gz", {0x1F, 0x8B, 8});
  Run("head -c 200 /dev/zero >> packed.gz");
  // A line has its path in full, so that no "-" is at its begin.
  const std::string relative = std::filesystem::relative(Path("packed.gz"));
  for (const auto& [path, says] : {std::pair{Path("missing"), "No such file"},
                                   {Path(""), "is a folder"},
                                   {std::string("/dev/null"), "neither a file nor"},
                                   {relative, "gzip -dc /"}}) {
    const ProgramEnd end = RunProgram({"list", path, Path("fat")});
    EXPECT_EQ(end.code, 3) << path;
    EXPECT_NE(end.err.find(says), std::string::npos) << end.err;
    EXPECT_NE(end.out.find("FAT12"), std::string::npos) << "the other is listed all the same";
  }
  const Setting preload("LD_PRELOAD", VORNALUX_KILL_LIBRARY);
  const Setting order("ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0");
  const Setting bad("VORNALUX_BAD_BYTES", "0:512");
  EXPECT_EQ(RunProgram({"list", Path("fat")}).code, 1);
}

}  // namespace
}  // namespace vornalux::test
