// SPDX-License-Identifier: GPL-2.0-or-later
// Tables: constants, exclusion, order, layout list, extents.
#include "engine/analysis.h"

#include <algorithm>
#include <map>

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
  for (const Case& test : cases) {
    SCOPED_TRACE(std::to_string(test.free) + " of " + std::to_string(test.total));
    SimulatedPlatform machine({.windows_folder = "C:\\Windows", .seed = 0, .power_off = {}});
    Figures figures;
    Platform platform{figures,         machine,        machine, machine, machine.User(),
                      machine.Shell(), machine.Keys(), machine, machine};
    RunFlags flags;
    flags.DebugLog = True;
    FrmDBG log;
    const DebugTrace trace(flags, log);
    VolumeGeometry geometry(platform, trace);
    figures.space = {test.sectors, 512, test.free, test.total};
    EXPECT_EQ(geometry.ReadVolumeConstants(test.drive), test.total);
    EXPECT_EQ(geometry.constants.ReservedFront, test.reserved_front);
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
      figures.space = bad;
      EXPECT_EQ(geometry.ReadVolumeConstants(test.drive), 0);
      EXPECT_EQ(geometry.constants.TotalClusters, test.total);
      EXPECT_EQ(geometry.constants.ReservedFront, test.reserved_front);
    }
  }
}

TEST(CountFragments, AHoleBehindAHoleIsOneByItself) {
  EXPECT_EQ(CountFragments({{4, 100}, {6, -1}, {8, -1}, {9, 104}}, true), 3);
}

TEST(IncludedBy, Table) {
  struct Case {
    const char* exclude;
    const char* path;
    bool included;
  };
  const Case cases[] = {
      {"", "C:\\A.iso", true},
      {"*.iso", "C:\\A.iso", false},
      {"*.iso", "C:\\A.ISO", false},
      {"*.iso", "C:\\A.iso2", true},
      {"*.iso", "C:\\A.is", false},
      {"*.iso", "C:\\A", true},
      {"*.iso", "C:\\A.", false},
      {"*.tmp; *.vhd", "C:\\b.VHD", false},
      {"*.tmp; *.vhd", "C:\\b.hd", true},
      {".tmp", "C:\\b.tmp", true},
      {"*.d\\a", "C:\\c.d\\a", false},
      {"*.TMP", "C:\\x.y.tmp", false},
  };
  for (const Case& test : cases) {
    EXPECT_EQ(IncludedBy(test.exclude, test.path), test.included) << test.exclude << test.path;
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
    std::map<std::string, std::string> pairs = {{"", ""}};
    for (std::int64_t i = 0; i < count; ++i) {
      const std::string name = "f" + std::to_string(i);
      lists.Add(name, random.Between(2, 1 + kinds));
      pairs[name] = lists.FragExtents[static_cast<std::size_t>(i)];
    }
    const std::size_t before = rig.machine->User().DoEventsCount();
    lists.Quicksort(platform, 0, count);
    EXPECT_TRUE(std::is_sorted(lists.FragExtents.begin(), lists.FragExtents.end()));
    std::map<std::string, std::string> sorted;
    for (std::size_t i = 0; i < lists.FragNames.size(); ++i) {
      sorted[lists.FragNames[i]] = lists.FragExtents[i];
    }
    EXPECT_EQ(sorted, pairs);
    // Work goes by the number of different counts, not by the number of files.
    EXPECT_LE(rig.machine->User().DoEventsCount() - before,
              static_cast<std::size_t>(3 * kinds + 9));
  });
}

TEST(LayoutList, Table) {
  std::string utf16 = "\xFF\xFE";
  for (const char c : std::string("C:\\a\r\n")) utf16 += {c, '\0'};
  using List = std::vector<std::string>;
  List many;
  std::string many_lines;
  for (int i = 0; i < 1234; ++i) {
    many.push_back("C:\\a");
    many_lines += "C:\\a\n";
  }
  struct Case {
    const char* name;
    const char* drive;
    std::string content;
    List added;
    std::size_t slots;  // behind the one entry that the walk had found
  };
  const std::vector<Case> cases = {
      {"empty", "C:\\", "", {}, 1},
      {"order and duplicates",
       "C:\\",
       "[x]\r\nV=1\r\nC:\\b\r\nC:\\a\r\nC:\\pre\r\nC:\\b\r\n",
       {"C:\\b", "C:\\a", "C:\\pre", "C:\\b"},
       5},
      {"no line break at the end", "C:\\", "C:\\a\nC:\\b", {"C:\\a", "C:\\b"}, 3},
      {"utf-16", "C:\\", utf16, {}, 1},
      {"other drive, case, missing, resident, locked",
       "C:\\",
       "D:\\a\nc:\\a\nC:\\none\nC:\\resident\nC:\\locked\n\n C:\\a\n",
       {},
       1},
      {"cut at a NUL", "C:\\", std::string("C:\\a\0junk\r\nC:\\b\0", 17), {"C:\\a", "C:\\b"}, 3},
      {"folders and no folder",
       "C:\\",
       "C:\\folder\\\r\nC:\\folder\r\nC:\\a\\\r\nC:\\folder\\\\\r\n",
       {"C:\\folder\\", "C:\\folder"},
       3},
      {"leading hole", "C:\\", "C:\\sparse", {"C:\\sparse"}, 2},
      {"more than the room", "C:\\", many_lines, many, 1235},
      {"missing", "C:\\", "-", {}, 1001},
      {"not the Windows drive", "D:\\", "C:\\a", {}, 1},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    SimulatedVolume volume;
    volume.AddFile("a", {{100, 2}});
    volume.AddFile("b", {{110, 2}});
    volume.AddFile("pre", {{120, 2}});
    volume.AddFile("resident");
    volume.AddFile("sparse", {{-1, 4}, {140, 2}});
    volume.Lock(volume.AddFile("locked", {{130, 2}}));
    volume.AddFolder("folder", {{150, 1}});
    volume.AddFolder("Windows\\Prefetch");
    if (test.content != "-") {
      volume.SetContent(volume.AddFile("Windows\\Prefetch\\layout.ini"), test.content);
    }
    Rig rig(volume);
    PathList list;
    list.Add("C:\\pre");
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
  struct Case {
    const char* name;
    std::function<void(FaultPlan&)> fault;
    bool first_chunk;
    std::int32_t extents;
    std::size_t calls;
  };
  const Case cases[] = {
      {"whole", [](FaultPlan&) {}, false, 2500, 3},
      {"first chunk", [](FaultPlan&) {}, true, 1024, 1},
      {"fails", [](FaultPlan& f) { f.FailPointers({}, error::kReadFault); }, false, 0, 1},
      {"fails later", [](FaultPlan& f) { f.FailPointers({.nth = 2}, error::kReadFault); }, false,
       1024, 2},
      {"empty", [](FaultPlan& f) { f.EmptyChunk({.times = kForEver}); }, false, 0, 1},
      {"empty later", [](FaultPlan& f) { f.EmptyChunk({.nth = 3}); }, false, 2048, 3},
      {"stuck", [](FaultPlan& f) { f.StuckChunk({.times = kForEver}); }, true, 0, 1},
      {"stuck later", [](FaultPlan& f) { f.StuckChunk({.nth = 2}); }, false, 1024, 2},
      {"locked", [](FaultPlan& f) { f.FailOpen({.times = kForEver}); }, false, 0, 0},
      {"third attempt opens", [](FaultPlan& f) { f.FailOpen({.times = 2}); }, false, 2500, 3},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    Rig rig(volume);
    rig.machine->Log().Clear();
    test.fault(rig.faults);
    const ExtentRecord record = rig.engine.extents.ReadExtents("C:\\many", test.first_chunk, true);
    EXPECT_EQ(record.Count(), test.extents);
    EXPECT_EQ(rig.machine->Log().Count(CallKind::RetrievalPointers), test.calls);
    EXPECT_EQ(record.opened, test.calls > 0);
    EXPECT_EQ(rig.engine.extents.LockedCount, test.calls > 0 ? 0 : 1);
    EXPECT_EQ(rig.StrayHandles(), 0U);
  }
}

}  // namespace
}  // namespace vornalux::testing
