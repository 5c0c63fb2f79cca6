// SPDX-License-Identifier: GPL-2.0-or-later
// Thorough runs on simulated volumes, with refusals, changes underneath, and stops at every point.
#include <cctype>
#include <map>
#include <set>

#include "engine/thorough_help.h"
#include "unit/rig.h"

namespace vornalux::testing {
namespace {

int PiecesOf(const std::vector<SimulatedRun>& runs) {
  int pieces = 0;
  std::int64_t end = -1;
  for (const SimulatedRun& run : runs) {
    if (run.lcn < 0) continue;
    pieces += run.lcn != end ? 1 : 0;
    end = run.lcn + run.count;
  }
  return pieces;
}

std::map<std::string, int> AllPieces(SimulatedVolume& volume) {
  std::map<std::string, int> pieces;
  std::vector<std::pair<ItemId, std::string>> folders = {{volume.Root(), ""}};
  while (!folders.empty()) {
    const auto [folder, path] = folders.back();
    folders.pop_back();
    std::vector<FolderItem> items;
    volume.ListFolder(folder, items);
    for (const FolderItem& item : items) {
      const std::string name = path + item.name;
      pieces[name] = PiecesOf(volume.RunsOf(name));
      if (item.attributes & attribute::kDirectory) folders.push_back({item.id, name + "\\"});
    }
  }
  return pieces;
}

struct ThoroughRig : Rig {
  explicit ThoroughRig(SimulatedVolume& disk) : Rig(disk), before(AllPieces(disk)) {
    program.flags.Thorough = True;
  }
  // No file has more pieces than before.
  void ExpectNoneWorse() {
    ExpectSound(*this);
    for (const auto& [path, pieces] : AllPieces(volume)) EXPECT_LE(pieces, before[path]) << path;
  }
  int Fragmented() {
    int files = 0;
    for (const auto& [path, pieces] : AllPieces(volume)) files += pieces > 1 ? 1 : 0;
    return files;
  }

  std::map<std::string, int> before;
};

TEST(Thorough, LeavesNothingInPieces) {
  ForSeeds(60, [](std::uint64_t seed) {
    RandomVolumeOptions options;
    options.geometry.file_system = seed % 2 == 0 ? "NTFS" : "FAT32";
    options.geometry.total_clusters = 4000;
    options.fill = 0.5 + 0.01 * static_cast<double>(seed % 40);
    options.fragmented = 0.6;
    options.reparse = options.locked = options.immovable = 0;
    options.mft = false;
    const auto disk = MakeRandomVolume(options, seed);
    ThoroughRig rig(*disk);
    rig.Run(seed % 3 == 0 ? Pass::Compact : Pass::Defrag);
    rig.ExpectNoneWorse();
    EXPECT_EQ(rig.Fragmented(), 0);
    EXPECT_EQ(rig.engine.movers.statistics.refused, 0);
  });
}

auto MovableVolume(std::uint64_t seed, std::int64_t clusters, double fragmented) {
  RandomVolumeOptions options;
  options.geometry.file_system = seed % 2 == 0 ? "NTFS" : "FAT32";
  options.geometry.total_clusters = clusters;
  options.fill = 0.6 + 0.01 * static_cast<double>(seed % 35);
  options.fragmented = fragmented;
  options.immovable = 0;
  return MakeRandomVolume(options, seed);
}

// Of a folder, after each pass.
TEST(Thorough, HelpsAsMuchAsWasToldBefore) {
  int helped = 0;
  ForSeeds(60, [&helped](std::uint64_t seed) {
    const auto disk = MovableVolume(seed, 4000, 0.6);
    Rig rig(*disk);
    if (seed % 5 == 0) rig.engine.volume.Choose("C:\\", "folder0", "");
    rig.Run(kPasses[seed % kPassCount].pass);
    ASSERT_TRUE(rig.engine.record.Summary());
    const RunSummary before = *rig.engine.record.Summary();
    const auto help = FindThoroughHelp(rig.engine.context, before);
    rig.machine->User().SaveAs("D:\\r.txt");
    rig.window.savereport.Click();
    const std::string report = rig.machine->Shell().files["D:\\r.txt"];
    EXPECT_EQ(report.find("\nThorough (/t) would put ") != std::string::npos, help.has_value());
    EXPECT_TRUE(rig.Idle());
    rig.program.flags.Thorough = True;
    rig.Run(Pass::Defrag);
    const RunSummary& after = *rig.engine.record.Summary();
    EXPECT_EQ(FindThoroughHelp(rig.engine.context, after), std::nullopt);
    const auto cured = std::ssize(before.still_fragmented) - std::ssize(after.still_fragmented);
    EXPECT_EQ(help ? help->files : 0, cured);
    if (!help) return;
    EXPECT_EQ(help->clusters_moved, after.clusters_moved);
    ++helped;
  });
  EXPECT_GT(helped, test::TestSeed(0) == 0 ? 20 : -1);
}

// As in its ordinary form.
TEST(Thorough, CompactMovesWhatDefragLeavesOut) {
  for (const Pass pass : {Pass::Defrag, Pass::Compact}) {
    SimulatedVolume volume({.total_clusters = 400, .sectors_per_cluster = 8});
    volume.AddFile("out.iso", {{300, 3}, {310, 3}});
    Rig rig(volume);
    rig.program.launcher.ExcludeTxt.text = std::string("*.iso");
    rig.program.flags.Thorough = True;
    rig.Run(pass);
    EXPECT_EQ(volume.RunsOf("out.iso").size(), pass == Pass::Compact ? 1U : 2U);
  }
}

// Nothing that befalls the help befalls the run that was before it.
TEST(Thorough, HelpThatCannotBeToldIsNone) {
  for (const bool gone : {false, true}) {
    SmallRig rig(3);
    rig.Run(Pass::Compact);
    const RunSummary summary = *rig.engine.record.Summary();
    ASSERT_TRUE(FindThoroughHelp(rig.engine.context, summary));
    ScriptedDesktop& user = rig.machine->User();
    if (gone) rig.machine->SetDriveState('C', DriveState::Gone);
    if (!gone) user.Answer(BoxAnswer::Yes);
    user.AtDoEvents(user.DoEventsCount() + 3, [&] {
      if (!gone) rig.window.Arretdefrag.Click();
    });
    EXPECT_FALSE(FindThoroughHelp(rig.engine.context, summary));
    EXPECT_FALSE(rig.program.flags.StopRequested);
    EXPECT_TRUE(rig.Idle());
  }
}

// First clusters keep their place within 16 sectors, files of no more clusters than that has
// sectors stay, and start-up files that lie whole in front.
TEST(Thorough, RespectsShadowCopiesAndStartUpFiles) {
  std::size_t moved = 0;
  ForSeeds(40, [&moved](std::uint64_t seed) {
    SeededRandom random(seed);
    RandomVolumeOptions options;
    options.geometry.total_clusters = 4000;
    const std::int64_t sectors = std::int64_t{1} << seed % 5;
    options.geometry.sectors_per_cluster = static_cast<std::uint32_t>(sectors);
    const auto disk = MakeRandomVolume(options, seed);
    disk->AddFolder("Windows\\Prefetch");
    std::map<std::string, SimulatedRun> first;
    std::map<std::string, std::int64_t> size;
    std::string layout = "[OptimalLayoutFile]\r\nVersion=1\r\n";
    std::set<std::string> start_up;
    for (const auto& [path, pieces] : AllPieces(*disk)) {
      if (pieces == 0) continue;
      first[path] = disk->RunsOf(path).front();
      for (const SimulatedRun& run : disk->RunsOf(path)) size[path] += run.count;
      if (pieces > 1 || random.Chance(0.8)) continue;
      std::string listed = "C:\\" + path;
      for (char& letter : listed) letter = static_cast<char>(std::toupper(letter));
      layout += listed + "\r\n";
      start_up.insert(path);
    }
    disk->SetContent(disk->AddFile("Windows\\Prefetch\\layout.ini"), layout);
    ThoroughRig rig(*disk);
    rig.program.flags.VssSafe = ToBoolean(seed % 2 == 0);
    rig.Run(seed % 3 == 0 ? Pass::Compact : Pass::Defrag);
    const std::int64_t reserved = rig.engine.geometry.constants.ReservedFront;
    for (const auto& [path, run] : first) {
      const std::int64_t by = disk->RunsOf(path).front().lcn - run.lcn;
      moved += by != 0 ? 1 : 0;
      EXPECT_TRUE(by == 0 || run.lcn >= reserved || !start_up.contains(path)) << path;
      if (seed % 2 != 0 || sectors >= 9) continue;
      EXPECT_TRUE(by == 0 || (sectors > 1 && size[path] > sectors)) << path;
      EXPECT_EQ(by % (16 / sectors), 0) << path;
    }
  });
  EXPECT_GE(moved, test::TestSeed(0) == 0 ? 500U : 0U);
}

// Of files that are named the others only make room, and only for a run that plans.
TEST(Thorough, NamedFilesAreAllThatARunIsAbout) {
  int cured = 0;
  int made_room = 0;
  ForSeeds(60, [&](std::uint64_t seed) {
    SeededRandom random(seed);
    const auto disk = MovableVolume(seed, 3000, 0.7);
    ThoroughRig rig(*disk);
    const bool planned = seed % 3 != 0;
    rig.program.flags.Thorough = ToBoolean(planned);
    std::map<std::string, std::vector<SimulatedRun>> others;
    std::vector<std::string> named;
    for (const auto& [path, pieces] : rig.before) {
      if (pieces > 0 && (random.Chance(0.1) || named.empty())) {
        named.push_back("C:\\" + path);
      } else {
        others[path] = disk->RunsOf(path);
      }
    }
    rig.engine.volume.SetFiles(named);
    rig.Run(Pass::Defrag);
    ExpectSound(rig);
    ASSERT_TRUE(rig.engine.record.Summary());
    const RunSummary summary = *rig.engine.record.Summary();
    for (const StillFragmented& file : summary.still_fragmented) {
      EXPECT_TRUE(std::ranges::find(named, file.path) != named.end()) << file.path;
    }
    if (planned) rig.ExpectNoneWorse();
    for (const auto& [path, runs] : others) {
      if (disk->RunsOf(path) == runs) continue;
      EXPECT_TRUE(planned) << path;
      ++made_room;
    }
    for (const std::string& path : named) {
      cured += PiecesOf(disk->RunsOf(path.substr(3))) < rig.before[path.substr(3)] ? 1 : 0;
    }
    const auto help = FindThoroughHelp(rig.engine.context, summary);
    EXPECT_FALSE(planned && help);
    if (!help) return;
    rig.program.flags.Thorough = True;
    rig.Run(Pass::Defrag);
    const RunSummary& after = *rig.engine.record.Summary();
    EXPECT_EQ(help->files,
              std::ssize(summary.still_fragmented) - std::ssize(after.still_fragmented));
    EXPECT_EQ(help->clusters_moved, after.clusters_moved);
  });
  if (test::TestSeed(0) != 0) return;
  EXPECT_GT(cured, 100);
  EXPECT_GT(made_room, 20);
}

// From its first second the bar stands for the data that the plan moves; before, for nothing.
TEST(Thorough, TheBarShowsTheDataMoved) {
  ForSeeds(10, [](std::uint64_t seed) {
    RandomVolumeOptions options;
    options.geometry = {.total_clusters = 8000, .sectors_per_cluster = 4096};
    options.reparse = options.locked = options.immovable = 0;
    options.mft = false;
    const auto disk = MakeRandomVolume(options, seed);
    ThoroughRig rig(*disk);
    const MoveStatistics& moved = rig.engine.movers.statistics;
    const ProgressBar& bar = rig.window.progress;
    std::size_t inside = 0;
    rig.machine->User().AtEveryDoEvents([&] {
      const std::string& caption = rig.window.caption;
      EXPECT_TRUE(!caption.starts_with("Planning") || bar.maximum + bar.value == 1);
      if (!caption.starts_with(seed % 2 ? "Defragmenting" : "Compacting")) return;
      EXPECT_EQ(bar.value, moved.clusters_moved + moved.clusters_in_hand);
      inside += moved.clusters_in_hand > 0 ? 1 : 0;
    });
    rig.Run(seed % 2 ? Pass::Defrag : Pass::Compact);
    EXPECT_GT(inside, 10U);
    EXPECT_EQ(bar.value, bar.maximum);
    EXPECT_EQ(bar.value, moved.clusters_moved);
  });
}

TEST(Thorough, WhateverFailsNothingGetsWorse) {
  using Fault = std::function<void(FaultPlan&, SimulatedVolume&, int nth)>;
  const std::pair<const char*, Fault> faults[] = {
      {"refused", [](FaultPlan& plan, SimulatedVolume&,
                     int nth) { plan.RefuseMove({.nth = nth}, error::kAccessDenied); }},
      {"refused from then on",
       [](FaultPlan& plan, SimulatedVolume&, int nth) {
         plan.RefuseMove({.nth = nth, .times = kForEver}, error::kAccessDenied);
       }},
      {"cannot be opened",
       [](FaultPlan& plan, SimulatedVolume&, int nth) {
         plan.FailOpen({.nth = nth, .times = 3}, error::kSharingViolation);
       }},
      {"somebody takes clusters",
       [](FaultPlan& plan, SimulatedVolume& volume, int nth) {
         plan.BeforeMove({.nth = nth}, [&volume] {
           for (std::int64_t lcn = 0; lcn < 300; lcn += 7) volume.TakeClusters(lcn, 1);
         });
       }},
  };
  for (const auto& [name, fault] : faults) {
    for (int nth = 1; nth < 40; ++nth) {
      SCOPED_TRACE(name + (" " + std::to_string(nth)));
      const auto disk = SmallVolume(static_cast<std::uint64_t>(nth % 7 + 1));
      ThoroughRig rig(*disk);
      fault(rig.faults, *disk, nth);
      const bool compact = nth % 2 == 0;
      rig.Run(compact ? Pass::Compact : Pass::Defrag);
      EXPECT_EQ(disk->DamagedContent(), std::vector<std::string>());
      // A file that slides can't go back where all is refused, or where others are by then.
      const bool stuck = name == std::string_view("refused from then on") ||
                         name == std::string_view("somebody takes clusters");
      if (!compact || !stuck) rig.ExpectNoneWorse();
      if (HasFailure()) return;
    }
  }
}

// More are refused than new plans are made.
TEST(Thorough, RefusalsKeepNoOtherFileInPieces) {
  for (const Pass pass : {Pass::Defrag, Pass::Compact}) {
    RandomVolumeOptions options;
    options.geometry.total_clusters = 40000;
    options.files = 1500;
    options.fragmented = options.immovable = 0.5;
    options.reparse = options.locked = options.with_stream = options.with_holes = 0;
    options.mft = false;
    const auto disk = MakeRandomVolume(options, test::TestSeed(1));
    ThoroughRig rig(*disk);
    rig.Run(pass);
    rig.ExpectNoneWorse();
    EXPECT_GT(rig.engine.movers.statistics.refused, 100);
    EXPECT_LT(std::ranges::count_if(
                  rig.engine.record.Summary()->still_fragmented,
                  [](const StillFragmented& file) { return file.why != WhyFragmented::Immovable; }),
              10);
  }
}

TEST(Thorough, StoppedAnywhereNothingIsWorse) {
  std::size_t planning = 0;  // stops while a plan was made
  const auto count = [&planning](Pass pass, std::size_t nth) {
    const auto disk = SmallVolume(3);
    ThoroughRig rig(*disk);
    ScriptedDesktop& user = rig.machine->User();
    const std::size_t before = user.DoEventsCount();
    std::optional<std::int64_t> moves;  // when it was stopped
    if (nth > 0) {
      user.Answer(BoxAnswer::Yes);
      user.AtDoEvents(before + nth, [&] {
        rig.window.Arretdefrag.Click();
        const std::string& caption = rig.window.caption;
        if (!caption.starts_with("Planning")) return;
        ++planning;
        moves = rig.engine.movers.statistics.moves;
      });
    }
    rig.Run(pass);
    if (moves) {
      EXPECT_EQ(rig.engine.movers.statistics.moves, *moves);
    }
    rig.ExpectNoneWorse();
    const ProgressBar& bar = rig.window.progress;
    const bool stopped = rig.program.flags.StopRequested && rig.engine.record.Summary();
    EXPECT_TRUE(!stopped || bar.value == 0 || bar.value == bar.maximum);
    return user.DoEventsCount() - before;
  };
  for (const Pass pass : {Pass::Defrag, Pass::Compact}) {
    const std::size_t checkpoints = count(pass, 0);
    ASSERT_GT(checkpoints, 50U);
    for (std::size_t nth = 1; nth <= checkpoints; ++nth) {
      SCOPED_TRACE(std::string(RowOf(pass).name) + " " + std::to_string(nth));
      count(pass, nth);
      if (HasFailure()) return;
    }
  }
  EXPECT_GT(planning, 20U);
}

}  // namespace
}  // namespace vornalux::testing
