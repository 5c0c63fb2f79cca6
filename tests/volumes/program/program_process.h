// SPDX-License-Identifier: GPL-2.0-or-later
// Runs the real `vornalux` as a user's shell would.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace vornalux::test {

struct ProgramEnd {
  int code = -1;   // exit code; -1 when a signal ended it
  int signal = 0;  // that signal
  std::string out;
  std::string err;
};

using Arguments = std::vector<std::string>;

inline Arguments And(Arguments first, const Arguments& more) {
  first.insert(first.end(), more.begin(), more.end());
  return first;
}

// A started program: standard input empty, standard error gathered, standard output a pipe that
// holds no more than one page, so that it cannot get far ahead of whoever reads it.
class Program {
 public:
  explicit Program(const Arguments& arguments);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  // Reads lines until one holds the text. False at the end of output.
  bool ReadUntil(const std::string& text);
  void Signal(int number) const;
  // Waits until it is halted by a signal. False when it ended instead.
  bool WaitUntilHalted();
  // Reads no more: what is written from now on is written to nobody.
  void StopReading();
  // Reads the rest and waits.
  ProgramEnd Wait();

 private:
  bool ReadMore();

  pid_t process_ = -1;
  int out_ = -1;
  int err_file_ = -1;
  std::size_t searched_ = 0;
  std::string text_;
};

ProgramEnd RunProgram(const Arguments& arguments);

// The same behind a shell's redirections, such as ">&- 2>log". Where they name no other place,
// standard output and standard error are gathered.
ProgramEnd RunProgramBehind(const std::string& redirections, const Arguments& arguments);

}  // namespace vornalux::test
