// SPDX-License-Identifier: GPL-2.0-or-later
// Running the real program so that it dies, or halts, inside an event of its run: a write, a flush
// or a removal.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>

#include <fstream>
#include <string>

#include "support/setting.h"
#include "volumes/program/program_process.h"

namespace vornalux::test {

// Settings under which a program does what the variable tells the library.
struct Meddling {
  Meddling(const char* name, const std::string& value)
      : preload("LD_PRELOAD", VORNALUX_KILL_LIBRARY),
        // Sanitizer builds want to be the first library.
        order("ASAN_OPTIONS", "verify_asan_link_order=0"),
        setting(name, value) {}

  Setting preload;
  Setting order;
  Setting setting;
};

inline void RunKilledAt(std::size_t event, const Arguments& arguments) {
  const Meddling meddling("VORNALUX_KILL_AT", std::to_string(event));
  const ProgramEnd end = RunProgram(arguments);
  EXPECT_EQ(end.signal, SIGKILL) << end.err;
}

struct EventCount {
  std::size_t events = 0;
  std::size_t bytes = 0;  // written
};

inline EventCount ReadCount(const std::string& count_file) {
  EventCount count;
  std::ifstream(count_file) >> count.events >> count.bytes;
  return count;
}

// What a run does that nobody kills.
inline EventCount CountEvents(const Arguments& arguments, const std::string& count_file) {
  const Meddling meddling("VORNALUX_COUNT_WRITES", count_file);
  const ProgramEnd end = RunProgram(arguments);
  EXPECT_EQ(end.code, 0) << end.err;
  return ReadCount(count_file);
}

}  // namespace vornalux::test
