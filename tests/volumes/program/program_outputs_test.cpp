// SPDX-License-Identifier: GPL-2.0-or-later
// What the real program writes to besides its volumes: standard streams that are missing, files
// that are volumes, and those that cannot be written.
#include <signal.h>

#include <regex>
#include <string>

#include "support/loop_device.h"
#include "support/made_volume.h"
#include "support/setting.h"
#include "volumes/program/program_process.h"

namespace vornalux::test {
namespace {

using ProgramOutputsTest = MadeVolume;

TEST_F(ProgramOutputsTest, MissingStandardStreamsHarmNoVolume) {
  for (const char* recipe :
       {"ntfs size=8M files=60 fragmented=60%", "fat16 size=8M files=60 fragmented=60%"}) {
    Make(recipe);
    struct Case {
      Arguments arguments;
      bool moves;
      bool prints = true;
    };
    const Case kCases[] = {
        {{"analyze", image_, "--list"}, false},
        {{"map", image_, "--png", Path("map.png")}, false, false},
        {{"defrag", image_, "--dry-run", "--debug-log", Path("log")}, false},
        {{"defrag", image_, "--json"}, true},
        {{"optimize", image_, "--report", Path("report")}, true},
        {{"compact", image_}, true},
        {{"job", "--volume", "C=" + image_, "--", "/drv C: /d"}, true},
    };
    for (const Case& c : kCases) {
      for (int missing = 1; missing < 8; ++missing) {
        const bool no_output = (missing & 2) != 0;
        const std::string redirections = std::string(missing & 1 ? "<&- " : "") +
                                         (no_output ? ">&- " : "") + (missing & 4 ? "2>&-" : "");
        SCOPED_TRACE(recipe_ + ", " + ::testing::PrintToString(c.arguments) + redirections);
        Put("disk.img", before_);
        const ProgramEnd end = RunProgramBehind(redirections, c.arguments);
        EXPECT_EQ(end.code, no_output && c.prints ? 1 : 0) << end.err;
        if (no_output && c.prints && (missing & 4) == 0) {
          EXPECT_NE(end.err.find("standard output"), std::string::npos) << end.err;
        }
        ExpectWhole();
        EXPECT_EQ(Get("disk.img") == before_, !c.moves);
        if (HasFailure()) return;
      }
    }
  }
}

TEST_F(ProgramOutputsTest, APictureOrReportIsAllThatComesByStandardOutput) {
  Make("fat16 size=8M files=60 fragmented=60%");
  for (const std::string option : {"--png", "--report"}) {
    SCOPED_TRACE(option);
    const Arguments to_file = {"analyze", image_, option, Path("file")};
    ASSERT_EQ(RunProgram(to_file).code, 0);
    Put("kept", {'x'});
    const ProgramEnd end = RunProgramBehind(">>" + Path("kept"), {"analyze", image_, option, "-"});
    EXPECT_EQ(end.code, 0) << end.err;
    EXPECT_NE(end.err.find("Fragmented"), std::string::npos) << end.err;
    const Bytes kept = Get("kept");
    EXPECT_EQ(kept.front(), 'x');
    const Bytes file = Get("file");
    const auto timeless = [](auto begin, auto behind) {
      static const std::regex kTime("[^\n]* in all [^\n]*");
      return std::regex_replace(std::string(begin, behind), kTime, "");
    };
    EXPECT_EQ(timeless(kept.begin() + 1, kept.end()), timeless(file.begin(), file.end()));
  }
}

TEST_F(ProgramOutputsTest, NoOutputIsAVolumeOrAnotherOutput) {
  Make("fat16 size=8M files=60 fragmented=60%");
  Put("other.img", before_);
  Put("disk.img.vornalux-journal", {});
  Run("ln disk.img hard && ln -s disk.img soft && ln -s . folder && mkdir -p sub &&"
      " ln disk.img.vornalux-journal linked && ln -s disk.img.vornalux-journal mark");
  const std::string second = "D=" + Path("other.img");
  const Arguments job = {"job",
                         "--volume",
                         "C=" + image_,
                         "--volume",
                         second,
                         "--debug-log",
                         Path("folder/other.img"),
                         "--",
                         "/drv C: /d"};
  struct Case {
    Arguments arguments;
    std::string redirections;
    const char* says;
  };
  std::vector<Case> cases = {
      {job, "", "--debug-log"},
      {{"defrag", image_, "--png", Path("same"), "--report", Path("sub/../same")}, "", "--report"},
      {{"analyze", image_, "--report", Path("out")}, ">" + Path("out"), "standard output"},
      {{"analyze", image_}, "1<>" + image_, "Standard output"},
      {{"map", image_, "--png", "-"}, "1<>" + image_, "Standard output"},
      {{"analyze", image_, "--report", "-"}, ">" + Path("out") + " 2>&1", ""},
      {{"defrag", image_, "--dry-run"}, "2<>" + Path("soft"), ""},
      {{"defrag", Path("hard")}, ">/dev/null 2<>" + image_, ""},
      {{"defrag", image_, "--nonsense"}, "2<>" + image_, ""},
      {{"defrag", image_, "--help"}, "1<>" + image_, ""},
      {{"job", "--volume=C=" + image_, "--nonsense"}, "2<>" + image_, ""},
      {{"defrag", image_, "--nonsense"}, "2<>" + Path("linked"), ""},
      {{"job", "--volume", second, "--save-job", "name", "--", "/drv D: /d"},
       "1<>" + Path("other.img"),
       "Standard output"},
      {{"defrag", image_, "--debug-log", "/dev/random"}, "", "--debug-log"},
      {{"map", image_, "--png", "/proc/self/fd/7"}, "7<" + image_, "--png"},
      {{"compact", image_, "--report", "/dev/fd/7"}, "7<>" + image_, "--report"},
  };
  for (const char* name : {"disk.img", "hard", "soft", "folder/disk.img", "sub/../disk.img",
                           "disk.img.vornalux-journal", "linked", "mark", "x.vornalux-journal"}) {
    for (const char* option : {"--png", "--report", "--debug-log"}) {
      cases.push_back({{"defrag", image_, "--dry-run", option, Path(name)}, "", option});
    }
    cases.push_back({{"map", image_, "--png", Path("new"), "--debug-log", Path(name)}, "", name});
  }
  const Bytes other = Get("other.img");
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.arguments) + " " + c.redirections);
    const ProgramEnd end = RunProgramBehind(c.redirections, c.arguments);
    EXPECT_EQ(end.code, 2) << end.err;
    EXPECT_NE(end.err.find(c.says), std::string::npos) << end.err;
    EXPECT_EQ(Get("disk.img"), before_);
    EXPECT_EQ(Get("other.img"), other);
    EXPECT_TRUE(Exists("disk.img.vornalux-journal"));
    EXPECT_EQ(Get("disk.img.vornalux-journal"), Bytes());
    for (const char* made : {"new", "same", "x.vornalux-journal"}) EXPECT_FALSE(Exists(made));
    if (HasFailure()) return;
  }
}

TEST_F(ProgramOutputsTest, NoStreamIsTheFileBelowADeviceNorAMountedJournal) {
  Make("fat16 size=8M files=60 fragmented=60%");
  {
    const LoopDevice loop(image_);
    if (loop.Node().empty()) GTEST_SKIP() << "no loop devices";
    const Setting state("VORNALUX_STATE_DIR", Path("state"));
    for (const Arguments& line : {Arguments{"analyze", loop.Node()},
                                  {"defrag", loop.Node(), "--nonsense"},
                                  {"defrag", loop.Node()}}) {
      for (const char* stream : {"1<>", "2<>", "1>>", "2>>"}) {
        const ProgramEnd end = RunProgramBehind(stream + image_, line);
        EXPECT_EQ(end.code, 2) << end.err << stream << ::testing::PrintToString(line);
        EXPECT_EQ(Get("disk.img"), before_);
      }
    }
  }
  Put("disk.img.vornalux-journal", Bytes(512, 'j'));
  Put("map", {});
  Run("mount --bind disk.img.vornalux-journal map || rm map");
  if (!Exists("map")) GTEST_SKIP() << "nothing can be mounted";
  const ProgramEnd end = RunProgram({"map", image_, "--png", Path("map")});
  Run("umount map");
  EXPECT_EQ(end.code, 2) << end.err;
  EXPECT_EQ(Get("disk.img.vornalux-journal"), Bytes(512, 'j'));
}

TEST_F(ProgramOutputsTest, WhatCannotBeWrittenCostsNothingElse) {
  Make("fat16 size=8M files=60 fragmented=60%");
  const ProgramEnd end = RunProgram({"defrag", image_, "--quiet", "--png", "/dev/full", "--report",
                                     Path("report"), "--debug-log", "/dev/full"});
  EXPECT_EQ(end.code, 1);
  for (const char* option : {"--png /dev/full", "--debug-log /dev/full"}) {
    EXPECT_NE(end.err.find(option), std::string::npos) << end.err;
  }
  EXPECT_NE(end.err.find("No space left"), std::string::npos) << end.err;
  EXPECT_NE(end.out.find("Fragmented"), std::string::npos) << end.out;
  EXPECT_GT(Get("report").size(), 1000U);
  ExpectWhole();
}

TEST_F(ProgramOutputsTest, WhatIsTakenInPartIsToldAsThat) {
  Make("fat16 size=8M files=60 fragmented=60%");
  const std::tuple<Arguments, std::string, std::string> cases[] = {
      {{"analyze", image_}, "standard output", "Only a part"},
      {{"map", image_, "--png", Path("png")}, "--png", "Only a part"},
      {{"analyze", image_, "--report", Path("report")}, "--report", "Only a part"},
      {{"analyze", image_, "--debug-log", Path("log")}, "--debug-log", "Only a part"},
      {{"defrag", image_}, "its journal failed", "cannot write to the specified device"}};
  const Setting preload("LD_PRELOAD", VORNALUX_KILL_LIBRARY);
  const Setting order("ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0");
  const Setting takes("VORNALUX_TAKES", "30");
  for (const auto& [arguments, what, why] : cases) {
    const ProgramEnd end = RunProgram(arguments);
    EXPECT_EQ(end.code, 1);
    for (const std::string& says : {what, why}) {
      EXPECT_NE(end.err.find(says), std::string::npos) << says << "\n" << end.err;
    }
    EXPECT_EQ(Get("disk.img"), before_);
  }
}

TEST_F(ProgramOutputsTest, ARefusedRunLeavesItsOutputsAlone) {
  const Bytes old(5000, 'o');
  Put("old", old);
  Put("disk.img", Bytes(5000, 'x'));
  EXPECT_EQ(RunProgram({"analyze", image_, "--png", Path("old"), "--report", Path("new"),
                        "--debug-log", Path("log")})
                .code,
            3);
  EXPECT_EQ(Get("old"), old);
  EXPECT_FALSE(Exists("new") || Exists("log"));
  Run("script -qec '" VORNALUX_PROGRAM
      " map disk.img --png /dev/stdout' out </dev/null; test $? = 2");
  // What is written in the end is the whole content.
  Make("fat16 size=8M files=20");
  EXPECT_EQ(RunProgram({"analyze", image_, "--png", Path("old")}).code, 0);
  EXPECT_LT(Get("old").size(), old.size());
}

TEST_F(ProgramOutputsTest, AReaderThatHasSeenEnoughEndsTheOutputAndNothingElse) {
  Make("fat16 size=16M files=250 fragmented=100% fill=95%");
  const Arguments lines[] = {{"analyze", image_, "--list", "--quiet"},
                             {"defrag", image_, "--debug-log", "-", "--quiet"}};
  for (const Arguments& line : lines) {
    Program program(line);
    ASSERT_TRUE(program.ReadUntil("C:"));
    program.StopReading();
    const ProgramEnd end = program.Wait();
    EXPECT_EQ(end.signal, SIGPIPE) << end.err;
    EXPECT_EQ(end.err, "");
    ExpectWhole();
  }
  EXPECT_NE(Get("disk.img"), before_) << "the pass was to go on";
}

}  // namespace
}  // namespace vornalux::test
