// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "app/program.h"
#include "host/simulated/call_log.h"
#include "user/deed.h"

namespace vornalux::testing {

// A running program as a user has it before him: the one place that knows its controls. Volumes are
// told by their letters in upper case, none as '\0'.
class Screen {
 public:
  Screen(const Platform& platform, const CallLog& log);

  // Everything that can be pressed, chosen, typed and closed, and the ticks of timers.
  void AddDeeds(Deeds& deeds, const std::function<bool()>& tray_icon_shown);
  // As the system starts it. Runs the job of the line.
  void Start(const std::string& job_line);

  std::function<void()> ended;       // the main window is unloaded
  std::function<void()> job_closed;  // a job ends the program
  std::function<void()> panels_filled;
  std::function<void()> map_shown;

  char Target() const;  // what passes would work on
  std::string Folder() const { return program_->settings.target.directory; }
  char List() const;
  char JobLine() const;
  char Caption() const;
  char Heat() const;
  Handle VolumeHandle() const { return program_->main_window.engine.geometry.VolumeHandle; }
  char OpenVolume() const;

  bool Visible() const;  // any window
  bool MainVisible() const { return program_->main_window.visible; }
  bool Busy() const { return program_->main_window.Busy(); }
  bool PassesEnabled() const;     // any of them
  std::string MenuFault() const;  // in how far the menu is neither that of a run nor that of rest
  bool PanelsBlank() const;
  bool MapBlank() const;
  // The first path that is shown or would be worked on and does not lie on the volume.
  std::string ForeignPath(char letter) const;
  bool ListsValid() const;
  // Files that a pass found no gap for, so far.
  std::size_t WithoutGap() const;

 private:
  template <typename C>
  void Press(Deeds& deeds, Form& form, const char* name, C& control, int weight = 1);
  void AddMainDeeds(Deeds& deeds);
  void AddLauncherDeeds(Deeds& deeds);
  void AddOtherDeeds(Deeds& deeds);

  const CallLog& log_;
  std::unique_ptr<Program> program_;
};

// The letter of a path, volume or caption that begins with one; '\0' without.
char LetterOf(std::string_view text);

}  // namespace vornalux::testing
