// SPDX-License-Identifier: GPL-2.0-or-later
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "host/terminal/command_line/file_list.h"
#include "host/terminal/command_line/options.h"
#include "host/terminal/session/terminal_platform.h"

namespace vornalux {
namespace {

struct Parsed {
  Options options;
  std::istringstream in{"\uFEFFa\\b\r\n\n/c\n"};
  std::ostringstream out, err;
  std::optional<ExitCode> end;
};

Parsed Parse(const std::vector<std::string>& arguments) {
  Parsed parsed;
  parsed.end = ParseOptions(arguments, parsed.options, parsed.out, parsed.err, parsed.in);
  return parsed;
}

// '' is an empty word.
Parsed ParseWords(const std::string& line) {
  std::istringstream text(line);
  std::vector<std::string> words(std::istream_iterator<std::string>(text), {});
  std::ranges::replace(words, "''", "");
  return Parse(words);
}

TEST(TerminalOptions, RefusesWhatMakesNoSense) {
  std::istringstream lines(
      R"(mend a.img | analyze | analyze a.img --drive CD | analyze a.img --drive 1 |
analyze a.img --drive '' | analyze a.img --partition 0 | analyze a.img --offset -1 |
analyze a.img --offset 99999999999999999999 | analyze a.img --offset 99999999999T |
analyze a.img --directory D:\x | analyze a.img --windows-dir Windows |
analyze a.img --json --debug-log - | analyze a.img --seed -1 |
analyze a.img --drop-restore-points | defrag a.img --list | optimize a.img --file a |
defrag a.img --file D:\a | defrag a.img --file / | defrag a.img --file --dry-run |
defrag a.img --file a --directory b | defrag a.img --file a --exclude iso |
analyze a.img --file a --classes | defrag a.img --max-rate 0 | defrag a.img --max-rate 5X |
defrag a.img --max-rate -1 | analyze a.img --discard | trim a.img --max-rate 1M | trim |
defrag a.img --report --dry-run | job --volume C=a.img | job -- /drv C: /d |
job --volume a.img -- /d | job --volume C= -- /d | job --volume CC=a.img -- /d |
job --volume C=a.img --volume c:=b.img -- /d | job --volume C=a.img /drv C: /d |
job --volume C=a --volume D=b --partition 1 -- /d | job --volume C=a --directory x -- /d |
analyze '' | trim '' | list '' | list a.img '')");
  for (std::string line; std::getline(lines >> std::ws, line, '|');) {
    const Parsed parsed = ParseWords(line);
    EXPECT_EQ(parsed.end, ExitCode::Usage) << line;
    EXPECT_FALSE(parsed.err.str().empty()) << line;
    EXPECT_EQ(parsed.out.str(), "") << line;
  }
  for (const auto& [line, says] : {
           std::pair{"", "a command comes first: analyze, "},
           {"--quiet", "a command comes first: analyze, "},
           {"defrg a.img", "no command defrg; did you mean defrag?\n"},
           {"frobnicate a.img", "no command frobnicate\n"},
           {"optimize a.img --thorogh", "no option --thorogh\n"},
           {"defrag a.img --thorogh", "no option --thorogh; did you mean --thorough?\n"},
           {"defrag a.img --max=1M", "no option --max; did you mean --max-move?\n"},
           {"analyze a.img --dir x", "no option --dir; did you mean --directory?\n"},
           {"job --volume C=a b.img -- /d", "does not take b.img\n"},
           {"analyze a.img b.img --png x", "--png: one picture shows one image"},
           {"analyze a.img b.img --partition 1", "only with a single image"},
           {"analyze a.img b.img --file x", "only with a single image"},
           {"analyze a.img --log -", "--log: goes into a file"},
           {"analyze a.img --offset 1q", "1q is no size"},
           {"defrag a.img --exclude *.b?n", "*.b?n leaves out nothing"},
           {"defrag a.img --exclude iso;a.tar.gz", "a.tar.gz leaves out nothing"},
           {"defrag a.img --exclude ;;", "there is no extension in \";;\""},
           {"defrag a.img --exclude --dry-run", "--exclude: --dry-run is an option"},
           {"defrag a.img --directory= --dry-run", "--directory: --dry-run is an option"},
           {"job --volume C=a --save-job --dry-run -- /d", "--save-job: --dry-run is an option"},
           {"analyze a.img --partition x", "--partition: x is no partition's number"},
           {"analyze a.img --partition 1 --partition 2", "--partition is given more than once"},
           {"analyze a.img --partition", "--partition needs a value behind it"},
           {"analyze a.img --partition 1 --offset 0",
            "--partition and --offset do not go together"},
           {"analyze a.img --png - --json", "--json, --png -: both"},
           {"analyze a.img --png - --report -", "--png -, --report -: both"},
       }) {
    const Parsed parsed = ParseWords(line);
    EXPECT_EQ(parsed.end, ExitCode::Usage) << line;
    EXPECT_TRUE(parsed.err.str().starts_with("vornalux: ")) << parsed.err.str();
    EXPECT_NE(parsed.err.str().find(says), std::string::npos) << parsed.err.str();
  }
  for (const char* line : {"--help", "--version", "analyze --help", "job --help"}) {
    const Parsed parsed = ParseWords(line);
    EXPECT_EQ(parsed.end, ExitCode::Done) << line;
    EXPECT_FALSE(parsed.out.str().empty()) << line;
  }
}

TEST(TerminalOptions, TakesVolumeAndFolder) {
  const Parsed parsed = ParseWords(
      "defrag disk.img --drive d: --directory D:/Users\\bob\\ --offset 1M --windows-dir '' "
      "--seed 18446744073709551615 --exclude *.iso");
  ASSERT_EQ(parsed.end, std::nullopt) << parsed.err.str();
  const Options& options = parsed.options;
  EXPECT_EQ(options.command, Command::Pass);
  ASSERT_EQ(options.volumes.size(), 1u);
  EXPECT_EQ(options.volumes[0].letter, 'D');
  EXPECT_EQ(options.volumes[0].image, "disk.img");
  EXPECT_EQ(options.directory, "Users\\bob");
  EXPECT_EQ(options.offset, 1048576u);
  EXPECT_EQ(options.windows_folder, "");
  EXPECT_EQ(options.seed, 18446744073709551615u);
  EXPECT_EQ(options.pass, Pass::Defrag);
  EXPECT_EQ(ParseWords("map x --png y --partition 010").options.partition, 10);
  EXPECT_EQ(ParseWords("analyze x --seed 010").options.seed, 10U);
  EXPECT_EQ(ParseWords("defrag x --exclude iso,.VHD;*.tmp").options.exclude, "*.iso; *.VHD; *.tmp");
  for (const std::string size : {"1048576", "1024k", "1m", "1MB", "1MiB"})
    EXPECT_EQ(ParseWords("analyze x --offset " + size).options.offset, 1048576U) << size;
  EXPECT_EQ(ParseWords("optimize x").options.pass, Pass::Optimize);
  EXPECT_EQ(ParseWords("compact x").options.pass, Pass::Compact);
  EXPECT_EQ(ParseWords("analyze x").options.windows_folder, std::nullopt);
}

// The list that is read is in Parsed.
TEST(TerminalOptions, TakesFilesAndListsOfThem) {
  const std::vector<std::string> files = {"C:\\x y\\z", "C:\\a\\b", "C:\\c", "C:\\--q"};
  EXPECT_EQ(
      Parse({"defrag", "x", "--file", "c:/x y//z", "--file", "-", "--file=./--q"}).options.files,
      files);
  EXPECT_EQ(SplitPathList(std::string("a\nb\r\0c\0\0", 8)),
            (std::vector<std::string>{"a\nb\r", "c"}));
  EXPECT_EQ(ParseWords("defrag x --file - --file -").options.files.size(), 2U);
}

// Each thread has its own.
TEST(TerminalOptions, GivesWayToOtherPrograms) {
  for (const bool disk_too : {false, true}) {
    std::thread([disk_too] {
      const long before = syscall(SYS_ioprio_get, 1, 0);
      GiveWay(disk_too);
      EXPECT_EQ(getpriority(PRIO_PROCESS, 0), 19);
      EXPECT_EQ(syscall(SYS_ioprio_get, 1, 0) >> 13, disk_too ? 3 : before >> 13);
    }).join();
  }
  EXPECT_EQ(ParseWords("defrag x --low --idle").end, ExitCode::Usage);
  EXPECT_TRUE(ParseWords("job --volume C=x --idle -- /d").options.idle);
  EXPECT_EQ(ParseWords("job --volume C=x --max-rate 20m -- /d").options.max_rate, 20U << 20);
  // Whoever starts a job has the last word, whatever its line says.
  std::thread([] {
    TerminalPlatform platform(1);
    GiveWay(false);
    platform.StayLow();
    for (const auto each : {priority::kNormal, priority::kAboveNormal}) {
      EXPECT_EQ(platform.SetPriorityClass(each), priority::kIdle);
    }
    EXPECT_EQ(getpriority(PRIO_PROCESS, 0), 19);
  }).join();
}

TEST(TerminalOptions, HandsTheJobLineOnAsItIs) {
  const std::pair<std::vector<std::string>, const char*> kCases[] = {
      {{"/drv C: /d"}, "/drv C: /d"},
      {{"/drv", "C:", "/d"}, "/drv C: /d"},
      {{"/dir", "C:\\my files", "/d"}, "/dir \"C:\\my files\" /d"},
      {{" /d  /o "}, " /d  /o "},
      {{"/d", "", "/o"}, "/d  /o"},
      {{"/d", "--", "--json", "-d"}, "/d -- --json -d"},
      {{"\"C:\\a b\""}, "\"C:\\a b\""},
      {{}, ""},
  };
  for (const auto& [arguments, tail] : kCases) {
    std::vector<std::string> line = {"job",      "--json", "--volume", "C=a.img",
                                     "--volume", "d:=b=c", "--"};
    line.insert(line.end(), arguments.begin(), arguments.end());
    const Parsed parsed = Parse(line);
    ASSERT_EQ(parsed.end, std::nullopt) << parsed.err.str();
    EXPECT_EQ(parsed.options.job_tail, tail);
    EXPECT_EQ(parsed.options.command, Command::Job);
    ASSERT_EQ(parsed.options.volumes.size(), 2u);
    EXPECT_EQ(parsed.options.volumes[1].letter, 'D');
    EXPECT_EQ(parsed.options.volumes[1].image, "b=c");
  }
}

}  // namespace
}  // namespace vornalux
