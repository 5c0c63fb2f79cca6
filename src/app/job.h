// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/job_settings.h"
#include "engine/pass_table.h"
#include "volume/debug_trace.h"
#include "volume/run_flags.h"

namespace vornalux {

class DefragWindow;
class Introfrm;
struct Platform;

// What a command line asks for.
struct Job {
  std::string line;       // as it was given, without blanks at its ends
  std::string root;       // "C:\"; empty: the volume that is chosen
  std::string directory;  // below the root, no backslash at either end; empty: all of it
  std::optional<Pass> action;
  std::vector<std::uint32_t> priorities;  // classes, to be set one after the other
  bool run_minimized = false;
  bool shutdown_when_done = false;
  bool close_when_done = false;
  bool vss_safe = false;
  bool debug_log = false;
  bool thorough = false;      // wanted, whether the action has that form or not
  bool context_menu = false;  // the settings of Explorer's menus, and nothing else
};

struct JobReading {
  Job job;
  // What is wrong with the line, in its order. Drives and folders that cannot be meant are left
  // out; the rest of the job stands.
  std::vector<std::string> objections;
  // Where the line can be meant in another way than the job takes it. Who sees what it does may let
  // it: the last drive wins, and a folder is the first text in quotes.
  std::vector<std::string> doubts;
  // The last objection is to something that is no switch: only what sets the program's own state
  // is in the job, and no part of it may run.
  bool refused = false;
};

// Whether the action is to run in its thorough form.
bool RunsThorough(const Job& job);

// Why what the line wants of the thorough form comes to nothing; empty when it does not.
std::string WhyNotThorough(const Job& job);

// Reads the tail of a command line, the text behind the program's path. Touches nothing.
JobReading ParseJob(std::string_view tail);

// What a line that does something on a volume may hold, "/drv" and so on; the first two take an
// operand.
std::vector<std::string> JobSwitches();

// How a job ended. Whatever keeps it from running is told to the user.
enum class JobOutcome {
  None,             // no job was given yet
  InvalidArgument,  // the line holds something that is no switch
  NoDrive,          // neither the line nor the launcher names a volume
  NoFolder,         // there is no such folder on it
  InUse,            // another program of ours works on it
  ContextMenu,      // the settings of Explorer's menus were asked for
  Dirty,            // the volume needs a disk check
  Failed,           // the volume could not be read
  Stopped,          // by the user, or because the program has ended
  Done,
};

// What a job works with.
struct JobParts {
  Platform& platform;
  RunFlags& flags;
  JobSettings& settings;
  const DebugTrace& trace;
  DefragWindow& main_window;
  Introfrm& launcher;
};

// Chooses the job's volume, checks it, runs the action, and does what is to follow.
JobOutcome RunJob(const Job& job, const JobParts& parts);

}  // namespace vornalux
