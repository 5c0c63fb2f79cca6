// SPDX-License-Identifier: GPL-2.0-or-later
// The real program on disks that cannot be read: it never takes what it could not see for what is
// not there, and loses nothing.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

#include "crash/kill_rig.h"

namespace vornalux::test {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::uint64_t kRunsOfEachKind = 25;

std::vector<std::int64_t> LcnsOf(const CheckedItem& item) {
  std::vector<std::int64_t> lcns;
  for (const CheckedExtent& extent : item.extents) lcns.push_back(extent.lcn);
  return lcns;
}

// Where the first cluster lies, bytes.
std::uint64_t FirstCluster(const Bytes& volume, const CheckReport& report) {
  if (report.file_system == "NTFS") return 0;
  const auto word = [&](std::size_t at) { return volume[at] | std::uint64_t{volume[at + 1]} << 8; };
  return word(11) * (word(14) + volume[16] * word(22)) + word(17) * 32;
}

class ReadTest : public VolumeAndCopies, public testing::WithParamInterface<const char*> {
 protected:
  ReadTest() { Make(GetParam()); }

  Arguments Line(const char* command) const {
    return {command, Path("work.img"), "--quiet", "--json"};
  }

  ProgramEnd RunWith(const std::string& name, const std::string& value, const char* command) const {
    Copy();
    const Meddling meddling(name.c_str(), value);
    return RunProgram(Line(command));
  }

  // What a sound disk gives, and how often it is read for that.
  std::size_t RunWhole(const char* command, Json& result) const {
    Copy();
    std::string out;
    const std::size_t reads = CountEvents(Line(command), Path("count"), &out).reads;
    result = Json::parse(out);
    return reads;
  }

  // Each way to fail with its number, spread over the run.
  std::set<std::pair<std::string, std::uint64_t>> Failures(std::uint64_t reads) const {
    std::set<std::pair<std::string, std::uint64_t>> failures;
    Random random(seed_);
    for (std::uint64_t i = 0; i < kRunsOfEachKind; ++i) {
      const std::uint64_t from = 1 + i * reads / kRunsOfEachKind;
      const std::uint64_t span = std::max<std::uint64_t>(reads / kRunsOfEachKind, 1);
      for (const char* name : {"VORNALUX_FAIL_READ", "VORNALUX_FAIL_READS"}) {
        failures.insert({name, std::min(reads, from + Below(random, span))});
      }
    }
    return failures;
  }
};

TEST_P(ReadTest, NoSickDiskLooksHealthyAndNoFileIsLost) {
  for (const char* command : {"analyze", "optimize", "trim"}) {
    const bool looks = command[0] == 'a';
    Json whole;
    const std::size_t reads = RunWhole(command, whole);
    ASSERT_GT(reads, 10U) << recipe_;
    for (const auto& [name, number] : Failures(reads)) {
      SCOPED_TRACE(Where(command + (" " + name + " " + std::to_string(number))));
      const ProgramEnd end = RunWith(name, std::to_string(number), command);
      EXPECT_TRUE(end.code == 0 || end.code == 1 || end.code == 3) << end.code;
      EXPECT_EQ(end.err == "", end.code == 0) << end.err;
      EXPECT_TRUE(end.code != 3 || end.err.find("work.img") != std::string::npos) << end.err;
      if (looks) {
        const Json result = end.code == 3 ? whole : Json::parse(end.out);
        const bool told = end.code == 3 || !result["unreadable"].empty() ||
                          end.err.find("is not worked out") != std::string::npos;
        EXPECT_TRUE(end.code == 0 ? result == whole : told) << end.out;
        EXPECT_EQ(Get("work.img"), Get("volume.img"));
      } else {
        EXPECT_EQ(RunProgram({"analyze", Path("work.img"), "--quiet"}).code, 0);
        ExpectIntact(Path("work.img"), manifest_);
      }
      if (HasFailure()) return;
    }
  }
}

// The content of one file is lost: it stays in its place, is told, and all others are done.
TEST_P(ReadTest, AFileThatCannotBeCopiedStaysAloneWhereItIs) {
  Json whole;
  RunWhole("defrag", whole);
  const auto others = whole["after"]["fragmented"].get<int>();
  const CheckReport report = CheckVolume(Path("volume.img"), {});
  const std::uint64_t first = FirstCluster(Get("volume.img"), report);
  int tried = 0;
  for (const CheckedItem& item : report.items) {
    if (item.is_folder || !item.stream.empty() || item.extents.size() < 2) continue;
    if (++tried > 5) break;
    SCOPED_TRACE(Where(item.path));
    const std::uint64_t bad =
        first + static_cast<std::uint64_t>(item.extents[0].lcn) * report.cluster_size;
    const ProgramEnd end = RunWith("VORNALUX_BAD_BYTES",
                                   std::to_string(bad) + ":" + std::to_string(bad + 512), "defrag");
    EXPECT_EQ(end.code, 1) << end.err;
    const Json result = Json::parse(end.out);
    ASSERT_EQ(result["unreadable"].size(), 1U) << end.out;
    std::string path = "C:" + item.path;
    std::replace(path.begin(), path.end(), '/', '\\');
    EXPECT_EQ(result["unreadable"][0]["path"], path);
    EXPECT_TRUE(std::any_of(result["not_moved"].begin(), result["not_moved"].end(),
                            [&](const Json& stayed) { return stayed["path"] == path; }));
    EXPECT_LE(result["after"]["fragmented"], others + 1);
    const CheckReport after = CheckVolume(Path("work.img"), {});
    EXPECT_EQ(LcnsOf(*after.Find(item.path)), LcnsOf(item));
    ExpectIntact(Path("work.img"), manifest_);
    if (HasFailure()) return;
  }
  EXPECT_GT(tried, 2);
}

TEST_P(ReadTest, WhatTakesNoCopyIsToldAndCostsNoFile) {
  const std::size_t eighth = Get("volume.img").size() / 8;
  const std::string full = std::to_string(5 * eighth) + ":" + std::to_string(7 * eighth);
  const ProgramEnd end = RunWith("VORNALUX_FULL_BYTES", full, "defrag");
  EXPECT_EQ(end.code, 1) << end.err;
  EXPECT_NE(end.err.find("not enough space"), std::string::npos) << end.err;
  EXPECT_GT(Json::parse(end.out)["moves"], 0) << "the others are moved all the same";
  // With room again a commit that had none is finished.
  EXPECT_EQ(RunProgram({"analyze", Path("work.img"), "--quiet"}).code, 0);
  ExpectIntact(Path("work.img"), manifest_);
}

// What has slid already goes back when the rest cannot be read.
using SlideTest = VolumeAndCopies;
TEST_F(SlideTest, GoesBackFromWhereItCannotGoOn) {
  Make("fat16 size=16M cluster=512 files=1 folders=1 fill=70%");
  const CheckReport report = CheckVolume(Path("volume.img"), {});
  const CheckedItem& file = *std::ranges::max_element(
      report.items, {},
      [](const CheckedItem& item) { return item.extents.empty() ? 0 : item.extents.back().count; });
  const CheckedExtent& last = file.extents.back();
  const std::uint64_t bad = FirstCluster(Get("volume.img"), report) +
                            static_cast<std::uint64_t>(last.lcn + last.count - 1) * 512;
  Copy();
  const Meddling meddling("VORNALUX_BAD_BYTES",
                          std::to_string(bad) + ":" + std::to_string(bad + 512));
  const ProgramEnd end =
      RunProgram({"compact", Path("work.img"), "--thorough", "--quiet", "--json"});
  EXPECT_EQ(end.code, 1) << end.err;
  EXPECT_EQ(Json::parse(end.out)["refused"], 1);
  EXPECT_EQ(LcnsOf(*CheckVolume(Path("work.img"), {}).Find(file.path)), LcnsOf(file));
  ExpectIntact(Path("work.img"), manifest_);
}

INSTANTIATE_TEST_SUITE_P(
    Disks, ReadTest,
    testing::Values("ntfs size=8M files=80 folders=12 fragmented=60% fragmented-folders=50% "
                    "streams=20% windows=1 fill=50%",
                    "fat16 size=8M files=80 folders=12 fragmented=60% fill=50%"),
    [](const auto& param) { return FileSystemOf(param.param); });

}  // namespace
}  // namespace vornalux::test
