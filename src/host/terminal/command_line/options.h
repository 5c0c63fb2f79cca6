// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "engine/pass_table.h"
#include "host/terminal/command_line/exit_code.h"

namespace vornalux {

enum class Command { Analyze, Map, Trim, Pass, Job, List };

// Commands that open their volume for reading only.
inline bool OnlyLooks(Command command) {
  return command == Command::Analyze || command == Command::Map;
}

struct VolumeArgument {
  char letter = 'C';
  std::string image;  // volume image, block device, or disk image with a partition
};

// What the command line asks for.
struct Options {
  Command command = Command::Analyze;
  Pass pass = Pass::Defrag;             // which one, where the command is Pass
  std::vector<VolumeArgument> volumes;  // one after the other; of a job, all at once
  std::string place;                    // of the volume among several, "2 of 3"
  std::optional<int> partition;
  std::optional<std::uint64_t> offset;        // bytes
  std::string directory;                      // below the root, "Users\bob"; empty: all
  std::vector<std::string> files;             // these alone, "C:\\dir\\a.txt"; empty: all
  std::string exclude;                        // "*.iso; *.vhd"
  std::optional<std::string> windows_folder;  // "C:\Windows"
  bool thorough = false;
  std::optional<std::uint64_t> max_move;  // bytes
  bool vss_safe = false;
  bool drop_restore_points = false;
  bool dry_run = false;                   // all as it would be, without a byte written
  bool discard = false;                   // give free space back afterwards
  bool force = false;                     // also on a disk that does not gain by it
  std::optional<std::uint64_t> max_rate;  // of moved data, bytes per second
  bool low = false;                       // let ordinary programs go first
  bool idle = false;                      // the same at the disk, too
  bool quiet = false;
  bool json = false;
  bool list = false;
  bool list_all = false;  // in a list of volumes those that cannot be worked on, too
  bool classes = false;
  std::optional<std::uint64_t> gains;  // seconds to work out what passes would gain
  std::string debug_log;               // file, "-" for standard output, empty for none
  std::string log;                     // file that it is appended to, empty for none
  std::string png;                     // file for the cluster map, empty for none
  std::string report;                  // file for the report as a web page, empty for none
  std::uint64_t seed = 0;
  std::string job_tail;
  std::optional<std::string> save_job;  // the name of a launcher to be written instead
};

// Fills options. Returns an exit code when the program ends here: help or version was asked for and
// printed to out, or the line makes no sense and err says why. Reads input where the line says so.
std::optional<ExitCode> ParseOptions(const std::vector<std::string>& arguments, Options& options,
                                     std::ostream& out, std::ostream& err, std::istream& input);

// The job line that arguments stand for: a single one as it stands; several joined by a blank, in
// double quotes where they hold one or name a folder, whose own quotes the shell has taken.
std::string JoinJobTail(const std::vector<std::string>& arguments);

}  // namespace vornalux
