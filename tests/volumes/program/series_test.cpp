// SPDX-License-Identifier: GPL-2.0-or-later
// Several volumes in one command, and the log that runs append to.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

#include "support/loop_device.h"
#include "support/made_volume.h"
#include "volumes/program/program_process.h"

namespace vornalux::test {
namespace {

using Json = nlohmann::ordered_json;

class Series : public MadeVolume {
 protected:
  // disk.img, another volume, and one that is marked dirty.
  void SetUp() override {
    Make("fat16 size=16M files=40 fragmented=60% fill=60%");
    Bytes dirty = before_;
    dirty[0x25] |= 1;
    Put("dirty.img", dirty);
    MakeVolume("ntfs size=32M files=60 fragmented=60% fill=60% seed=2", other_);
  }
  std::string Text(const std::string& name) const {
    const Bytes bytes = Get(name);
    return {bytes.begin(), bytes.end()};
  }

  const std::string other_ = Path("other.img");
};

TEST_F(Series, EachHasItsTurnAndTheWorstCounts) {
  const Arguments all = {image_, Path("dirty.img"), Path("none"), other_, "--quiet"};
  const Arguments log = {"--log", Path("log"), "--report", Path("report.html")};
  ProgramEnd end = RunProgram(And(And({"defrag", "--json", "--dry-run"}, all), log));
  EXPECT_EQ(end.code, 3) << end.err;
  const Json results = Json::parse(end.out);
  ASSERT_EQ(results.size(), 4U);
  for (std::size_t i = 0; i < results.size(); ++i) {
    const Json& each = results[i];
    EXPECT_EQ(each["image"], all[i]);
    const bool done = each["exit_code"] == 0;
    EXPECT_EQ(each["error"].is_null(), done);
    if (!done) continue;
    // What it gives alone.
    Json alone = Json::parse(RunProgram({"defrag", "--json", "--dry-run", all[i]}).out);
    Json here = each["result"];
    for (Json* json : {&alone, &here}) json->erase("seconds");
    EXPECT_EQ(here, alone);
  }
  EXPECT_EQ(results[1]["exit_code"], 0);  // a dry run only looks
  EXPECT_EQ(results[2]["exit_code"], 3);
  const std::string report = Text("report.html");
  for (const std::string& image : {image_, other_}) {
    EXPECT_NE(report.find(image), std::string::npos);
  }

  end = RunProgram(And(And({"defrag"}, all), log));
  EXPECT_EQ(end.code, 3) << end.err;
  EXPECT_NE(end.out.find("4 volumes, 2 done\n"), std::string::npos) << end.out;
  ExpectWhole();
  EXPECT_EQ(RunProgram({"analyze", image_, other_}).code, 0);

  // Two runs, one behind the other, each line with its time.
  std::istringstream lines(Text("log"));
  const std::regex form(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d{4} \[\d+\] .+)");
  int begun = 0;
  int ended = 0;
  for (std::string line; std::getline(lines, line);) {
    EXPECT_TRUE(std::regex_match(line, form)) << line;
    begun += line.find("] vornalux defrag ") != std::string::npos ? 1 : 0;
    ended += line.ends_with("] ended with exit code 3") ? 1 : 0;
  }
  EXPECT_EQ(begun, 2);
  EXPECT_EQ(ended, 2);
  EXPECT_NE(Text("log").find("is marked dirty"), std::string::npos);
}

TEST_F(Series, OneVolumeByTwoNamesIsRefusedBeforeAnythingRuns) {
  std::filesystem::create_symlink("disk.img", Path("link"));
  std::filesystem::create_hard_link(image_, Path("hard"));
  for (const std::string& name : {Path("link"), Path("hard"), Path("./disk.img")}) {
    const ProgramEnd end = RunProgram({"defrag", other_, image_, name, "--log", Path("log")});
    EXPECT_EQ(end.code, 2);
    EXPECT_NE(end.err.find("are the same volume"), std::string::npos) << end.err;
    EXPECT_EQ(end.out, "");
  }
  EXPECT_EQ(Get("disk.img"), before_);
  EXPECT_NE(Text("log").find("are the same volume"), std::string::npos);
  const LoopDevice loop(image_);
  if (loop.Node().empty()) GTEST_SKIP() << "no loop devices";
  EXPECT_EQ(RunProgram({"analyze", other_, image_, loop.Node()}).code, 2);
}

TEST_F(Series, ALogIsNeverAVolumeAndRunsShareIt) {
  const Bytes other = Get("other.img");
  for (const std::string& log :
       {image_, other_, Path("disk.img.vornalux-journal"), std::string("-"), Path("")}) {
    EXPECT_EQ(RunProgram({"defrag", image_, "--log", log}).code, 2) << log;
  }
  EXPECT_EQ(RunProgram({"analyze", image_, "--log", Path("a"), "--report", Path("a")}).code, 2);
  EXPECT_EQ(Get("disk.img"), before_);
  EXPECT_EQ(Get("other.img"), other);
  EXPECT_FALSE(Exists("a"));
  // The first one holds the log while the second one writes to it: what it prints is more than a
  // pipe takes.
  Make("fat16 size=16M files=250 fragmented=100% pieces=8 fill=95%");
  Program first({"job", "--volume", "C=" + image_, "--log", Path("log"), "--", "/drv C: /d /dbg"});
  ASSERT_TRUE(first.ReadUntil("total clusters"));
  EXPECT_EQ(RunProgram({"analyze", other_, "--log", Path("log")}).code, 0);
  EXPECT_EQ(RunProgram({"analyze", other_, "--report", Path("log")}).code, 2);
  // A pipe whose reader has gone took nothing.
  Run("mkfifo \"it's\"");
  const int reader = ::open(Path("it's").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  Program second(
      {"job", "--volume", "C=" + other_, "--log", Path("it's"), "--", "/drv C: /d /dbg"});
  ASSERT_TRUE(second.ReadUntil("total clusters"));
  std::string begun(4096, '\0');
  EXPECT_GT(::read(reader, begun.data(), begun.size()), 0);
  EXPECT_NE(begun.find("it'\\''s' -- '/drv C: /d /dbg' (version"), std::string::npos) << begun;
  ::close(reader);
  EXPECT_EQ(second.Wait().code, 1);
  EXPECT_EQ(first.Wait().code, 0);
  const std::string text = Text("log");
  EXPECT_LT(text.find("] vornalux job"), text.find("] vornalux analyze"));
  EXPECT_TRUE(text.ends_with("ended with exit code 0\n"));
}

}  // namespace
}  // namespace vornalux::test
