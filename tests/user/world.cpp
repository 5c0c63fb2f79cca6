// SPDX-License-Identifier: GPL-2.0-or-later
#include "user/world.h"

#include "host/simulated/random_volume.h"

namespace vornalux::testing {
namespace {

// Small: a pass over it is over soon. Its clusters are large, so that a move has checkpoints.
RandomVolumeOptions Small(const char* file_system) {
  return {
      .geometry = {.total_clusters = 200, .sectors_per_cluster = 4096, .file_system = file_system},
      .files = 8,
      .folders = 3,
      .fill = 0.6,
      .fragmented = 0.6,
      .with_stream = 0.2};
}

std::string Path(const char* name, int number) { return name + std::to_string(number); }

}  // namespace

World::World(std::uint64_t seed)
    : machine({.windows_folder = "C:\\Windows", .seed = seed, .power_off = [this] {
                 if (power_off) power_off();
               }}) {
  for (std::size_t i = 0; i < disks_.size(); ++i) {
    disks_[i].volume = MakeRandomVolume(Small(i == 2 ? "FAT32" : "NTFS"), seed * disks_.size() + i);
    disks_[i].volume->SetDrive(disks_[i].drive);
    machine.AddVolume(kLetters[i], *disks_[i].volume);
  }
  disks_[0].volume->AddFile("Windows\\Prefetch\\resident.pf");
  machine.SetCheckLines(3);
  machine.Log().SetRecording(false);
}

// In three pieces where there is room, so that there is something to do.
void World::AddFile(char letter, Disk& disk) {
  std::vector<std::uint8_t> bits(static_cast<std::size_t>(disk.volume->Facts().total_clusters / 8));
  disk.volume->CopyBitmap(0, bits);
  std::vector<SimulatedRun> runs;
  for (std::size_t i = 0; i + 1 < bits.size() && runs.size() < 3; i += 2) {
    if (bits[i] == 0) runs.push_back({static_cast<std::int64_t>(i) * 8, 4});
  }
  disk.volume->AddFile(Path("new", ++disk.files_added), runs);
  machine.Relist(letter);
}

void World::RemoveFile(char letter, Disk& disk) {
  for (int i = 0; i < 8; ++i) {
    const std::string path = disk.files_added > 0 ? Path("new", disk.files_added) : Path("file", i);
    const auto file = disk.volume->Find(path);
    if (disk.files_added > 0) --disk.files_added;
    if (!file) continue;
    disk.volume->Remove(*file);
    machine.Relist(letter);
    return;
  }
}

void World::AddDeeds(Deeds& deeds) {
  for (std::size_t i = 0; i < disks_.size(); ++i) {
    Disk& disk = disks_[i];
    const char letter = kLetters[i];
    const auto add = [&](const std::string& name, auto act, int weight = 1) {
      deeds.push_back({std::string{letter, ':', ' '} + name, weight, nullptr, {}, act});
    };
    const auto state = [&](const char* name, DriveState to, int weight) {
      add(
          name, [this, letter, to] { machine.SetDriveState(letter, to); }, weight);
    };
    state("is well", DriveState::Well, 8);
    state("is gone", DriveState::Gone, 1);
    state("does not open", DriveState::NotOpening, 1);
    state("has no bitmap", DriveState::NoBitmap, 1);
    add("is dirty", [&disk] { disk.volume->SetDirty(true); });
    add(
        "is clean", [&disk] { disk.volume->SetDirty(false); }, 4);
    add(
        "is hot", [&disk] { disk.drive.SetTemperatures({60}); }, 2);
    add(
        "is cool", [&disk] { disk.drive.SetTemperatures({40}); }, 2);
    add(
        "has a new file", [this, letter, &disk] { AddFile(letter, disk); }, 2);
    add(
        "loses a file", [this, letter, &disk] { RemoveFile(letter, disk); }, 2);
    const auto lock = [&disk](bool locked) {
      if (const auto file = disk.volume->Find("file2")) disk.volume->Lock(*file, locked);
    };
    add("has a locked file", [lock] { lock(true); });
    add("has no locked file", [lock] { lock(false); });
  }
}

std::string World::Damage() {
  for (Disk& disk : disks_) {
    const std::int64_t moved = disk.volume->ClustersMoved();
    if (moved == disk.moved_when_checked) continue;
    disk.moved_when_checked = moved;
    for (const auto& lines : {disk.volume->DamagedContent(), disk.volume->ConsistencyProblems()}) {
      if (!lines.empty()) return lines[0];
    }
  }
  return {};
}

}  // namespace vornalux::testing
