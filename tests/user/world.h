// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "host/simulated/scripted_drive.h"
#include "host/simulated/simulated_platform.h"
#include "user/deed.h"

namespace vornalux::testing {

// The machine around the program: two NTFS volumes and a FAT one, and what becomes of them.
class World {
 public:
  explicit World(std::uint64_t seed);

  static constexpr std::string_view kLetters = "CDE";

  SimulatedPlatform machine;
  std::function<void()> power_off;  // hears of it

  void AddDeeds(Deeds& deeds);
  // The first thing that is wrong with the volumes; empty when all is well. Cheap when nothing has
  // changed since.
  std::string Damage();

 private:
  struct Disk {
    std::unique_ptr<SimulatedVolume> volume;
    ScriptedDrive drive;
    int files_added = 0;
    std::int64_t moved_when_checked = -1;
  };

  void AddFile(char letter, Disk& disk);
  void RemoveFile(char letter, Disk& disk);

  std::array<Disk, kLetters.size()> disks_;
};

}  // namespace vornalux::testing
