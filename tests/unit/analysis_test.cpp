// SPDX-License-Identifier: GPL-2.0-or-later
// Tables: constants, exclusion, order, layout list, extents.
#include "engine/analysis.h"

#include <algorithm>
#include <set>
#include <tuple>

#include "engine/layout_list.h"
#include "host/simulated/seeded_random.h"
#include "unit/rig.h"

namespace vornalux::testing {
namespace {

// A machine without volumes, but with free-space figures.
class Figures final : public MountedPlatform {
 public:
  FreeSpace space;

  ErrorCode FreeSpaceFigures(const std::string&, FreeSpace& out) override {
    out = space;
    return error::kSuccess;
  }
};

TEST(Constants, FromFigures) {
  struct Case {
    const char* drive;  // Windows is on C:
    std::int64_t sectors, free, total;
    std::int32_t reserved_front, optimize_area;
    std::string log;
  };
  const std::string space = "Warning, free space low!: ";
  const std::string front = "Warning, sys space low!: ";
  const Case cases[] = {
      {"C:", 8, 4'000'000, 10'000'000, 2'500'000, 3'000'000, ""},
      {"D:", 8, 4'000'000, 10'000'000, 1'250'000, 3'000'000, ""},
      {"C:", 8, 2'500'000, 10'000'000, 2'500'000, 3'750'000, ""},
      {"C:", 8, 2'499'999, 10'000'000, 1'666'666, 3'750'000, front + "1666666\r\n"},
      {"D:", 3, 5'000'000, 5'000'000, 3'333'333, 0, ""},
      // Halves go to the even number: 39062.5, 2.5 and 3.5.
      {"D:", 256, 100'000, 100'005, 39'062, 2, ""},
      {"D:", 256, 100'000, 100'007, 39'062, 4, ""},
      {"D:", 1 << 20, 150, 1000, 10, 425, ""},
      {"D:", 1 << 20, 145, 1000, 10, 428, space + "14\r\n"},
      {"D:", 1 << 20, 140, 1000, 10, 430, space + "14\r\n"},
      {"D:", 1, 0, 1000, 0, 500, space + "0\r\n" + front + "0\r\n"},
      {"D:", 1, 10, 2'147'483'647, 7, 1'073'741'818, space + "0\r\n" + front + "7\r\n"},
  };
  SimulatedPlatform machine({.windows_folder = "C:\\Windows", .seed = 0, .power_off = {}});
  Figures figures;
  Platform platform{figures,         machine,        machine, machine, machine.User(),
                    machine.Shell(), machine.Keys(), machine, machine};
  RunFlags flags;
  flags.DebugLog = True;
  for (const Case& test : cases) {
    SCOPED_TRACE(std::to_string(test.free) + " of " + std::to_string(test.total));
    FrmDBG log;
    const DebugTrace trace(flags, log);
    VolumeGeometry geometry(platform, trace);
    figures.space = {test.sectors, 512, test.free, test.total};
    EXPECT_EQ(geometry.ReadVolumeConstants(test.drive), test.total);
    EXPECT_EQ(geometry.constants.OptimizeArea, test.optimize_area);
    EXPECT_EQ(geometry.constants.FreeClusters, test.free);
    EXPECT_EQ(log.DBGTXT.text(), test.log);

    // Figures that make no sense change nothing.
    for (const FreeSpace& bad : {FreeSpace{8, 512, 0, 0},
                                 {8, 512, 11, 10},
                                 {0, 512, 1, 10},
                                 {8, 512, -1, 10},
                                 {8, 512, 1, -10},
                                 {8, 512, 1, std::int64_t{1} << 31},
                                 {1LL << 40, 512, 1, 10}}) {
      EXPECT_EQ(geometry.constants.TotalClusters, test.total);
      EXPECT_EQ(geometry.constants.ReservedFront, test.reserved_front);
      figures.space = bad;
      EXPECT_EQ(geometry.ReadVolumeConstants(test.drive), 0);
    }
  }
}

TEST(CountFragments, AHoleBehindAHoleIsOneByItself) {
  EXPECT_EQ(CountFragments({{4, 100}, {6, -1}, {8, -1}, {9, 104}}, true), 3);
}

TEST(IncludedBy, Table) {
  for (const auto& [exclude, path, included] : {std::tuple{"", "C:\\A.iso", true},
                                                {"*.iso", "C:\\A.ISO", false},
                                                {"*.iso", "C:\\A.iso2", true},
                                                {"*.iso", "C:\\A.is", false},
                                                {"*.iso", "C:\\A", true},
                                                {"*.iso", "C:\\A.", false},
                                                {"*.tmp; *.vhd", "C:\\b.VHD", false},
                                                {"*.tmp; *.vhd", "C:\\b.hd", true},
                                                {".tmp", "C:\\b.tmp", true},
                                                {"*.d\\a", "C:\\c.d\\a", false},
                                                {"*.TMP", "C:\\x.y.tmp", false}}) {
    EXPECT_EQ(IncludedBy(exclude, path), included) << exclude << path;
  }
}

// The pairs stay together and come out in text order, also where all are equal.
TEST(Quicksort, OrdersAsText) {
  SimulatedVolume volume;
  Rig rig(volume);
  Platform platform = rig.machine->All();
  FragmentLists lists;
  ForSeeds(20, [&](std::uint64_t seed) {
    SeededRandom random(seed);
    const std::int64_t kinds = seed % 2 == 0 ? 1 : random.Between(1, 300);
    const std::int64_t count = random.Below(20000);
    lists.Clear();
    for (std::int64_t i = 0; i < count; ++i) {
      const std::int64_t extents = random.Between(2, 1 + kinds);
      lists.Add(std::to_string(i) + " in " + std::to_string(extents), extents);
    }
    const std::size_t events = rig.machine->User().DoEventsCount();
    lists.Quicksort(platform, 0, count);
    EXPECT_TRUE(std::ranges::is_sorted(lists.FragExtents));
    EXPECT_EQ(std::set(lists.FragNames.begin(), lists.FragNames.end()).size(),
              static_cast<std::size_t>(count + 1));
    for (std::size_t i = 1; i < lists.FragNames.size(); ++i) {
      ASSERT_TRUE(lists.FragNames[i].ends_with(" in " + lists.FragExtents[i]));
    }
    // Work goes by the number of different counts, not by the number of files.
    EXPECT_LE(rig.machine->User().DoEventsCount() - events,
              static_cast<std::size_t>(3 * kinds + 9));
  });
}

TEST(LayoutList, Table) {
  std::string utf16 = "\xFF\xFE";
  for (const char c : std::string("C:\\a\r\n")) utf16 += {c, '\0'};
  using List = std::vector<std::string>;
  std::string many;
  for (int i = 0; i < 1234; ++i) many += "C:\\a\n";
  struct Case {
    const char* name;
    const char* drive;
    std::string content;
    List added;
    std::size_t slots;  // behind the one entry that the walk had found
  };
  const std::vector<Case> cases = {
      {"no line break at the end", "C:\\", "C:\\a\nC:\\b", {"C:\\a", "C:\\b"}, 3},
      {"utf-16", "C:\\", utf16, {}, 1},
      {"cut at a NUL", "C:\\", std::string("C:\\a\0junk\r\nC:\\b\0", 17), {"C:\\a", "C:\\b"}, 3},
      {"folders and no folder",
       "C:\\",
       "C:\\folder\\\r\nC:\\folder\r\nC:\\a\\\r\nC:\\folder\\\\\r\n",
       {"C:\\folder\\", "C:\\folder"},
       3},
      {"more than the room", "C:\\", many, List(1234, "C:\\a"), 1235},
      {"missing", "C:\\", "-", {}, 1001},
      {"not the Windows drive", "D:\\", "C:\\a", {}, 1},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    SimulatedVolume volume;
    volume.AddFile("a", {{100, 2}});
    volume.AddFile("b", {{110, 2}});
    volume.AddFolder("folder", {{150, 1}});
    volume.AddFolder("Windows\\Prefetch");
    if (test.content != "-") {
      volume.SetContent(volume.AddFile("Windows\\Prefetch\\layout.ini"), test.content);
    }
    Rig rig(volume);
    PathList list;
    list.Add("C:\\b");
    list.Trim();
    ReadLayoutList(*rig.machine, rig.engine.extents, "C:\\Windows\\Prefetch", test.drive, list);
    EXPECT_EQ(list.count, 1);
    ASSERT_EQ(list.paths.size(), 1 + test.slots);
    EXPECT_EQ(list.paths.back(), "");
    List added(list.paths.begin() + 1, list.paths.end());
    std::erase(added, "");
    EXPECT_EQ(added, test.added);
    EXPECT_EQ(rig.engine.extents.LockedCount, 0);
    EXPECT_EQ(rig.StrayHandles(), 0U);
  }
}

// What is gathered of a file of 2,500 extents when the answers cannot be relied on.
TEST(ExtentReader, UnreliableAnswers) {
  SimulatedVolume volume({.total_clusters = 10000});
  std::vector<SimulatedRun> runs;
  for (std::int64_t i = 0; i < 2500; ++i) runs.push_back({2 * i, 1});
  volume.AddFile("many", runs);
  const auto expect = [&](std::int32_t extents, std::size_t calls, auto fault,
                          bool first_chunk = false) {
    SCOPED_TRACE(std::to_string(extents) + " by " + std::to_string(calls));
    Rig rig(volume);
    rig.machine->Log().Clear();
    fault(rig.faults);
    const ExtentRecord record = rig.engine.extents.ReadExtents("C:\\many", first_chunk, true);
    EXPECT_EQ(record.Count(), extents);
    EXPECT_EQ(rig.machine->Log().Count(CallKind::RetrievalPointers), calls);
    EXPECT_EQ(record.opened, calls > 0);
    EXPECT_EQ(rig.engine.extents.LockedCount, calls > 0 ? 0 : 1);
    EXPECT_EQ(rig.StrayHandles(), 0U);
  };
  expect(2500, 3, [](FaultPlan&) {});
  expect(
      1024, 1, [](FaultPlan&) {}, true);
  expect(0, 1, [](FaultPlan& f) { f.FailPointers({}, error::kReadFault); });
  expect(1024, 2, [](FaultPlan& f) { f.FailPointers({.nth = 2}, error::kReadFault); });
  expect(0, 1, [](FaultPlan& f) { f.EmptyChunk({.times = kForEver}); });
  expect(2048, 3, [](FaultPlan& f) { f.EmptyChunk({.nth = 3}); });
  expect(
      0, 1, [](FaultPlan& f) { f.StuckChunk({.times = kForEver}); }, true);
  expect(1024, 2, [](FaultPlan& f) { f.StuckChunk({.nth = 2}); });
  expect(0, 0, [](FaultPlan& f) { f.FailOpen({.times = kForEver}); });
  expect(2500, 3, [](FaultPlan& f) { f.FailOpen({.times = 2}); });
}

}  // namespace
}  // namespace vornalux::testing
