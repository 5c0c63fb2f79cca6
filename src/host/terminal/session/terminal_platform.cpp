// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/session/terminal_platform.h"

#include <spawn.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

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

std::uint32_t TerminalPlatform::SetPriorityClass(std::uint32_t priority_class) {
  setpriority(PRIO_PROCESS, 0, NiceOf(priority_class));
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
