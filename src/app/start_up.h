// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>

#include "app/program.h"
#include "platform/system.h"

namespace vornalux {

// The system in words.
struct OsDescription {
  std::uint32_t platform = 0;  // as SystemVersion has it
  std::string name;            // "Windows XP"
  std::string version;         // "5.1"
  std::string service_pack;
  std::string build;
};

// Leaves the record as it is when the system does not say.
void GetOSName(System& system, OsDescription& description);

// How far the program came.
enum class StartUpResult { NoAdministrator, OldSystem, Started };

// What the program does before anything else: refuses to run where it cannot work, notes what it
// runs on in the debug log, shows the launcher, and carries out the job of a command-line tail that
// is not empty. Refusals are told to the user.
StartUpResult StartUp(Program& program, const std::string& tail);

}  // namespace vornalux
