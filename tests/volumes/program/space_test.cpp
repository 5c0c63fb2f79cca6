// SPDX-License-Identifier: GPL-2.0-or-later
// What users of images ask for after a run: an image that is no larger than what it holds, and a
// volume that can be made smaller.
#include <sys/stat.h>

#include <nlohmann/json.hpp>

#include "crash/kill_rig.h"
#include "support/loop_device.h"

namespace vornalux::test {
namespace {

using Json = nlohmann::ordered_json;

class SpaceTest : public VolumeAndCopies {
 protected:
  // With blocks for all of it.
  void MakeFull(const std::string& recipe) {
    Make(recipe);
    Put("work.img", Get("volume.img"));
  }
  std::uint64_t Stored() const {
    struct stat status {};
    EXPECT_EQ(::stat(Path("work.img").c_str(), &status), 0);
    return static_cast<std::uint64_t>(status.st_blocks) * 512;
  }
  Json Run(Arguments arguments, int code = 0) const {
    arguments.insert(arguments.begin() + 1, {"--json", "--quiet"});
    const ProgramEnd end = RunProgram(arguments);
    EXPECT_EQ(end.code, code) << end.err;
    return end.out.empty() ? Json() : Json::parse(end.out);
  }
};

TEST_F(SpaceTest, AnImageIsNoLargerThanItsContentAfterCompactAndTrim) {
  for (const char* recipe : {"ntfs size=48M files=400 fragmented=70% fill=50%",
                             "fat32 size=48M cluster=512 files=300 fragmented=70% fill=40%"}) {
    MakeFull(recipe);
    SCOPED_TRACE(recipe_);
    const std::string image = Path("work.img");
    const std::uint64_t full = Stored();
    const Json dry = Run({"compact", image, "--thorough", "--discard", "--dry-run"})["discard"];
    EXPECT_EQ(Get("work.img"), Get("volume.img"));
    const Json done = Run({"compact", image, "--thorough", "--discard"})["discard"];
    const CheckReport found = CheckVolume(image);
    const auto content = static_cast<std::uint64_t>(found.clusters_used) * found.cluster_size;
    // Tables in front of a FAT volume, and what its file system needs to remember the holes.
    EXPECT_LE(Stored(), content + 2 * kMebibyte);
    EXPECT_EQ(done["stored_after"], Stored());
    // Lists of extents count, too.
    EXPECT_NEAR(done["stored_before"].get<double>(), static_cast<double>(full), 65536);
    EXPECT_EQ(done["discarded_bytes"], dry["discarded_bytes"]);
    EXPECT_NEAR(done["given_back"].get<double>(), dry["given_back"].get<double>(), 65536);
    ExpectIntact(image, manifest_);
    EXPECT_EQ(Run({"trim", image})["discard"]["given_back"], 0);
    EXPECT_EQ(Run({"job", "--volume", "C=" + image, "--discard", "--",
                   "/drv C: /d"})["discard"]["given_back"],
              0);
    ExpectIntact(image, manifest_);
    if (HasFailure()) return;
  }
}

// A pass is done all the same; who asks for nothing else has got nothing.
TEST_F(SpaceTest, WhereFilesHaveNoHolesThatIsTold) {
  MakeFull("fat16 size=16M files=50 fragmented=50% fill=50%");
  const std::uint64_t full = Stored();
  const Meddling meddling("VORNALUX_NO_HOLES", "1");
  for (const auto& [arguments, code] :
       {std::pair(Arguments{"defrag", Path("work.img"), "--discard"}, 0),
        std::pair(Arguments{"trim", Path("work.img")}, 1)}) {
    const Json told = Run(arguments, code)["discard"];
    EXPECT_EQ(told["possible"], false);
    EXPECT_NE(told["note"], "");
    EXPECT_EQ(told["given_back"], 0);
  }
  const ProgramEnd text = RunProgram({"trim", Path("work.img")});
  EXPECT_NE(text.out.find("Free space was not given back: "), std::string::npos) << text.out;
  EXPECT_EQ(Stored(), full);
  ExpectIntact(Path("work.img"), manifest_);
}

// The lines that are told, run as they stand: the program takes the size, and every file is whole.
TEST_F(SpaceTest, OthersTakeTheSizeThatIsTold) {
  for (const auto& [recipe, option] :
       {std::pair{"ntfs size=64M files=500 fragmented=60% fill=50%", "--thorough"},
        {"ntfs size=64M files=500 fragmented=60% fill=50%", "--quiet"},
        {"ntfs size=48M cluster=512 files=300 shredded=3:600 streams=20% mft-pieces=4 fill=60%",
         "--thorough"},
        {"ntfs size=48M files=200 fill=40% partitioned=1", "--thorough"},
        {"fat16 size=64M files=100 fragmented=60% fill=30%", "--thorough"},
        {"fat32 size=300M cluster=2K files=9 fill=5%", "--quiet"}}) {
    MakeFull(recipe);
    SCOPED_TRACE(recipe_ + " " + option);
    const std::uint64_t offset = recipe_.find("partitioned") != std::string::npos ? kMebibyte : 0;
    if (offset != 0 && LoopDevice(Path("work.img")).Node().empty()) continue;
    const bool fat = recipe_.starts_with("fat");
    const Json told = Run({"compact", Path("work.img"), option})["smallest"];
    EXPECT_TRUE(!told.is_null() || option == std::string("--quiet"));
    if (told.is_null()) continue;
    const CheckReport before = CheckVolume(Path("work.img"), {.offset = offset});
    EXPECT_LT(told["bytes"], static_cast<std::uint64_t>(before.clusters) * before.cluster_size);
    std::string lines;
    for (const std::string line : told["commands"]) lines += line + "\n";
    Put("lines", Bytes(lines.begin(), lines.end()));
    ImageFolder::Run("yes | sh -e ./lines");
    const CheckReport report = CheckVolume(Path("work.img"), {.offset = offset, .hash = true});
    EXPECT_TRUE(report.Clean()) << report.ProblemText();
    EXPECT_TRUE(report.dirty || fat) << "for Windows to check, as ntfsresize wants it";
    EXPECT_EQ(CompareContent(report.items, manifest_), std::vector<std::string>());
    EXPECT_LE(static_cast<std::uint64_t>(report.clusters) * report.cluster_size, told["bytes"]);
    const std::uint64_t size = std::filesystem::file_size(Path("work.img"));
    EXPECT_TRUE(offset != 0 || size / 512 == (told["bytes"].get<std::uint64_t>() + 511) / 512);
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace vornalux::test
