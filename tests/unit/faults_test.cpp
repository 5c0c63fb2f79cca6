// SPDX-License-Identifier: GPL-2.0-or-later
// Everything that can go wrong, at every call at which it can.
#include <optional>

#include "unit/rig.h"

namespace vornalux::testing {
namespace {

struct Fault {
  const char* name;
  CallKind counted;  // the calls that it can hit
  std::function<void(FaultPlan&, SimulatedVolume&, When)> plan;
};

const Fault kFaults[] = {
    {"open", CallKind::OpenPath, [](auto& f, auto&, When w) { f.FailOpen(w); }},
    {"pointers", CallKind::RetrievalPointers,
     [](auto& f, auto&, When w) { f.FailPointers(w, error::kReadFault); }},
    {"empty pointers", CallKind::RetrievalPointers,
     [](auto& f, auto&, When w) { f.EmptyChunk(w); }},
    {"stuck pointers", CallKind::RetrievalPointers,
     [](auto& f, auto&, When w) { f.StuckChunk(w); }},
    {"move", CallKind::MoveClusters,
     [](auto& f, auto&, When w) { f.RefuseMove(w, error::kAccessDenied); }},
    {"target taken", CallKind::MoveClusters,
     [](auto& f, auto& v, When w) { f.BeforeMove(w, [&v] { v.TakeClusters(0, 200); }); }},
    {"bitmap", CallKind::VolumeBitmap,
     [](auto& f, auto&, When w) { f.FailBitmap(w, error::kReadFault); }},
    {"negative bitmap", CallKind::VolumeBitmap,
     [](auto& f, auto&, When w) { f.LieInBitmap(w, BitmapLie::NegativeSize); }},
    {"no bits", CallKind::VolumeBitmap,
     [](auto& f, auto&, When w) { f.LieInBitmap(w, BitmapLie::NoBits); }},
    {"space taken", CallKind::VolumeBitmap,
     [](auto& f, auto& v, When w) { f.TakeAfterBitmap(w, v, 0, 150); }},
    {"folder", CallKind::FindFirst, [](auto& f, auto&, When w) { f.FailFindFirst(w); }},
    {"volume", CallKind::OpenVolume, [](auto& f, auto&, When w) { f.FailOpenVolume(w); }},
    {"figures", CallKind::FreeSpaceFigures,
     [](auto& f, auto&, When w) { f.FailFreeSpace(w, error::kNotReady); }},
    {"no clusters", CallKind::FreeSpaceFigures,
     [](auto& f, auto&, When w) { f.ReportNoClusters(w); }},
};

class FaultTest : public ::testing::TestWithParam<RunKind> {};

TEST_P(FaultTest, AtEveryCall) {
  const std::string unreadable = "Error reading the drive information.";
  const std::string unopenable =
      "Error opening the drive.\r\nClose some applications and try again.";
  for (const Fault& fault : kFaults) {
    const auto volume = SmallVolume(5);
    Rig sound(*volume);
    sound.machine->Log().Clear();
    sound.Run(GetParam());
    const auto calls = static_cast<int>(sound.machine->Log().Count(fault.counted));
    const auto moves = sound.machine->Log().Count(CallKind::MoveClusters);
    for (int nth = 1; nth <= calls; ++nth) {
      for (const int times : {1, kForEver}) {
        SCOPED_TRACE(std::string(fault.name) + ", call " + std::to_string(nth) +
                     (times == 1 ? "" : " and all after it"));
        const auto hit = SmallVolume(5);
        Rig rig(*hit);
        rig.program.flags.DebugLog = ToBoolean(nth % 2 == 0);
        rig.machine->Log().Clear();
        fault.plan(rig.faults, *hit, {.nth = nth, .times = times});
        rig.Run(GetParam());
        EXPECT_EQ(hit->DamagedContent(), std::vector<std::string>());
        EXPECT_EQ(hit->ConsistencyProblems(), std::vector<std::string>());
        EXPECT_TRUE(rig.Idle());
        EXPECT_EQ(rig.StrayHandles(), 0U);
        for (const std::string& box : rig.Boxes()) {
          EXPECT_TRUE(box == unreadable || box == unopenable) << box;
        }
        // Without figures, map or drive: a message, no run, nothing computed.
        const bool walked = rig.machine->Log().Count(CallKind::FindFirst) > 0;
        EXPECT_TRUE(walked || rig.window.last_run_failed);
        if (rig.window.last_run_failed) {
          EXPECT_EQ(rig.Boxes().size(), 1U);
          EXPECT_EQ(rig.machine->Log().Count(CallKind::MoveClusters), 0U);
          EXPECT_FALSE(rig.program.flags.AnalysisValid);
        }
        EXPECT_LE(rig.machine->Log().Count(CallKind::MoveClusters), 4 * moves + 40);
        if (HasFailure()) return;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, FaultTest, ::testing::ValuesIn(AllRuns()),
                         [](const auto& pass) { return PassName(pass.param); });

// A file of nine clusters, three gaps of which none holds it whole: 5, 3 and 3 clusters.
struct Pieces {
  Pieces() : volume({.total_clusters = 100, .file_system = "FAT32"}) {
    volume.AddFile("file", {{10, 4}, {20, 5}});
    volume.TakeClusters(0, 10);
    volume.TakeClusters(17, 3);
    volume.TakeClusters(25, 20);
    volume.TakeClusters(50, 20);
    volume.TakeClusters(73, 27);
    rig = std::make_unique<Rig>(volume);
    rig->DebugOn();
  }

  // The moves of one run of the mover, as "vcn>lcn*count".
  std::string Moves() {
    rig->engine.movers.DefragmentFile("C:\\file");
    std::string text;
    for (const CallRecord& call : rig->machine->Log().Of(CallKind::MoveClusters)) {
      text += std::to_string(call.numbers[0]) + ">" + std::to_string(call.numbers[1]) + "*" +
              std::to_string(call.numbers[2]) + " ";
    }
    return text;
  }

  SimulatedVolume volume;
  std::unique_ptr<Rig> rig;
};

// Windows refuses a FAT folder in every gap: few requests, and the reason is told.
TEST(WindowsFat, AFolderIsNotOfferedEveryGap) {
  using Mover = std::int64_t (Movers::*)(const std::string&);
  for (const Mover mover : {&Movers::MoveWholeFile, &Movers::OptimizeFile,
                            &Movers::PlacePrefetchFile, &Movers::DefragmentFile}) {
    SimulatedVolume volume({.total_clusters = 400, .file_system = "FAT32"});
    for (int lcn = 0; lcn < 300; lcn += 10) volume.TakeClusters(lcn, 5);
    volume.AddFolder("folder", {{305, 1}, {307, 1}});
    Rig rig(volume);
    rig.machine->UseFatDriver();
    const bool front = mover == &Movers::PlacePrefetchFile;
    rig.engine.geometry.constants.ReservedFront = front ? 300 : 0;
    (rig.engine.movers.*mover)("C:\\folder");
    EXPECT_LE(rig.machine->Log().Count(CallKind::MoveClusters), 2U);
    const auto& failures = rig.engine.movers.statistics.failures;
    ASSERT_EQ(failures.size(), 1U);
    EXPECT_EQ(failures[0].reason, NotMoved::Refused);
    EXPECT_EQ(failures[0].code, error::kInvalidParameter);
  }
}

// A file that ends with its last piece, for which Windows' FAT has a success left; and the root
// folder in front of the clusters, which lies nowhere.
TEST(WindowsFat, OnlyWhatMovedCounts) {
  SimulatedVolume volume({.total_clusters = 100, .file_system = "FAT"});
  volume.AddFile("file", {{10, 4}, {20, 5}});
  volume.TakeClusters(0, 10);
  volume.TakeClusters(14, 6);
  volume.TakeClusters(25, 20);
  volume.TakeClusters(50, 20);
  volume.TakeClusters(74, 26);
  Rig rig(volume);
  rig.machine->UseFatDriver();
  Movers& movers = rig.engine.movers;
  EXPECT_EQ(movers.DefragmentFile("C:\\file"), 0);
  EXPECT_EQ(rig.machine->Log().Count(CallKind::MoveClusters), 3U);
  EXPECT_EQ(movers.statistics.moves, 2);
  EXPECT_EQ(movers.statistics.clusters_moved, 9);

  EXPECT_EQ(rig.engine.extents.ReadExtents("C:\\", false, false).extents.size(), 0U);
  EXPECT_EQ(rig.engine.extents.FirstAllocatedLcn("C:\\"), -1);
  movers.MoveWholeFile("C:\\");
  movers.DefragmentFile("C:\\");
  EXPECT_EQ(rig.machine->Log().Count(CallKind::MoveClusters), 3U);
  EXPECT_TRUE(volume.ContentIntact() && movers.statistics.failures.empty());
}

TEST(Pieces, AHoleIsOneRequest) {
  Pieces pieces;
  pieces.volume.ReleaseClusters(55, 2);
  pieces.volume.Remove(*pieces.volume.Find("file"));
  pieces.volume.AddFile("file", {{55, 2}, {-1, 1000001}, {20, 5}});
  EXPECT_EQ(pieces.Moves(), "0>10*7 7>12*5 1000002>12*5 1000007>45*5 ");
  EXPECT_TRUE(pieces.volume.ContentIntact());
}

TEST(Pieces, EndOfThePieceInHand) {
  struct Case {
    const char* name;
    std::function<void(Pieces&)> prepare;
    const char* moves;
    std::optional<NotMoved> failure;
  };
  const auto stop = [](Pieces& p) { p.rig->program.flags.StopRequested = True; };
  const Case cases[] = {
      {"stopped during the first",
       [&](Pieces& p) { p.rig->faults.BeforeMove({}, [&] { stop(p); }); }, "0>45*5 ", std::nullopt},
      {"stopped between the two",
       [&](Pieces& p) { p.rig->faults.AfterBitmap({.nth = 2}, [&] { stop(p); }); }, "0>45*5 ",
       std::nullopt},
      {"refused", [](Pieces& p) { p.rig->faults.RefuseMove({.nth = 2}, error::kAccessDenied); },
       "0>45*5 5>10*7 ", NotMoved::Refused},
      {"bitmap unreadable",
       [](Pieces& p) { p.rig->faults.FailBitmap({.nth = 2}, error::kReadFault); }, "0>45*5 ",
       NotMoved::NoGap},
      {"target taken", [](Pieces& p) { p.rig->faults.TakeAfterBitmap({}, p.volume, 45, 1); },
       "0>45*5 ", NotMoved::Refused},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    Pieces pieces;
    test.prepare(pieces);
    EXPECT_EQ(pieces.Moves(), test.moves);
    const auto& failures = pieces.rig->engine.movers.statistics.failures;
    EXPECT_EQ(failures.empty() ? std::nullopt : std::optional(failures[0].reason), test.failure);
    EXPECT_TRUE(pieces.volume.ContentIntact());
    EXPECT_EQ(pieces.rig->StrayHandles(), 0U);
  }
}

}  // namespace
}  // namespace vornalux::testing
