// SPDX-License-Identifier: GPL-2.0-or-later
// Flows: what a user does with the shipped program, played inside its process. The library that
// holds them is loaded before the program begins; it answers the program's system calls for
// imaginary drives and runs one flow, chosen by name, on a thread of its own. The program has no
// part in it.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>

#include "windows/flows/flow_entry.h"
#include "windows/flows/imaginary_machine.h"
#include "windows/flows/screen.h"

namespace vornalux::test {

class Session {
 public:
  Session();

  // Before Start() things can be arranged; nothing of the program has run yet.
  ImaginaryMachine machine;
  Screen screen;
  void Start();

  // Waits until the program ends and returns its exit code. Its process stays for as long as the
  // flow looks at it.
  unsigned End();
  bool HasEnded() const;

  // Leaves drive D's image for the checkers that run afterwards.
  void KeepImageOfD();
};

// Where the program's calls find the flow that is being played; waits for its Start().
ImaginaryMachine& MachineOfTheProgram();
Screen& ScreenOfTheProgram();
// The program says that it ends: its thread stays here.
[[noreturn]] void EndOfTheProgram(unsigned code);

// What the program makes its random numbers from, with the counters that it is shown.
std::uint64_t SeedOfTheProgram();

struct FlowRegistration {
  explicit FlowRegistration(FlowEntry entry);
};

#define FLOW(name, tail, place)                                                         \
  static void name(Session& session);                                                   \
  static const FlowRegistration name##_registration({#name, tail, Place::place, name}); \
  static void name(Session& session)

// Answers for imaginary drives from here on.
void PatchDriveCalls();
// Notes what is asked of the session.
void PatchSessionCalls();

}  // namespace vornalux::test
