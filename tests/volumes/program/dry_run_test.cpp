// SPDX-License-Identifier: GPL-2.0-or-later
// A dry run tells what the run would do, and leaves no trace.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>

#include <nlohmann/json.hpp>
#include <set>
#include <tuple>

#include "app/program.h"
#include "host/image/fat/fat_volume.h"
#include "host/image/journal/scratch_journal.h"
#include "host/image/ntfs/open_ntfs.h"
#include "host/image/opening/image_file.h"
#include "host/simulated/simulated_platform.h"
#include "mkvolume/maker.h"
#include "support/image_folder.h"
#include "support/intact.h"
#include "support/seed.h"
#include "volumes/program/program_process.h"

namespace vornalux::test {
namespace {

using Json = nlohmann::ordered_json;

class DryRunTest : public ImageFolder {
 protected:
  struct Trace {
    std::set<std::string> names;  // of all files in the folder
    Bytes content;
    timespec modified{};

    friend bool operator==(const Trace& a, const Trace& b) {
      return a.names == b.names && a.content == b.content &&
             a.modified.tv_sec == b.modified.tv_sec && a.modified.tv_nsec == b.modified.tv_nsec;
    }
  };

  void Make(const std::string& recipe) {
    manifest_ =
        MakeVolume(recipe + " seed=" + std::to_string(TestSeed()), image_ = Path("disk.img"));
  }

  Trace Now(const std::string& file) const {
    Trace trace;
    for (const auto& entry : std::filesystem::directory_iterator(Path(""))) {
      trace.names.insert(entry.path().filename());
    }
    trace.content = Get(file);
    struct stat status {};
    EXPECT_EQ(::stat(Path(file).c_str(), &status), 0);
    trace.modified = status.st_mtim;
    return trace;
  }

  // What a run gives, dry or not, must be one and the same.
  void ExpectTheSame(const Arguments& line, const Arguments& tail = {}) {
    const Trace before = Now("disk.img");
    const ProgramEnd dry = RunProgram(And(And(line, {"--dry-run"}), tail));
    EXPECT_TRUE(Now("disk.img") == before) << "touched";
    const ProgramEnd real = RunProgram(And(line, tail));
    ASSERT_EQ(dry.code, 0) << dry.err;
    ASSERT_EQ(real.code, 0) << real.err;
    Json told = Json::parse(dry.out);
    EXPECT_EQ(told["dry_run"], true);
    EXPECT_GT(told["moves"], 0);
    told["dry_run"] = false;
    EXPECT_EQ(told, Json::parse(real.out));
    ExpectIntact(image_, manifest_);
    if (line[0] == "job") return;
    EXPECT_LT(told["after"]["fragments"], told["before"]["fragments"]);
    EXPECT_EQ(told["after"]["free_clusters"], told["before"]["free_clusters"]);
    EXPECT_EQ(told["after"].size(), told["before"].size());
  }

  std::string image_;
  Manifest manifest_;
};

TEST_F(DryRunTest, TellsWhatTheRunWillDo) {
  for (const char* recipe :
       {"ntfs size=32M files=400 folders=40 fragmented=60% fragmented-folders=60% mft-pieces=4 "
        "fill=70% windows=1",
        "ntfs size=24M cluster=512 files=300 fragmented=90% fill=90% streams=20% sparse=10%",
        "fat16 size=16M files=250 fragmented=100% pieces=8 fill=95%",
        "fat32 size=64M cluster=512 files=300 fragmented=60% fill=60%"}) {
    for (const char* command : {"defrag", "optimize", "compact"}) {
      SCOPED_TRACE(std::string(command) + " " + recipe + ", " + SeedNote(TestSeed()));
      Make(recipe);
      ExpectTheSame({command, image_, "--json", "--quiet"});
      if (HasFailure()) return;
    }
  }
}

void RunJob(MountedVolume& volume, const std::string& line) {
  SimulatedPlatform platform({.windows_folder = "C:\\Windows"});
  platform.Mount('C', volume);
  vornalux::Program program(platform.All());
  EXPECT_EQ(program.launcher.process_cmd_line(line), JobOutcome::Done);
  EXPECT_GT(program.main_window.engine.movers.statistics.moves, 0);
  EXPECT_EQ(volume.Close(), error::kSuccess);
}

// Every byte of it, moved data and metadata that moved itself included.
TEST_F(DryRunTest, HasInMemoryWhatTheRunLeavesOnDisk) {
  for (const char* recipe :
       {"ntfs size=32M files=400 folders=60 fragmented=60% fragmented-folders=60% mft-pieces=4 "
        "fill=70% windows=1",
        "fat16 size=16M files=250 folders=60 fragmented=90% fragmented-folders=60% fill=90%",
        "fat32 size=64M cluster=512 files=300 folders=60 fragmented=60% fragmented-folders=60%"}) {
    for (const char* line : {"/drv C: /d", "/drv C: /o", "/drv C: /c"}) {
      SCOPED_TRACE(std::string(line) + " " + recipe + ", " + SeedNote(TestSeed()));
      Make(recipe);
      Bytes content = Get("disk.img");
      VolumeStore store;
      store.device =
          std::make_unique<ScratchDevice>(std::make_shared<MemoryDevice>(std::move(content)));
      store.journal_home = std::make_unique<ScratchJournalHome>();
      BlockDevice& scratch = *store.device;
      const auto dry =
          recipe[0] == 'n' ? OpenNtfsVolume(std::move(store)) : OpenFatVolume(std::move(store));
      RunJob(*dry, line);

      OpenOptions options;
      options.writable = true;
      OpenReport report;
      RunJob(*OpenImage(image_, options, report), line);
      content.resize(scratch.Size());
      ASSERT_FALSE(scratch.Read(0, content));
      EXPECT_TRUE(content == Get("disk.img"));
      if (HasFailure()) return;
    }
  }
}

TEST_F(DryRunTest, PicturesAndTextAreOfTheSameRun) {
  Make("fat32 size=64M cluster=512 files=300 fragmented=60% fill=60% partitioned=1");
  const auto run = [&](const Arguments& more) {
    const ProgramEnd end = RunProgram(
        And({"optimize", image_, "--quiet", "--png", Path("png"), "--report", Path("page")}, more));
    EXPECT_EQ(end.code, 0) << end.err;
    const Bytes page = Get("page");
    return std::tuple(Get("png"), std::string(page.begin(), page.end()), end.out);
  };
  auto [dry_png, dry_page, dry_text] = run({"--dry-run"});
  const auto [png, page, text] = run({});
  EXPECT_EQ(dry_png, png);
  const auto without = [](std::string whole, const std::string& part) {
    const std::size_t at = whole.find(part);
    EXPECT_NE(at, std::string::npos) << whole;
    return at == std::string::npos ? whole : whole.erase(at, part.size());
  };
  EXPECT_EQ(without(dry_page, " &middot; dry run: nothing was written to the volume"), page);
  EXPECT_EQ(without(dry_text, "  Dry run: nothing was written to the volume\n"), text);
}

TEST_F(DryRunTest, AJobLeavesTheMachineOn) {
  Make("fat16 size=16M files=100 fragmented=80%");
  const std::string path = std::getenv("PATH");
  Put("shutdown", {});
  Run("printf '#!/bin/sh\\n>>\"$0.called\"\\n' >shutdown; chmod +x shutdown");
  ASSERT_EQ(::setenv("PATH", (Path("") + ":" + path).c_str(), 1), 0);
  ExpectTheSame({"job", "--volume", "C=" + image_, "--json"}, {"--", "/drv C: /d /down"});
  ::setenv("PATH", path.c_str(), 1);
  EXPECT_TRUE(std::filesystem::exists(Path("shutdown.called"))) << "by the run that was not dry";
}

// While somebody else only looks at the volume, it can be dry-run, and not worked on.
TEST_F(DryRunTest, AsksForNoMoreThanReading) {
  Make("fat16 size=16M files=20");
  const int file = ::open(image_.c_str(), O_RDONLY | O_CLOEXEC);
  struct flock lock {};
  lock.l_type = F_RDLCK;
  lock.l_whence = SEEK_SET;
  ASSERT_EQ(::fcntl(file, F_OFD_SETLK, &lock), 0);
  EXPECT_EQ(RunProgram({"defrag", image_}).code, 3);
  EXPECT_EQ(RunProgram({"defrag", image_, "--dry-run"}).code, 0);
  ::close(file);
  EXPECT_EQ(RunProgram({"analyze", image_, "--dry-run"}).code, 2) << "analyze is always dry";
}

TEST_F(DryRunTest, GoesOnFromAnInterruptedRunWithoutFinishingIt) {
  for (const char* recipe : {"fat16 size=16M files=250 fragmented=100% pieces=8 fill=95%",
                             "ntfs size=32M files=400 fragmented=100% pieces=8 fill=95%"}) {
    SCOPED_TRACE(std::string(recipe) + ", " + SeedNote(TestSeed()));
    Make(recipe);
    Program program({"defrag", image_, "--debug-log", "-"});
    for (int i = 0; i < 40; ++i) ASSERT_TRUE(program.ReadUntil("DFR:partial_mv"));
    program.Signal(SIGKILL);
    program.Wait();
    const Trace journal = Now("disk.img.vornalux-journal");
    const ProgramEnd dry = RunProgram({"defrag", image_, "--dry-run"});
    EXPECT_NE(dry.err.find("interrupted"), std::string::npos) << dry.err;
    EXPECT_TRUE(Now("disk.img.vornalux-journal") == journal);
    ExpectTheSame({"defrag", image_, "--json"});
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace vornalux::test
