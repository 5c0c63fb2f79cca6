// SPDX-License-Identifier: GPL-2.0-or-later
// The real program, killed inside an event of its run: whatever command comes next makes the volume
// whole, and every file is as it was.
#include <cerrno>
#include <set>

#include "crash/kill_rig.h"
#include "volumes/ntfs/snapshot_image.h"

namespace vornalux::test {
namespace {

constexpr std::size_t kKillsPerRun = 40;

struct KillCase {
  const char* recipe;
  const char* command;
  const char* option = nullptr;

  // That the run gives up.
  bool Snapshots() const { return option != nullptr && option == std::string(kDrop); }
  static constexpr const char* kDrop = "--drop-restore-points";
};

class KillTest : public VolumeAndCopies, public testing::WithParamInterface<KillCase> {
 protected:
  Arguments Command() const {
    Arguments line = {GetParam().command, Path("work.img"), "--quiet"};
    if (GetParam().option != nullptr) line.emplace_back(GetParam().option);
    return line;
  }

  // Either nothing has happened, or Windows finds no snapshots whose clusters have changed.
  void ExpectNoFalseSnapshots() const {
    EXPECT_EQ(SnapshotExtents(Path("work.img")), SnapshotExtents(Path("volume.img")));
    if (!HasSnapshotHeader(Path("work.img"))) return;
    constexpr std::size_t kSector = 512;
    const Bytes before = Get("volume.img"), after = Get("work.img");
    std::size_t changed = 0;
    for (std::size_t at = 0; at < before.size(); at += kSector) {
      changed += !std::equal(&before[at], &before[at] + kSector, &after[at]);
    }
    EXPECT_LE(changed, 4U) << "the record of the dirty flag, two sectors each, and its mirror";
  }

  // The first events, in which snapshots are given up, the last ones, and a choice of those
  // between.
  static std::set<std::size_t> ChooseKills(std::size_t events, std::uint64_t seed) {
    std::set<std::size_t> kills = {events - 2, events - 1, events};
    for (std::size_t event = 1; event <= 20; ++event) kills.insert(event);
    Random random(seed);
    while (kills.size() < std::min(kKillsPerRun, events)) kills.insert(1 + Below(random, events));
    return kills;
  }
};

using FailTest = KillTest;

TEST_P(KillTest, EveryFileIsWholeAfterTheNextCommand) {
  Make(GetParam().recipe);
  if (GetParam().Snapshots()) manifest_ = AddSnapshots(Path("volume.img"), 2);
  Copy();
  const std::size_t events = CountEvents(Command(), Path("count")).events;
  ASSERT_GT(events, kKillsPerRun) << recipe_;
  for (const std::size_t kill_at : ChooseKills(events, seed_)) {
    SCOPED_TRACE(Where("killed in event ", kill_at, events));
    Copy();
    RunKilledAt(kill_at, Command());
    const ProgramEnd next = RunProgram({"analyze", Path("work.img"), "--quiet"});
    ASSERT_EQ(next.code, 0) << next.err;
    ExpectIntact(Path("work.img"), manifest_);
    if (GetParam().Snapshots()) ExpectNoFalseSnapshots();
    if (HasFailure()) return;
  }
}

// Writes, flushes and removals of volume and journal fail, once or from then on: the run ends and
// says so, or goes on where that is no failure, and the next command makes the volume whole.
TEST_P(FailTest, EveryFileIsWholeAfterAnyCallHasFailed) {
  Make(GetParam().recipe);
  Copy();
  const std::size_t events = CountEvents(Command(), Path("count")).events;
  Random random(seed_);
  for (const int error : {0, EINTR, EIO, ENOSPC}) {
    for (int round = 0; round < 9; ++round) {
      // The first ones, in which the journal is made, the last ones, and some between.
      const std::size_t at = round < 4   ? 1 + static_cast<std::size_t>(round)
                             : round < 7 ? events + 4 - static_cast<std::size_t>(round)
                                         : 1 + Below(random, events);
      const bool once = error == EINTR || Below(random, 2) == 0;
      SCOPED_TRACE(Where("error " + std::to_string(error) + (once ? " at " : " from ") +
                         std::to_string(at) + " of " + std::to_string(events)));
      Copy();
      {
        const Meddling meddling(once ? "VORNALUX_FAIL_AT" : "VORNALUX_FAIL_FROM",
                                std::to_string(at));
        const Setting which("VORNALUX_ERROR", std::to_string(error));
        const ProgramEnd end = RunProgram(Command());
        const bool harmless = error == 0 || error == EINTR;
        EXPECT_EQ(end.signal, 0);
        // A copy that fails is a file that stays where it is.
        const bool told = end.code != 0 || end.out.find(" refused") != std::string::npos;
        EXPECT_TRUE(harmless ? end.code == 0 : told) << end.code << end.out;
        EXPECT_EQ(end.err == "", end.code == 0) << end.err;
      }
      const ProgramEnd next = RunProgram({"analyze", Path("work.img"), "--quiet"});
      EXPECT_EQ(next.code, 0) << next.err;
      ExpectIntact(Path("work.img"), manifest_);
      if (HasFailure()) return;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Runs, FailTest,
    testing::Values(KillCase{"ntfs size=16M files=120 fragmented=80% fill=60%", "defrag"},
                    KillCase{"fat16 size=8M files=120 fragmented=80% fill=60%", "compact"}),
    [](const auto& param) { return FileSystemOf(param.param.recipe); });

INSTANTIATE_TEST_SUITE_P(
    Runs, KillTest,
    testing::Values(
        KillCase{"ntfs size=24M files=300 fragmented=90% pieces=6 fill=70%", "defrag"},
        KillCase{"ntfs size=16M files=200 fragmented=70% fill=60% streams=20%", "optimize"},
        KillCase{"ntfs size=24M files=200 fragmented=90% fill=60%", "defrag", KillCase::kDrop},
        KillCase{"ntfs size=16M files=200 fragmented=90% fill=95%", "defrag", "--thorough"},
        KillCase{"ntfs size=16M files=200 fragmented=90% fill=50%", "compact", "--discard"},
        KillCase{"ntfs size=16M files=200 fragmented=90% fill=50%", "trim"},
        KillCase{"fat32 size=40M cluster=512 files=300 fragmented=90% fill=60%", "trim"},
        KillCase{"fat32 size=40M cluster=512 files=200 fragmented=90% fill=90%", "compact",
                 "--thorough"},
        KillCase{"fat12 size=4M files=100 fragmented=90% fill=70%", "defrag"},
        KillCase{"fat16 size=16M files=250 fragmented=90% fill=70%", "compact"},
        KillCase{"fat32 size=40M cluster=512 files=300 fragmented=90% fill=60%", "optimize"}),
    [](const auto& param) {
      return FileSystemOf(param.param.recipe) + "_" + param.param.command +
             (param.param.Snapshots() ? "_snapshots"
              : param.param.option    ? "_" + std::string(param.param.option + 2)
                                      : "");
    });

}  // namespace
}  // namespace vornalux::test
