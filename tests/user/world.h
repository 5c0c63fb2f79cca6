// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "host/simulated/random_volume.h"
#include "host/simulated/scripted_drive.h"
#include "host/simulated/simulated_platform.h"
#include "user/deed.h"

namespace vornalux::testing {

// The machine around the program: two NTFS volumes and a FAT one, and what becomes of them.
class World {
 public:
  explicit World(std::uint64_t seed)
      : machine({.windows_folder = "C:\\Windows", .seed = seed, .power_off = [this] {
                   if (power_off) power_off();
                 }}) {
    // Small, so that a pass is soon over; of large clusters, so that a move has checkpoints.
    RandomVolumeOptions options{.geometry = {.total_clusters = 200, .sectors_per_cluster = 4096},
                                .files = 8,
                                .folders = 3,
                                .fragmented = 0.6,
                                .with_stream = 0.2};
    for (std::size_t i = 0; i < disks_.size(); ++i) {
      if (i == 2) options.geometry.file_system = "FAT32";
      disks_[i].letter = static_cast<char>('C' + i);
      disks_[i].volume = MakeRandomVolume(options, seed * disks_.size() + i);
      disks_[i].volume->SetDrive(disks_[i].drive);
      machine.AddVolume(disks_[i].letter, *disks_[i].volume);
    }
    disks_[0].volume->AddFile("Windows\\Prefetch\\resident.pf");
    machine.SetCheckLines(3);
    machine.Log().SetRecording(false);
  }

  SimulatedPlatform machine;
  std::function<void()> power_off;  // hears of it

  void AddDeeds(Deeds& deeds) {
    for (Disk& disk : disks_) {
      const auto add = [&](const char* name, int weight, auto act) {
        deeds.push_back({std::string{disk.letter, ':', ' '} + name, weight, nullptr, act});
      };
      const auto state = [&](const char* name, int weight, DriveState to) {
        add(name, weight, [this, &disk, to] { machine.SetDriveState(disk.letter, to); });
      };
      SimulatedVolume& volume = *disk.volume;
      state("is well", 8, DriveState::Well);
      state("is gone", 1, DriveState::Gone);
      state("does not open", 1, DriveState::NotOpening);
      state("has no bitmap", 1, DriveState::NoBitmap);
      add("is dirty", 1, [&volume] { volume.SetDirty(true); });
      add("is clean", 4, [&volume] { volume.SetDirty(false); });
      add("is hot", 2, [&disk] { disk.drive.SetTemperatures({60}); });
      add("is cool", 2, [&disk] { disk.drive.SetTemperatures({40}); });
      add("has a new file", 2, [this, &disk] { AddFile(disk); });
      add("loses a file", 2, [this, &disk] { RemoveFile(disk); });
      for (const bool locked : {true, false}) {
        add(locked ? "locks a file" : "unlocks a file", 1, [&volume, locked] {
          if (const auto file = volume.Find("file2")) volume.Lock(*file, locked);
        });
      }
    }
  }

  // The first thing that is wrong with the volumes; empty when all is well.
  std::string Damage() {
    for (Disk& disk : disks_) {
      const std::int64_t moved = disk.volume->ClustersMoved();
      if (moved == disk.moved_when_checked) continue;
      disk.moved_when_checked = moved;
      for (const auto& lines :
           {disk.volume->DamagedContent(), disk.volume->ConsistencyProblems()}) {
        if (!lines.empty()) return lines[0];
      }
    }
    return {};
  }

 private:
  struct Disk {
    char letter = '\0';
    std::unique_ptr<SimulatedVolume> volume;
    ScriptedDrive drive;
    int files_added = 0;
    std::int64_t moved_when_checked = -1;
  };

  // In three pieces where there is room, so that there is something to do.
  void AddFile(Disk& disk) {
    std::array<std::uint8_t, 25> bits;
    disk.volume->CopyBitmap(0, bits);
    std::vector<SimulatedRun> runs;
    for (std::size_t i = 0; i < bits.size() && runs.size() < 3; i += 2) {
      if (bits[i] == 0) runs.push_back({static_cast<std::int64_t>(i) * 8, 4});
    }
    disk.volume->AddFile("new" + std::to_string(++disk.files_added), runs);
    machine.Relist(disk.letter);
  }

  void RemoveFile(Disk& disk) {
    const auto file = disk.volume->Find("new" + std::to_string(disk.files_added));
    if (!file) return;
    --disk.files_added;
    disk.volume->Remove(*file);
    machine.Relist(disk.letter);
  }

  std::array<Disk, 3> disks_;
};

}  // namespace vornalux::testing
