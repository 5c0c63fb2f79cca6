// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "user/screen.h"
#include "user/world.h"

namespace vornalux::testing {

// Looks on and throws a Fault when an invariant does not hold. One for each start of the program.
class Watch {
 public:
  Watch(World& world, Screen& screen);

  // What is on the stack. A pass by the user; a job of the line that the program was started with.
  void BeginPass();
  void EndPass();
  void BeginJob(const std::string& line);
  void EndJob();

  void Chosen() const;  // a drive, by the user
  void Box() { ++boxes_; }
  void Stopped() { ++stops_; }  // by the user
  void Ended();                 // the main window or the session
  void PowersOff() const;
  bool HasEnded() const { return ended_; }

  void AtEvent() const;                     // inside whatever runs
  void AtStep(bool tray_icon_shown) const;  // before and after each step
  void AtRest(bool tray_icon_shown) const;  // when nothing is on the stack

 private:
  // A pass or a job, and what had been seen when it began.
  struct Run {
    bool is_job = false;
    std::string line;    // of a job
    char letter = '\0';  // it may work on this volume only
    int boxes = 0;
    int stops = 0;
    int walks = 0;
    int bitmaps = 0;
    std::size_t without_gap = 0;
    bool lists_valid = false;
  };
  Run NewRun() const;
  void CheckDeeds(const Run& run, const char* what) const;
  void Heard(const CallRecord& call);
  void OnlyOn(char letter, const std::string& what) const;
  void Handed(const std::string& path);

  World& world_;
  Screen& screen_;
  std::vector<Run> runs_;
  int boxes_ = 0;
  int stops_ = 0;
  int walks_ = 0;    // folders listed
  int bitmaps_ = 0;  // read through the volume that was selected
  char last_walk_ = '\0';
  char last_bitmap_ = '\0';
  char panels_of_ = '\0';
  char map_of_ = '\0';
  bool ended_ = false;
  bool ended_busy_ = false;
  std::set<std::string> after_end_;  // handled since
};

}  // namespace vornalux::testing
