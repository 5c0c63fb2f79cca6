// SPDX-License-Identifier: GPL-2.0-or-later
// Analysis and passes on random volumes against the plain model: the same lists, the same moves in
// the same order, the same log.
#include <algorithm>
#include <functional>
#include <sstream>

#include "engine/summary_text.h"
#include "host/simulated/random_volume.h"
#include "host/simulated/seeded_random.h"
#include "unit/plain_model.h"
#include "unit/rig.h"

namespace vornalux::testing {
namespace {

RandomVolumeOptions RandomOptions(SeededRandom& random) {
  const auto share = [&](std::int64_t most) {
    return static_cast<double>(random.Below(most)) / 100;
  };
  RandomVolumeOptions options;
  options.geometry.total_clusters =
      random.Chance(0.1) ? random.Between(32000, 70000) : random.Between(150, 4000);
  options.geometry.sectors_per_cluster = random.Chance(0.7)
                                             ? 1U << random.Below(5)
                                             : static_cast<std::uint32_t>(random.Between(1, 16));
  options.geometry.file_system = random.Chance(0.7) ? "NTFS" : "FAT32";
  options.files = random.Between(3, 60);
  options.folders = random.Below(12);
  options.fill = 0.2 + share(78);
  options.fragmented = share(100);
  options.most_pieces = random.Between(2, 20);
  options.with_holes = share(30);
  options.with_stream = share(40);
  options.locked = share(10);
  options.immovable = share(10);
  return options;
}

// A random volume, and what else a run depends on. Twice from the same seed: the same.
struct Scene {
  explicit Scene(std::uint64_t seed) : random(seed) {
    volume = MakeRandomVolume(RandomOptions(random), seed);
    volume->AddFolder("Windows\\Prefetch", FreeCluster());
    volume->AddFile("Windows\\Prefetch\\A.pf", FreeCluster());
    volume->AddFile("Windows\\Prefetching.txt", FreeCluster());
    volume->AddFile(".hidden\\inside", FreeCluster());
    if (random.Chance(0.5)) volume->TellChanges();
    settings.vss_safe = random.Chance(0.5);
    settings.debug_log = random.Chance(0.5);
    for (int nth = 1; nth < 500; ++nth) {
      if (random.Chance(0.1)) settings.refused.insert(nth);
    }
    settings.layout = {"C:\\Windows\\Prefetch\\A.pf", "C:\\no such file"};
    for (std::int64_t i = random.Below(12); i > 0; --i) settings.layout.push_back(AnyPath());
    std::string layout = "[OptimalLayoutFile]\r\nVersion=1\r\nD:\\elsewhere\r\nc:\\folder1\r\n";
    for (const std::string& path : settings.layout) layout += path + "\r\n";
    volume->SetContent(volume->AddFile("Windows\\Prefetch\\layout.ini"), layout);
  }

  std::string AnyPath() {
    const auto item =
        static_cast<ItemId>(random.Between(1, static_cast<std::int64_t>(volume->ItemCount()) - 1));
    return "C:\\" + volume->PathOf(item);
  }

  // One cluster, where there is room.
  std::vector<SimulatedRun> FreeCluster() const {
    for (const FreeRun& gap : PlainRuns(BitmapOf(*volume), volume->Facts().total_clusters)) {
      if (gap.start + gap.length > 1) return {{std::max(gap.start, 1), 1}};
    }
    return {};
  }

  SeededRandom random;
  std::unique_ptr<SimulatedVolume> volume;
  PlainModel::Settings settings;
};

std::vector<MoveRequest> Requests(const Rig& rig) {
  std::vector<MoveRequest> requests;
  const CallLog& log = rig.machine->Log();
  for (const CallRecord& call : log.Of(CallKind::MoveClusters)) {
    requests.push_back(
        {log.Path(call), call.numbers[0], call.numbers[1], call.numbers[2], call.error});
  }
  return requests;
}

std::vector<std::string> MoverLines(const std::string& log) {
  std::vector<std::string> lines;
  std::istringstream text(log);
  for (std::string line; std::getline(text, line);) {
    if (line.size() > 4 && line[3] == ':' && std::isupper(static_cast<unsigned char>(line[0]))) {
      lines.push_back(line.substr(0, line.size() - 1));
    }
  }
  return lines;
}

std::vector<std::string> WithoutEmpty(std::vector<std::string> paths) {
  std::erase(paths, "");
  return paths;
}

// The engine's lists say what the model says; the fragmented files are in ascending text order.
void ExpectAnalysis(Rig& rig, const PlainModel& model, bool class_lists) {
  const FileTable& table = rig.engine.table;
  EXPECT_EQ(table.TotalFiles, model.files);
  EXPECT_EQ(table.TotalDirs, model.folders);
  EXPECT_EQ(rig.engine.extents.LockedCount, model.locked);
  const FragmentLists& lists = rig.engine.analysis.lists;
  EXPECT_TRUE(std::is_sorted(lists.FragExtents.begin(), lists.FragExtents.end()));
  std::map<std::string, std::int64_t> fragmented;
  for (std::size_t i = 1; i < lists.FragNames.size(); ++i) {
    fragmented[lists.FragNames[i]] = std::stoll(lists.FragExtents[i]);
  }
  EXPECT_EQ(fragmented, model.fragmented);
  if (!class_lists) return;
  std::vector<std::string> prefetch = model.prefetch;
  EXPECT_EQ(table.PrefetchFiles.count, std::ssize(prefetch));
  prefetch.insert(prefetch.end(), model.layout.begin(), model.layout.end());
  EXPECT_EQ(WithoutEmpty(table.PrefetchFiles.paths), prefetch);
  EXPECT_EQ(WithoutEmpty(table.MoveOutFiles.paths), model.move_out);
  EXPECT_EQ(WithoutEmpty(table.OptimizeFiles.paths), model.optimize);
  EXPECT_EQ(WithoutEmpty(table.DirsToMove.paths), model.dirs);
}

// What the run says of itself is what the model finds on the volume.
void ExpectSummary(const Rig& rig, const PlainModel& model) {
  ASSERT_TRUE(rig.engine.record.Summary());
  const RunSummary& summary = *rig.engine.record.Summary();
  const FreeRunList gaps = PlainRuns(BitmapOf(rig.volume), rig.volume.Facts().total_clusters);
  std::vector<std::int64_t> lengths;
  for (const FreeRun& gap : gaps) lengths.push_back(gap.length);
  std::ranges::sort(lengths, std::greater());
  const std::int64_t largest = lengths.empty() ? 0 : lengths[0];
  lengths.resize(std::min(lengths.size(), kRegionsTold));
  ASSERT_TRUE(summary.after && summary.regions_after);
  EXPECT_EQ(summary.regions_after->count, std::ssize(gaps));
  EXPECT_EQ(summary.regions_after->largest, lengths);

  EXPECT_EQ(summary.after->fragmented, std::ssize(model.fragmented));
  std::set<std::string> told;
  std::int64_t fragments = 0;
  for (const StillFragmented& file : summary.still_fragmented) {
    SCOPED_TRACE(file.path + " " + ReasonText(file.why));
    EXPECT_TRUE(told.insert(file.path).second && model.fragmented.contains(file.path));
    fragments += file.fragments;
    const bool too_large = file.clusters > largest;
    EXPECT_TRUE(file.why != WhyFragmented::NoGap || too_large);
    EXPECT_TRUE(!too_large ||
                (file.why != WhyFragmented::NoPlace && file.why != WhyFragmented::NoGapThen));
    EXPECT_TRUE(file.why != WhyFragmented::Changed && file.why != WhyFragmented::Stopped);
    const auto& in_pieces = rig.engine.movers.statistics.in_pieces;
    EXPECT_TRUE(file.why != WhyFragmented::InPieces ||
                std::ranges::count(in_pieces, file.path, &MovedInPieces::path) == 1);
  }
  EXPECT_EQ(std::ssize(told), summary.after->fragmented);
  EXPECT_EQ(fragments, summary.after->fragments);
  EXPECT_TRUE(std::ranges::is_sorted(summary.still_fragmented, std::greater(),
                                     &StillFragmented::fragments));
}

class PassesTest : public ::testing::TestWithParam<PassRow> {};

TEST_P(PassesTest, EqualsPlainModel) {
  const Pass pass = GetParam().pass;
  const bool classes = GetParam().needs_class_lists;
  ForSeeds(250, [&](std::uint64_t seed) {
    Scene scene(seed);
    Scene twin(seed);
    Rig rig(*scene.volume);
    for (const int nth : scene.settings.refused) {
      rig.faults.RefuseMove({.nth = nth}, error::kGenFailure);
    }
    rig.program.flags.VssSafe = ToBoolean(scene.settings.vss_safe);
    rig.program.flags.DebugLog = ToBoolean(scene.settings.debug_log);
    rig.Run(pass);

    twin.settings.error_text = [&](ErrorCode code) {
      std::string text = rig.machine->ErrorText(code);
      return text.substr(0, text.find('\r'));
    };
    PlainModel model(*twin.volume, twin.settings);
    model.Analyze(classes);
    ExpectAnalysis(rig, model, classes);
    model.Run(pass, rig.engine.analysis.lists.FragNames);
    ASSERT_EQ(Requests(rig), model.requests);
    EXPECT_EQ(rig.engine.movers.statistics.clusters_moved, scene.volume->ClustersMoved());
    EXPECT_EQ(MoverLines(rig.Log()), model.log);

    ExpectSound(rig);
    EXPECT_EQ(rig.Boxes(), std::vector<std::string>());
    EXPECT_EQ(rig.engine.geometry.constants.ReservedFront,
              pass == Pass::Compact ? 0 : model.reserved_front());
    PlainModel end(*scene.volume, scene.settings);
    end.Analyze(classes);
    ExpectSummary(rig, end);
    PlainModel after(*scene.volume, scene.settings);
    after.Analyze(false);
    rig.window.cmdanalysemore.Click();
    ExpectAnalysis(rig, after, false);
  });
}

INSTANTIATE_TEST_SUITE_P(All, PassesTest, ::testing::ValuesIn(kPasses),
                         [](const auto& row) { return row.param.name; });

// How often the map is drawn anew: each time, the volume is opened once, and once for the run.
TEST(Passes, RedrawsAndReuseOfAnalysis) {
  for (const bool ntfs : {false, true}) {
    for (const bool each_file : {false, true}) {
      SCOPED_TRACE(std::to_string(ntfs) + std::to_string(each_file));
      const auto volume = SmallVolume(3, ntfs ? "NTFS" : "FAT32");
      Rig rig(*volume);
      if (each_file) rig.window.Affiche.Click();
      const CallLog& log = rig.machine->Log();
      const FileTable& table = rig.engine.table;
      const std::vector<std::string>& fragmented = rig.engine.analysis.lists.FragNames;
      const auto expect = [&](RunKind pass, bool walks, std::size_t redraws, auto&... lists) {
        rig.machine->Log().Clear();
        rig.Run(pass);
        if (each_file) redraws += (std::size_t{0} + ... + lists.size());
        EXPECT_EQ(log.Count(CallKind::OpenVolume), 1 + redraws);
        EXPECT_EQ(log.Count(CallKind::FindFirst) > 0, walks);
      };
      expect(kAnalyze, true, 1);
      EXPECT_TRUE(rig.program.flags.AnalysisValid);
      expect(Pass::Defrag, false, 1, fragmented);
      expect(Pass::Defrag, true, 2, fragmented);
      expect(Pass::Compact, true, 4, table.DirsToMove.paths, table.OptimizeFiles.paths);
      expect(Pass::Optimize, true, ntfs ? 7 : 6);
      rig.program.flags.OptimizeMode = True;
      rig.engine.analysis.Analyze_This();
      expect(Pass::Optimize, false, ntfs ? 6 : 5);
      ExpectSound(rig);
    }
  }
}

TEST(Passes, ResultsOfAnalysisAreShown) {
  SimulatedVolume volume({.total_clusters = 100});
  volume.AddFile("dir\\split.txt", {{10, 2}, {20, 1}, {30, 3}});
  volume.AddFile("dir\\torn.iso", {{40, 1}, {50, 1}});
  volume.AddFile("one", {{60, 5}});
  Rig rig(volume);
  const auto shown = [&] {
    std::string text;
    for (const Label& panel : rig.window.status_panels) text += panel.caption.get() + " | ";
    for (const Label& count : rig.window.details.counts) text += count.caption.get() + " ";
    return text;
  };
  rig.Run(kAnalyze);
  EXPECT_EQ(shown(),
            "files: 3 | dirs: 1 | free: 87 (87%) | fragmented: 2 | fragments: 5 | max/file: 3 | "
            "[2] N/A N/A ");
  rig.program.launcher.ExcludeTxt.text = std::string("*.iso");
  rig.Run(Pass::Optimize);
  EXPECT_EQ(shown(),
            "files: 3 | dirs: 1 | free: 87 (87%) | fragmented: 0 | fragments: 0 | max/file: 0 | "
            "[1] [3] [0] ")
      << "in the status bar as it is after the run";
}

// $MFT in two extents, the front limit at 100, one gap: whether it goes there. A random volume
// hardly ever has it on the limit.
TEST(Movers, LimitsOfTheMft) {
  for (const auto& [mft, gap, moves] :
       {std::tuple{101, 50, true}, {100, 50, false}, {200, 99, true}, {200, 100, false}}) {
    SCOPED_TRACE("from " + std::to_string(mft) + " to " + std::to_string(gap));
    SimulatedVolume volume({.total_clusters = 400});
    volume.AddMft({{mft, 20}, {240, 20}});
    volume.TakeClusters(0, 400);
    volume.ReleaseClusters(gap, 40);
    Rig rig(volume);
    rig.engine.geometry.constants.ReservedFront = 100;
    rig.engine.movers.DefragmentFileInFront("C:\\$MFT", true);
    const std::vector<MoveRequest> requests = Requests(rig);
    EXPECT_EQ(requests.empty() ? -1 : requests[0].lcn, moves ? gap : -1);
  }
}

}  // namespace
}  // namespace vornalux::testing
