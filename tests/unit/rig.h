// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/program.h"
#include "host/simulated/random_volume.h"
#include "host/simulated/simulated_platform.h"
#include "support/seed.h"

namespace vornalux::testing {

// Runs body for the seeds 1 to count until one of them fails, or for the one that is given.
template <typename Body>
void ForSeeds(std::uint64_t count, Body body) {
  const std::uint64_t given = test::TestSeed(0);
  for (std::uint64_t seed = given != 0 ? given : 1; seed <= std::max(given, count); ++seed) {
    SCOPED_TRACE(test::SeedNote(seed));
    body(seed);
    if (given != 0 || ::testing::Test::HasFailure()) return;
  }
}

// What the menu can start: a pass, or analysis alone.
using RunKind = std::optional<Pass>;
inline constexpr RunKind kAnalyze = std::nullopt;

inline std::string PassName(RunKind run) { return run ? RowOf(*run).name : "Analyze"; }

inline std::vector<RunKind> AllRuns() {
  std::vector<RunKind> runs = {kAnalyze};
  for (const PassRow& row : kPasses) runs.push_back(row.pass);
  return runs;
}

// Whether a volume is chosen when the test begins.
enum class Chosen { C, None };

// The whole program on a simulated machine whose drive C: is the given volume. Windows lies there.
struct Rig {
  explicit Rig(SimulatedVolume& disk,
               MachineSettings settings = {.windows_folder = "C:\\Windows",
                                           .seed = 7,
                                           .power_off = {}},
               Chosen chosen = Chosen::C)
      : volume(disk), machine(Mounted(disk, std::move(settings))), program(machine->All()) {
    if (chosen == Chosen::C) {
      program.launcher.SelectDrive("C:\\");
      window.OpenMenu();
    }
    // A narrow map has fewer checkpoints.
    window.Picdepartvolume.Resize(24);
    window.changed = [this] {
      if (captions.empty() || captions.back() != window.caption.get()) {
        captions.push_back(window.caption);
      }
    };
  }

  static std::unique_ptr<SimulatedPlatform> Mounted(SimulatedVolume& disk,
                                                    MachineSettings settings) {
    auto platform = std::make_unique<SimulatedPlatform>(std::move(settings));
    platform->AddVolume('C', disk);
    return platform;
  }

  void Run(RunKind run) { (run ? window.PassItem(*run) : window.cmdanalysemore).Click(); }
  void DebugOn() { program.flags.DebugLog = True; }
  const std::string& Log() const { return program.debug_window.DBGTXT.text(); }
  bool Idle() const { return !window.Busy() && !window.Arretdefrag.enabled; }
  // Open files and volumes besides the chosen volume.
  std::size_t StrayHandles() const {
    return machine->OpenHandles() - (engine.volume.IsOpen() ? 1 : 0);
  }
  // Every box that was shown, as its text.
  std::vector<std::string> Boxes() const {
    std::vector<std::string> texts;
    for (const ShownBox& box : machine->User().Boxes()) texts.push_back(box.text);
    return texts;
  }

  SimulatedVolume& volume;
  std::unique_ptr<SimulatedPlatform> machine;
  Program program;
  DefragWindow& window = program.main_window;
  Engine& engine = window.engine;
  FaultPlan& faults = machine->Faults();
  std::vector<std::string> captions;  // in the order shown
};

// A volume on which every kind of pass has something to do, and soon ends.
inline std::unique_ptr<SimulatedVolume> SmallVolume(std::uint64_t seed,
                                                    const char* file_system = "NTFS") {
  RandomVolumeOptions options;
  options.geometry.file_system = file_system;
  options.geometry.total_clusters = 300;
  // Large clusters: a move of a few of them lets the user in.
  options.geometry.sectors_per_cluster = 4096;
  options.files = 12;
  options.folders = 3;
  options.fill = 0.65;
  options.fragmented = 0.8;
  options.with_stream = 0.2;
  options.reparse = options.locked = options.immovable = 0;
  auto volume = MakeRandomVolume(options, seed);
  volume->AddFile("Windows\\Prefetch\\resident.pf");
  return volume;
}

struct SmallDisk {
  std::unique_ptr<SimulatedVolume> disk;
};

// A rig with a small volume of its own.
struct SmallRig : SmallDisk, Rig {
  explicit SmallRig(std::uint64_t seed = 1, Chosen chosen = Chosen::C)
      : SmallDisk{SmallVolume(seed)},
        Rig(*disk, {.windows_folder = "C:\\Windows", .seed = 7}, chosen) {}
};

// Nothing lost, nothing left open, ready for the next run.
inline void ExpectSound(const Rig& rig) {
  EXPECT_EQ(rig.volume.DamagedContent(), std::vector<std::string>());
  EXPECT_EQ(rig.volume.ConsistencyProblems(), std::vector<std::string>());
  EXPECT_LE(rig.StrayHandles(), 0U);
  EXPECT_TRUE(rig.Idle());
}

}  // namespace vornalux::testing
