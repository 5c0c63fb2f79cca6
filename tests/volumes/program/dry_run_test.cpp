// SPDX-License-Identifier: GPL-2.0-or-later
// A dry run tells what the run would do, and leaves no trace.
#include <fcntl.h>
#include <signal.h>

#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <string>
#include <tuple>

#include "support/made_volume.h"
#include "support/setting.h"
#include "volumes/program/program_process.h"

namespace vornalux::test {
namespace {

using Json = nlohmann::ordered_json;

class DryRunTest : public MadeVolume {
 protected:
  // All files in the folder, with content and time.
  using Trace = std::map<std::string, std::pair<Bytes, std::filesystem::file_time_type>>;

  Trace Now() const {
    Trace trace;
    for (const auto& entry : std::filesystem::directory_iterator(Path(""))) {
      const std::string name = entry.path().filename();
      trace[name] = {Get(name), entry.last_write_time()};
    }
    return trace;
  }

  // What a run gives, dry or not, must be one and the same.
  Json ExpectTheSame(const Arguments& line, const Arguments& tail = {}) {
    const Trace before = Now();
    const ProgramEnd dry = RunProgram(And(And(line, {"--dry-run"}), tail));
    EXPECT_TRUE(Now() == before) << "touched";
    const ProgramEnd real = RunProgram(And(line, tail));
    EXPECT_EQ(dry.code, 0) << dry.err;
    EXPECT_EQ(real.code, 0) << real.err;
    if (HasFailure()) return {};
    Json told = Json::parse(dry.out);
    EXPECT_EQ(told["dry_run"], true);
    told["dry_run"] = false;
    Json done = Json::parse(real.out);
    for (Json* result : {&told, &done}) {
      for (const char* of_time : {"seconds", "bytes_per_second"}) result->erase(of_time);
    }
    EXPECT_EQ(told, done);
    ExpectWhole();
    return told;
  }

  // What a planned run of it then does is what its plan says, and what a run before it has told.
  void ExpectTheHelpThatWasTold(const Json& told, const Arguments& options) {
    const Arguments line = {"defrag", "--thorough", "--dry-run", image_, "--json", "--quiet"};
    const Json next = Json::parse(RunProgram(And(line, options)).out);
    const Json& plan = next["plan"];
    EXPECT_EQ(plan["new_plans"], 0);
    EXPECT_EQ(plan["bytes"], next["bytes_moved"]);
    for (const char* side : {"before", "after"}) {
      const Json& gaps = next[side]["free_regions"];
      EXPECT_EQ(plan[side]["gaps"], gaps["count"]);
      EXPECT_EQ(plan[side]["largest_gap"], gaps["largest"][0]);
    }
    const auto left = told["still_fragmented"].size();
    const auto cured = left - next["still_fragmented"].size();
    const Json help = {{"files", cured}, {"of", left}, {"bytes", next["bytes_moved"]}};
    EXPECT_EQ(told["thorough_would"], cured == 0 ? Json() : help);
  }
};

TEST_F(DryRunTest, TellsWhatTheRunWillDo) {
  for (const char* recipe :
       {"ntfs size=32M files=400 folders=40 fragmented=60% fragmented-folders=60% mft-pieces=4 "
        "fill=70% windows=1",
        "ntfs size=24M cluster=512 files=300 fragmented=90% fill=90% streams=20% sparse=10% "
        "links=20%",
        "fat16 size=16M files=250 fragmented=100% pieces=8 fill=95%",
        "fat32 size=64M cluster=512 files=300 fragmented=60% fill=60%"}) {
    for (const Arguments& command : {Arguments{"defrag"},
                                     {"defrag", "--exclude", "*.TXT; *.bin"},
                                     {"defrag", "--thorough"},
                                     {"optimize"},
                                     {"compact"}}) {
      SCOPED_TRACE(command.front() + " " + recipe + ", " + SeedNote(TestSeed()));
      Make(recipe);
      const bool thorough = command.back() == "--thorough";
      const bool excludes = command.size() > 2;
      const Json told = ExpectTheSame(And(command, {image_, "--json", "--quiet"}));
      if (HasFailure()) return;
      EXPECT_GT(told["moves"], 0);
      EXPECT_LT(told["after"]["fragments"], told["before"]["fragments"]);
      EXPECT_EQ(told["after"]["free_clusters"], told["before"]["free_clusters"]);
      EXPECT_EQ(told["after"].size(), told["before"].size());
      // What the run read anew against the whole walk after it.
      std::int64_t fragments = 0;
      for (const Json& file : told["still_fragmented"]) {
        fragments += file["fragments"].get<std::int64_t>();
        EXPECT_TRUE(
            !thorough || file["reason"] == "holes" ||
            (file["reason"] == "space" && file["clusters"] > told["after"]["free_clusters"]))
            << file;
      }
      if (!excludes) {
        EXPECT_EQ(told["still_fragmented"].size(), told["after"]["fragmented"]);
        EXPECT_EQ(fragments, told["after"]["fragments"]);
      }
      ExpectTheHelpThatWasTold(told, {command.begin() + 1, command.end()});
    }
  }
}

TEST_F(DryRunTest, MovesNoMoreThanIsAllowed) {
  Make("fat32 size=40M cluster=512 files=300 fragmented=90% fill=80%");
  const auto run = [&](const Arguments& more) {
    const Arguments line = {"defrag", image_, "--thorough", "--dry-run", "--json", "--quiet"};
    return Json::parse(RunProgram(And(line, more)).out);
  };
  const std::int64_t all = run({})["bytes_moved"];
  std::int64_t before = run({})["before"]["fragmented"];
  for (const std::int64_t part : {0, 10, 40, 90, 100}) {
    const std::int64_t allowed = all * part / 100;
    const Json told = run({"--max-move", std::to_string(allowed)});
    EXPECT_LE(told["bytes_moved"], allowed);
    EXPECT_GE(told["bytes_moved"], allowed * 8 / 10);
    EXPECT_LE(told["after"]["fragmented"], before);
    before = told["after"]["fragmented"];
  }
  EXPECT_EQ(before, 0);
}

// Its largest file has room in two places only, between what Defrag leaves out, and others lie
// there. Compact leaves nothing out.
TEST_F(DryRunTest, MakesRoomBetweenWhatStays) {
  Make(
      "fat16 size=48M cluster=2K deleted=10% bad=5 files=572 folders=30 big=1 fragmented=70% "
      "pieces=9 fragmented-folders=50% shredded=2:40 fill=86%",
      24);
  for (const std::string pass : {"defrag", "compact"}) {
    const Arguments line = {pass,   image_,      "--thorough", "--exclude",
                            "*.gz", "--dry-run", "--json",     "--quiet"};
    const ProgramEnd end = RunProgram(line);
    ASSERT_EQ(end.code, 0) << end.err;
    const Json told = Json::parse(end.out);
    EXPECT_EQ(told["still_fragmented"].empty(), pass == "compact");
    for (const Json& file : told["still_fragmented"]) EXPECT_EQ(file["reason"], "left out") << file;
  }
}

TEST_F(DryRunTest, PicturesAndTextAreOfTheSameRun) {
  Make("fat32 size=64M cluster=512 files=300 fragmented=60% fill=60% partitioned=1");
  const auto run = [&](const Arguments& more) {
    const ProgramEnd end = RunProgram(
        And({"optimize", image_, "--quiet", "--png", Path("png"), "--report", Path("page")}, more));
    EXPECT_EQ(end.code, 0) << end.err;
    const Bytes page = Get("page");
    static const std::regex kTook("[^\n]*(Took | in all )[^\n]*\n");
    return std::tuple(Get("png"),
                      std::regex_replace(std::string(page.begin(), page.end()), kTook, ""),
                      std::regex_replace(end.out, kTook, ""));
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

// Killed at each of its writes in turn, a journal with an unfinished commit included.
TEST_F(DryRunTest, GoesOnFromAnyInterruptionWithoutFinishingIt) {
  for (const char* recipe :
       {"fat16 size=8M files=8 fragmented=100%", "ntfs size=8M files=8 fragmented=100%"}) {
    Make(recipe);
    int interrupted = 0;
    for (int signal = SIGKILL, at = 1; signal == SIGKILL; ++at) {
      SCOPED_TRACE(recipe_ + ", killed at " + std::to_string(at));
      Put("disk.img", before_);
      {
        const Setting preload("LD_PRELOAD", VORNALUX_KILL_LIBRARY);
        const Setting order("ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0");
        const Setting kill("VORNALUX_KILL_AT", std::to_string(at));
        signal = RunProgram({"defrag", image_}).signal;
      }
      interrupted += Exists("disk.img.vornalux-journal") ? 1 : 0;
      ExpectTheSame({"defrag", image_, "--json"});
      if (HasFailure()) return;
    }
    EXPECT_GT(interrupted, 15);
  }
}

}  // namespace
}  // namespace vornalux::test
