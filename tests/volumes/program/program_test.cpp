// SPDX-License-Identifier: GPL-2.0-or-later
// The real program on real volumes: exit codes, results, the job line, and what is left behind when
// it is stopped or killed.
#include <signal.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>

#include "support/made_volume.h"
#include "volumes/program/program_process.h"

namespace vornalux::test {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kNtfs =
    "ntfs size=32M files=400 folders=30 fragmented=60% fill=70% windows=1";
constexpr const char* kFat32 = "fat32 size=64M cluster=512 files=300 fragmented=60% fill=60%";
// So full that nearly every file is moved in pieces, each a line in the debug log.
constexpr const char* kFull = "fat16 size=16M files=250 fragmented=100% pieces=8 fill=95%";

class ProgramTest : public MadeVolume {
 protected:
  // Of a whole volume's analysis, a folder's must give what lies below it, under another letter
  // too.
  void ExpectFolderAlone(const Json& whole) const {
    std::set<std::string> below;
    std::string folder;
    for (const Json& file : whole["fragmented_files"]) {
      const std::string path = file["path"].get<std::string>().substr(3);
      if (folder.empty()) folder = path.substr(0, path.find('\\') + 1);
      if (!folder.empty() && path.starts_with(folder)) below.insert("X:\\" + path);
    }
    ASSERT_FALSE(folder.empty()) << recipe_;
    const ProgramEnd end =
        RunProgram({"analyze", image_, "--json", "--list", "--drive", "X", "--directory", folder});
    ASSERT_EQ(end.code, 0) << end.err;
    const Json result = Json::parse(end.out);
    EXPECT_LT(result["total_files"], whole["total_files"]);
    std::set<std::string> found;
    for (const Json& file : result["fragmented_files"]) found.insert(file["path"]);
    EXPECT_EQ(found, below) << recipe_;
  }

  // Nothing lies beside the image that was not there before.
  void ExpectNothingLeftBehind() const {
    for (const auto& entry : std::filesystem::directory_iterator(Path(""))) {
      EXPECT_EQ(entry.path().filename(), "disk.img");
    }
  }
};

const std::vector<std::string> kFigureKeys = {
    "total_files",         "total_dirs",     "fragmented",     "fragments",
    "max_per_file",        "move_out_files", "optimize_files", "dirs_to_move",
    "prefetch_files",      "locked_files",   "total_clusters", "free_clusters",
    "sectors_per_cluster", "reserved_front", "optimize_area",  "mft_zone"};

TEST_F(ProgramTest, ExitCodesSayWhatWentWrong) {
  Make("fat16 size=16M files=20");
  Put("text", Bytes(5000, 'x'));
  Put("empty", {});
  Bytes dirty = before_;
  dirty[0x25] |= 1;  // the boot sector's mark
  Put("dirty.img", dirty);
  const std::string dirty_volume = "C=" + Path("dirty.img");
  const std::string volume = "C=" + image_;
  struct Case {
    Arguments arguments;
    int code;
    const char* says;
  };
  const Case kCases[] = {
      {{"analyze", image_}, 0, ""},
      {{"defrag", image_}, 0, ""},
      {{"defrag", image_, "--max-move", "1M"}, 2, "--max-move requires --thorough"},
      {{"optimize", image_, "--thorough"}, 2, "--thorough"},
      {{"optimize", image_}, 0, ""},
      {{"compact", image_}, 0, ""},
      {{"analyze", Path("text")}, 3, "no FAT or NTFS volume"},
      {{"analyze", Path("empty")}, 3, "empty"},
      {{"analyze", "/dev/null"}, 3, "/dev/null"},
      {{"analyze", Path("")}, 3, ""},
      {{"defrag", Path("dirty.img")}, 3, "dirty"},
      {{"analyze", image_, "--partition", "2"}, 3, ""},
      {{"analyze", image_, "--partition", "0"}, 2, "0 is no partition's number"},
      {{"analyze", image_, "--offset", "1T"}, 3, ""},
      {{"analyze", image_, "--bad"}, 2, "--bad"},
      {{"analyze", image_, "--directory", "no\\such"}, 2, "no\\such"},
      {{"analyze", image_, "--debug-log", Path("no/such")}, 2, "no/such"},
      {{"job", "--volume", volume, "--", "/drv C: /d"}, 0, ""},
      {{"job", "--volume", volume, "--", "/t /drv C: /vssafe /d"}, 0, "Planning volume C:"},
      {{"job", "--volume", volume, "--", "/drv C: /d /t /o"}, 2, "Optimize has no thorough form"},
      {{"job", "--volume", volume, "--", "/drv C: /t"}, 2, "names no pass: /t goes with /d"},
      {{"job", "--volume", volume, "--", "/drv C: /x"}, 2, "Invalid argument: /x"},
      {{"job", "--volume", volume, "--", "/d"}, 2, "No drive specified."},
      {{"job", "--volume", volume, "--", ""}, 2, "Invalid argument: "},
      {{"job", "--volume", volume, "--", "/drv D: /d"}, 2, "D:"},
      {{"job", "--volume", volume, "--", "/setshell"}, 2, "Explorer verbs"},
      {{"job", "--volume", volume, "--", "/drv C:"}, 0, "nothing was moved"},
      {{"job", "--volume", volume, "--", "/drv C:\\sub /d"},
       2,
       "C:\\sub\\, which no --volume names"},
      {{"job", "--volume", volume, "--", "/dir \"D:\\a\" /drv C: /d"}, 2, "is on drive D:\\, and"},
      {{"job", "--volume", volume, "--", "/drv \"C:\" /dir \"D:\\a\" /d"}, 2, "in quotes, C:."},
      {{"job", "--volume", volume, "--", "/dir", "C:\\\"a", "/d"}, 2, "in quotes, C:\\."},
      {{"job", "--volume", volume, "--", "/dir \"C:\\\"/d"}, 2, "in quotes, C:\\."},
      {{"job", "--volume", dirty_volume, "--", "/drv C: /d"}, 3, "dirty"},
      {{"map", image_}, 0, ""},
      {{"analyze", image_, "--file", "/none"}, 2, "there is no file C:\\none"},
      {{"map", image_, "--png", Path("none/map.png")}, 2, "none/map.png"},
      {{"map", image_, "--png", Path("a"), "--report", Path("b")}, 0, ""},
  };
  for (const Case& c : kCases) {
    const ProgramEnd end = RunProgram(c.arguments);
    const std::string line = ::testing::PrintToString(c.arguments);
    EXPECT_EQ(end.code, c.code) << line << "\n" << end.err;
    EXPECT_EQ(end.signal, 0) << line;
    EXPECT_NE(end.err.find(c.says), std::string::npos) << line << "\n" << end.err;
  }
  EXPECT_GT(std::min(Get("a").size(), Get("b").size()), 100U);
  EXPECT_EQ(Get("dirty.img"), dirty);
  ExpectWhole();
}

// Folders that no analysis enters are not passed over in silence.
TEST_F(ProgramTest, FoldersWithADotInFrontAreTold) {
  Put("disk.img", Bytes(4 * kMebibyte));
  Run("mkfs.fat disk.img; for i in 1 2 3 4 5; do mmd -i disk.img ::.dot$i; done; mmd -i disk.img "
      "::.dot1/.in ::.dot1/out;"
      "mcopy -i disk.img /etc/passwd ::.file");
  const auto told = [&](Arguments more, const char* of) {
    const ProgramEnd end = RunProgram(
        And(And({more.front(), image_, "--quiet"}, {"--json"}), {more.begin() + 1, more.end()}));
    const Json json = Json::parse(end.out);
    return (*of == '\0' ? json : json[of])["left_out_folders"];
  };
  const Json all = {"C:\\.dot1", "C:\\.dot2", "C:\\.dot3", "C:\\.dot4", "C:\\.dot5"};
  EXPECT_EQ(told({"analyze"}, ""), all);
  for (const char* pass : {"defrag", "optimize", "compact"}) {
    EXPECT_EQ(told({pass}, "before"), all);
    EXPECT_EQ(told({pass}, "after"), all);
  }
  EXPECT_EQ(told({"analyze", "--directory", ".dot1"}, ""), Json({"C:\\.dot1\\.in"}));
  EXPECT_EQ(told({"analyze", "--directory", ".dot2"}, ""), Json::array());
  const std::string five =
      "Left out, with all below: 5 folders whose names begin with a dot "
      "(C:\\.dot1, C:\\.dot2, C:\\.dot3 and 2 more; --json lists all)";
  const Arguments job = {"job", "--volume", "C=" + image_, "--quiet", "--"};
  for (const Arguments& line :
       {Arguments{"analyze", image_}, Arguments{"defrag", image_}, And(job, {"/drv C: /c"})}) {
    EXPECT_NE(RunProgram(line).out.find(five), std::string::npos) << line.front();
  }
  const ProgramEnd idle = RunProgram({"job", "--volume", "C=" + image_, "--json", "--", "/drv C:"});
  EXPECT_EQ(Json::parse(idle.out)["pass"], Json(nullptr));
}

TEST_F(ProgramTest, AnalyzeChangesNothing) {
  for (const char* recipe : {kNtfs, kFat32}) {
    Make(recipe);
    const ProgramEnd json = RunProgram({"analyze", image_, "--json", "--list"});
    ASSERT_EQ(json.code, 0) << json.err;
    const Json result = Json::parse(json.out);
    EXPECT_GT(result["fragmented"], 0);
    EXPECT_EQ(result["fragmented_files"].size(), result["fragmented"]);
    EXPECT_EQ(result["move_out_files"], 0) << "the Analyze button fills no classes";

    const Json classes = Json::parse(RunProgram({"analyze", image_, "--json", "--classes"}).out);
    EXPECT_GT(classes["dirs_to_move"], 0);
    EXPECT_GT(classes["reserved_front"], 0);
    const ProgramEnd job =
        RunProgram({"job", "--volume", "C=" + image_, "--json", "--dry-run", "--", "/drv C: /c"});
    const Json before = Json::parse(job.out)["before"];
    for (const std::string& key : kFigureKeys) {
      EXPECT_TRUE(result.contains(key) && before[key] == classes[key]) << key;
    }
    const ProgramEnd text = RunProgram({"analyze", image_, "--list", "--quiet"});
    EXPECT_NE(text.out.find("  C:\\"), std::string::npos);
    EXPECT_EQ(text.err, "");
    EXPECT_EQ(RunProgram({"map", image_, "--png", "/dev/null"}).out, "");
    ExpectFolderAlone(result);
    EXPECT_EQ(Get("disk.img"), before_) << recipe_;
    ExpectNothingLeftBehind();
    if (HasFailure()) return;
  }
}

TEST_F(ProgramTest, DebugLogIsTheSameWhereverItGoes) {
  Make("fat16 size=16M files=60 fragmented=80%");
  const ProgramEnd shown = RunProgram({"analyze", image_, "--debug-log", "-"});
  const ProgramEnd kept = RunProgram({"analyze", image_, "--debug-log", Path("log")});
  EXPECT_EQ(kept.code, 0) << kept.err;
  const Bytes log = Get("log");
  const std::string text(log.begin(), log.end());
  EXPECT_EQ(shown.out, text + kept.out);
  EXPECT_EQ(text.find('\r'), std::string::npos);
  EXPECT_NE(text.find("\nfragged: C:\\"), std::string::npos);
}

// The log is read a page at a time and its rest is many pages long: when the signal is sent, the
// run cannot be over.
TEST_F(ProgramTest, StoppedInTheMiddleTheVolumeIsInOrder) {
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    SCOPED_TRACE(number);
    Make(kFull);
    Program program({"job", "--volume", "C=" + image_, "--", "/drv C: /d /dbg"});
    ASSERT_TRUE(program.ReadUntil("-ret:0"));
    program.Signal(number);
    const ProgramEnd end = program.Wait();
    EXPECT_EQ(end.code, 4) << end.err;
    EXPECT_NE(end.err.find("Stopped."), std::string::npos) << end.err;
    EXPECT_NE(Get("disk.img"), before_);
    ExpectWhole();
    ExpectNothingLeftBehind();
    static const std::regex kAfter("\n  Fragmented +[0-9]+ +([0-9]+)\n");
    std::smatch told;
    ASSERT_TRUE(std::regex_search(end.out, told, kAfter)) << end.out;
    const Json left = Json::parse(RunProgram({"analyze", image_, "--json"}).out);
    EXPECT_EQ(told[1], left["fragmented"].dump());
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace vornalux::test
