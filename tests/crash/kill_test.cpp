// SPDX-License-Identifier: GPL-2.0-or-later
// The real program, killed inside a write of its run: whatever command comes next makes the volume
// whole, and every file is as it was.
#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <set>

#include "mkvolume/maker.h"
#include "support/image_folder.h"
#include "support/intact.h"
#include "support/seed.h"
#include "volumes/program_process.h"
#include "volumes/snapshot_image.h"

namespace vornalux::test {
namespace {

constexpr std::size_t kKillsPerRun = 30;

// An environment variable for the programs started meanwhile.
class Setting {
 public:
  Setting(const char* name, const std::string& value) : name_(name) {
    setenv(name, value.c_str(), 1);
  }
  ~Setting() { unsetenv(name_); }
  Setting(const Setting&) = delete;
  Setting& operator=(const Setting&) = delete;

 private:
  const char* name_;
};

struct KillCase {
  const char* recipe;
  const char* command;
  bool snapshots = false;  // that the run gives up
};

class KillTest : public ImageFolder, public testing::WithParamInterface<KillCase> {
 protected:
  ProgramEnd RunWith(const char* name, const std::string& value) const {
    const Setting preload("LD_PRELOAD", VORNALUX_KILL_LIBRARY);
    // Sanitizer builds want to be the first library.
    const Setting order("ASAN_OPTIONS", "verify_asan_link_order=0");
    const Setting setting(name, value);
    Arguments line = {GetParam().command, Path("work.img"), "--quiet"};
    if (GetParam().snapshots) line.emplace_back("--drop-restore-points");
    return RunProgram(line);
  }

  void FreshCopy() const {
    std::filesystem::copy_file(Path("volume.img"), Path("work.img"),
                               std::filesystem::copy_options::overwrite_existing);
  }

  std::size_t CountWrites() const {
    FreshCopy();
    EXPECT_EQ(RunWith("VORNALUX_COUNT_WRITES", Path("count")).code, 0);
    std::size_t count = 0;
    std::ifstream(Path("count")) >> count;
    return count;
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

  // The first writes, in which snapshots are given up, the last ones, and a choice of those
  // between.
  static std::set<std::size_t> ChooseKills(std::size_t writes, std::uint64_t seed) {
    std::set<std::size_t> kills = {1, 2, 3, 4, 5, 6, 7, 8, writes - 2, writes - 1, writes};
    Random random(seed);
    while (kills.size() < std::min(kKillsPerRun, writes)) kills.insert(1 + Below(random, writes));
    return kills;
  }
};

TEST_P(KillTest, EveryFileIsWholeAfterTheNextCommand) {
  const std::uint64_t seed = TestSeed();
  const std::string recipe = GetParam().recipe + (" seed=" + std::to_string(seed));
  Manifest manifest = MakeVolume(recipe, Path("volume.img"));
  if (GetParam().snapshots) manifest = AddSnapshots(Path("volume.img"), 2);
  const std::size_t writes = CountWrites();
  ASSERT_GT(writes, kKillsPerRun) << recipe;
  for (const std::size_t kill_at : ChooseKills(writes, seed)) {
    SCOPED_TRACE(recipe + ", killed in write " + std::to_string(kill_at) + " of " +
                 std::to_string(writes) + ", " + SeedNote(seed));
    FreshCopy();
    ASSERT_EQ(RunWith("VORNALUX_KILL_AT", std::to_string(kill_at)).signal, SIGKILL);
    const ProgramEnd next = RunProgram({"analyze", Path("work.img"), "--quiet"});
    ASSERT_EQ(next.code, 0) << next.err;
    ExpectIntact(Path("work.img"), manifest);
    if (GetParam().snapshots) ExpectNoFalseSnapshots();
    if (HasFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Runs, KillTest,
    testing::Values(
        KillCase{"ntfs size=24M files=300 fragmented=90% pieces=6 fill=70%", "defrag"},
        KillCase{"ntfs size=16M files=200 fragmented=70% fill=60% streams=20%", "optimize"},
        KillCase{"ntfs size=24M files=200 fragmented=90% fill=60%", "defrag", true},
        KillCase{"fat12 size=4M files=100 fragmented=90% fill=70%", "defrag"},
        KillCase{"fat16 size=16M files=250 fragmented=90% fill=70%", "compact"},
        KillCase{"fat32 size=40M cluster=512 files=300 fragmented=90% fill=60%", "optimize"}),
    [](const auto& param) {
      const std::string recipe = param.param.recipe;
      return recipe.substr(0, recipe.find(' ')) + "_" + param.param.command +
             (param.param.snapshots ? "_snapshots" : "");
    });

}  // namespace
}  // namespace vornalux::test
