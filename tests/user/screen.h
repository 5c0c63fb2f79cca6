// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <functional>
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
  void AddDeeds(Deeds& deeds, const bool& tray_icon_shown);
  // As the system starts it; runs the job of the line.
  void Start(const std::string& job_line);

  std::function<void()> ended;       // the main window is unloaded
  std::function<void()> job_closed;  // a job ends the program
  std::function<void()> panels_filled;
  std::function<void()> map_shown;

  // What passes would work on, and what is shown of it.
  char Target() const { return LetterOf(program_.settings.target.drive); }
  const std::string& Folder() const { return program_.settings.target.directory; }
  char List() const;
  char JobLine() const;
  char Caption() const;
  char Heat() const { return LetterOf(main_.Label6.caption.get()); }
  Handle VolumeHandle() const { return main_.engine.geometry.VolumeHandle; }
  char OpenVolume() const { return LetterOf(log_.HandlePath(VolumeHandle())); }

  bool MainVisible() const { return main_.visible; }
  bool Visible() const {
    return MainVisible() || launcher_.visible || launcher_.context_menu.visible;
  }
  bool Busy() const { return main_.Busy(); }
  bool PassesEnabled() const;  // any of them
  // The menu is neither that of a run nor that of rest.
  bool MenuMixed() const;
  bool PanelsBlank() const;
  bool MapBlank() const;
  // A path that is shown or would be worked on and does not lie on the volume; empty without.
  std::string ForeignPath(char letter) const;
  bool ListsValid() const { return program_.flags.AnalysisValid || program_.flags.ClassListsValid; }
  // Files that passes found no gap for, so far.
  std::size_t WithoutGap() const;

 private:
  void AddMainDeeds(Deeds& deeds);
  void AddLauncherDeeds(Deeds& deeds);
  void AddOtherDeeds(Deeds& deeds);

  const CallLog& log_;
  Program program_;
  DefragWindow& main_ = program_.main_window;
  Introfrm& launcher_ = program_.launcher;
};

}  // namespace vornalux::testing
