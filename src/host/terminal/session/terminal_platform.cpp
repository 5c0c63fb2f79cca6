// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/session/terminal_platform.h"

#include <spawn.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "text/ascii_case.h"

namespace vornalux {
namespace {

constexpr int kIdleNice = 19;
constexpr int kNormalNice = 0;
constexpr int kAboveNormalNice = -5;
// Whatever yields to ordinary programs by this much counts as idle.
constexpr int kLeastIdleNice = 10;

int NiceOf(std::uint32_t priority_class) {
  if (priority_class == priority::kIdle) return kIdleNice;
  return priority_class == priority::kAboveNormal ? kAboveNormalNice : kNormalNice;
}

std::uint32_t ClassOf(int nice_value) {
  if (nice_value >= kLeastIdleNice) return priority::kIdle;
  return nice_value < kNormalNice ? priority::kAboveNormal : priority::kNormal;
}

}  // namespace

std::string TerminalPlatform::FindWindowsFolder() {
  const auto root = FindFirst("C:\\*");
  FolderEntry entry;
  while (root != nullptr && root->Next(entry)) {
    if ((entry.attributes & attribute::kDirectory) &&
        EqualIgnoringAsciiCase(entry.name, "Windows")) {
      return "C:\\" + entry.name;
    }
  }
  return {};
}

void TerminalPlatform::LimitRate(MoveRate rate, std::function<void(std::chrono::milliseconds)> wait,
                                 std::function<bool()> hurry) {
  rate_ = std::move(rate);
  wait_ = std::move(wait);
  hurry_ = std::move(hurry);
}

void TerminalPlatform::AwaitRate() {
  constexpr std::chrono::milliseconds kMoment(50);
  for (auto due = rate_->Due(); due.count() > 0 && !hurry_(); due = rate_->Due()) {
    wait_(std::min(kMoment, std::chrono::ceil<std::chrono::milliseconds>(due)));
  }
}

ErrorCode TerminalPlatform::MoveClusters(Handle volume, Handle file, std::int64_t starting_vcn,
                                         std::int64_t starting_lcn, std::uint32_t cluster_count,
                                         const MoveCheckpoint& checkpoint) {
  MountedVolume* const moved_on = rate_ ? VolumeOf(volume) : nullptr;
  if (moved_on == nullptr) {
    return MountedPlatform::MoveClusters(volume, file, starting_vcn, starting_lcn, cluster_count,
                                         checkpoint);
  }
  const VolumeFacts& facts = moved_on->Facts();
  const std::int64_t cluster = std::int64_t{facts.bytes_per_sector} * facts.sectors_per_cluster;
  const std::int64_t before = moved_on->ClustersMoved();
  std::int64_t counted = 0;
  MoveCheckpoint paced = checkpoint;
  if (checkpoint.reached) {
    paced.reached = [&](std::int64_t moved) {
      rate_->Add((moved - std::exchange(counted, moved)) * cluster);
      if (checkpoint.reached(moved)) return true;
      AwaitRate();
      // A stop may have been asked for meanwhile.
      return hurry_() && checkpoint.reached(moved);
    };
  }
  const ErrorCode result =
      MountedPlatform::MoveClusters(volume, file, starting_vcn, starting_lcn, cluster_count, paced);
  rate_->Add(std::max<std::int64_t>(moved_on->ClustersMoved() - before - counted, 0) * cluster);
  AwaitRate();
  return result;
}

std::uint32_t TerminalPlatform::SetPriorityClass(std::uint32_t priority_class) {
  setpriority(PRIO_PROCESS, 0, stay_low_ ? kIdleNice : NiceOf(priority_class));
  return PriorityClass();
}

std::uint32_t TerminalPlatform::PriorityClass() { return ClassOf(getpriority(PRIO_PROCESS, 0)); }

void GiveWay(bool disk_too) {
  setpriority(PRIO_PROCESS, 0, kIdleNice);
  // From linux/ioprio.h, which older systems do not have.
  constexpr int kWhoProcess = 1;
  constexpr int kIdleClass = 3;
  constexpr int kClassShift = 13;
  if (disk_too) syscall(SYS_ioprio_set, kWhoProcess, 0, kIdleClass << kClassShift);
}

bool ShutDownMachine() {
  char program[] = "shutdown";
  char halt[] = "-h";
  char now[] = "now";
  char* const arguments[] = {program, halt, now, nullptr};
  pid_t child = 0;
  if (posix_spawnp(&child, program, nullptr, nullptr, arguments, environ) != 0) return false;
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return false;
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace vornalux
