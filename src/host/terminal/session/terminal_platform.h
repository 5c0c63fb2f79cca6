// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "host/mounted/mounted_platform.h"
#include "host/terminal/session/move_rate.h"

namespace vornalux {

// Mounted volumes on a Linux machine: its scheduler and its power switch.
class TerminalPlatform final : public MountedPlatform {
 public:
  explicit TerminalPlatform(std::uint64_t seed) : MountedPlatform({.seed = seed}) {}

  // To be set before the program is made, which asks once. Empty for none.
  void SetWindowsFolder(std::string folder) { windows_folder_ = std::move(folder); }
  std::string WindowsFolder() override { return windows_folder_; }

  // The Windows folder of drive C as its root spells it; empty when there is none.
  std::string FindWindowsFolder();

  // Whether the path names a folder that can be entered.
  bool FolderExists(const std::string& path) { return FindFirst(path + "\\*") != nullptr; }

  // From now on no more is moved than so much. wait lets time pass with the user heard; hurry: a
  // stop is wanted, which no rest of a file is to hold up.
  void LimitRate(MoveRate rate, std::function<void(std::chrono::milliseconds)> wait,
                 std::function<bool()> hurry);
  ErrorCode MoveClusters(Handle volume, Handle file, std::int64_t starting_vcn,
                         std::int64_t starting_lcn, std::uint32_t cluster_count,
                         const MoveCheckpoint& checkpoint = {}) override;

  // From now on no priority class takes back that others go first.
  void StayLow() { stay_low_ = true; }

  // A scheduler that refuses leaves the class as it was.
  std::uint32_t SetPriorityClass(std::uint32_t priority_class) override;
  std::uint32_t PriorityClass() override;

  // Remembered until the volumes are closed.
  void ExitWindows(std::uint32_t, std::uint32_t) override { power_off_wanted_ = true; }
  bool PowerOffWanted() const { return power_off_wanted_; }

 private:
  void AwaitRate();

  std::string windows_folder_;
  std::optional<MoveRate> rate_;
  std::function<void(std::chrono::milliseconds)> wait_;
  std::function<bool()> hurry_;
  bool power_off_wanted_ = false;
  bool stay_low_ = false;
};

// Gives way to ordinary programs from now on, of this thread and those it makes; at the disk, too,
// where its scheduler knows idle time. As far as the system allows.
void GiveWay(bool disk_too);

// Runs the system's "shutdown -h now". False when it cannot be run or says no.
bool ShutDownMachine();

}  // namespace vornalux
