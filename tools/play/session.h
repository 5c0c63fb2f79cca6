// SPDX-License-Identifier: GPL-2.0-or-later
// The shipped program, played with inside its own process: a library that is loaded before the
// program begins answers its system calls for imaginary drives, while a thread of the library does
// what a user would. The program has no part in it.
#pragma once

#include <cstdint>
#include <string>

#include "play/imaginary_machine.h"
#include "play/screen.h"

namespace vornalux::play {

// One for a process.
class Session {
 public:
  Session();
  Session(const Session&) = delete;

  // Before Start() things can be arranged; nothing of the program has run yet.
  ImaginaryMachine machine;
  Screen screen;
  void Start();

  // Waits until the program ends and returns its exit code. Its process stays for as long as
  // anybody looks at it.
  unsigned End();
  bool HasEnded() const;
};

// Makes the program's calls come here; to be called before the program begins. Without drives of
// ours it has those of the system.
void TakeCallsOver(bool with_drives);

// Where the program's calls go. These wait for the session's Start().
ImaginaryMachine& MachineOfTheProgram();
Screen& ScreenOfTheProgram();
// The program says that it ends: its thread stays here.
[[noreturn]] void EndOfTheProgram(unsigned code);

// What the program makes its random numbers from, with the counters that it is shown.
std::uint64_t SeedOfTheProgram();

// Empty when there is no such environment variable.
std::string Setting(const char* name);

void PatchDriveCalls();
void PatchSessionCalls();

}  // namespace vornalux::play
