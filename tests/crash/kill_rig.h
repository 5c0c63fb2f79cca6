// SPDX-License-Identifier: GPL-2.0-or-later
// Running the real program so that it dies, or halts, inside an event of its run: a write, a flush
// or a removal, or cannot read.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>

#include <fstream>
#include <string>

#include "mkvolume/maker.h"
#include "support/image_folder.h"
#include "support/intact.h"
#include "support/seed.h"
#include "support/setting.h"
#include "volumes/program/program_process.h"

namespace vornalux::test {

// Settings under which a program does what the variable tells the library.
struct Meddling {
  Meddling(const char* name, const std::string& value)
      : preload("LD_PRELOAD", VORNALUX_KILL_LIBRARY),
        // Sanitizer builds want to be the first library.
        order("ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0"),
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
  std::size_t reads = 0;
};

// What a run does that nobody kills, and what it prints.
inline EventCount CountEvents(const Arguments& arguments, const std::string& count_file,
                              std::string* out = nullptr) {
  const Meddling meddling("VORNALUX_COUNT", count_file);
  const ProgramEnd end = RunProgram(arguments);
  EXPECT_EQ(end.code, 0) << end.err;
  if (out) *out = end.out;
  EventCount count;
  std::ifstream(count_file) >> count.events >> count.reads;
  return count;
}

// A volume from a recipe, and copies of it that things happen to.
class VolumeAndCopies : public ImageFolder {
 protected:
  void Make(const std::string& recipe) {
    recipe_ = recipe + " seed=" + std::to_string(seed_);
    manifest_ = MakeVolume(recipe_, Path("volume.img"));
  }

  void Copy(const std::string& to = "work.img") const {
    Run("cp --sparse=always volume.img " + to);
  }

  // For failures: what was done to it.
  std::string Where(const std::string& what) const {
    return recipe_ + ", " + what + ", " + SeedNote(seed_);
  }
  std::string Where(const char* what, std::size_t event, std::size_t events) const {
    return Where(what + std::to_string(event) + " of " + std::to_string(events));
  }

  const std::uint64_t seed_ = TestSeed();
  std::string recipe_;
  Manifest manifest_;
};

// "fat16" of a test with such a recipe.
inline std::string FileSystemOf(const std::string& recipe) {
  return recipe.substr(0, recipe.find(' '));
}

}  // namespace vornalux::test
