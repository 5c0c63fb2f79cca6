// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <algorithm>
#include <functional>
#include <string>
#include <tuple>

#include "app/program.h"
#include "app/start_up.h"
#include "host/simulated/call_log.h"
#include "user/deed.h"

namespace vornalux::testing {

// A running program as a user has it before him: the one place that knows its controls. Volumes are
// told by their letters in upper case, none as '\0'.
class Screen {
 public:
  Screen(const Platform& platform, const CallLog& log) : log_(log), program_(platform) {
    main_.Picdepartvolume.Resize(8);  // a narrow map is soon drawn
    main_.unloaded = [this] { Raise(ended); };
    launcher_.end_program = [this] { Raise(job_closed); };
    for (Label& panel : main_.status_panels) panel.changed = [this] { Raise(panels_filled); };
    main_.Picdepartvolume.refreshed = [this](std::span<const ColumnRange>) { Raise(map_shown); };
    main_.changed = [this] { Raise(captioned); };
  }

  // As the system starts it; runs the job of the line.
  void Start(const std::string& job_line) { StartUp(program_, job_line); }

  // Everything that can be pressed, chosen, typed and closed, and the ticks of timers.
  void AddDeeds(Deeds& deeds, const bool& tray_icon_shown) {
    AddMainDeeds(deeds);
    AddLauncherDeeds(deeds);
    AddOtherDeeds(deeds);
    const auto tick = [&deeds](const char* name, Timer& timer) {
      deeds.push_back({name, 6, nullptr, [&timer] { Raise(timer.tick); },
                       [&timer] { return timer.enabled.get(); }});
    };
    tick("tick counters", main_.UpdateTimer);
    tick("tick temperature", main_.tmrTemperatures);
    tick("tick warning", warning_.tmrTemperatures);
    constexpr std::uint32_t kLeftButtonDown = 513;
    deeds.push_back({"click on the tray icon", 16, nullptr,
                     [this] { launcher_.TrayMouse(kLeftButtonDown); },
                     [this, &tray_icon_shown] { return !launcher_.visible && tray_icon_shown; }});
    deeds.push_back(
        {"end of session", 1, nullptr, [this] { main_.QueryUnload(CloseReason::EndOfSession); }});
  }

  Event ended;       // the main window is unloaded
  Event job_closed;  // a job ends the program
  Event panels_filled;
  Event map_shown;
  Event captioned;  // the main window

  // What passes would work on, and what is shown of it.
  char Target() const { return LetterOf(main_.engine.volume.Target().drive); }
  const std::string& Folder() const { return main_.engine.volume.Target().directory; }
  char List() const {
    const std::int32_t index = launcher_.ImageCombo1.list_index;
    if (index < 0) return '\0';
    return LetterOf(launcher_.ImageCombo1.items()[static_cast<std::size_t>(index)]);
  }
  char JobLine() const { return LetterIn(launcher_.JobLine()); }
  char Caption() const { return LetterIn(main_.caption.get()); }
  char Heat() const { return LetterOf(main_.Label6.caption.get()); }
  Handle VolumeHandle() const { return main_.engine.geometry.VolumeHandle; }
  char OpenVolume() const { return LetterOf(log_.HandlePath(VolumeHandle())); }

  bool CaptionBegins(const char* text) const { return main_.caption.get().starts_with(text); }
  bool ThoroughShown() const { return main_.thorough.checked; }

  bool MainVisible() const { return main_.visible; }
  bool AnyVisible() const {
    return main_.visible || launcher_.visible || launcher_.context_menu.visible;
  }
  bool Busy() const { return main_.Busy(); }
  bool PassesEnabled() const {  // any of them
    return main_.cmdanalysemore.enabled || main_.cmdDefrag.enabled || main_.SmartOptimize.enabled ||
           main_.cmdCompact.enabled;
  }
  // The menu is neither that of a run nor that of rest.
  bool MenuMixed() const {
    return main_.Arretdefrag.enabled != Busy() ||
           (Busy() && (PassesEnabled() || main_.Quitter.enabled || main_.thorough.enabled));
  }
  bool PanelsBlank() const {
    return std::all_of(main_.status_panels.begin(), main_.status_panels.end(),
                       [](const Label& panel) { return panel.caption.get().empty(); });
  }
  bool MapBlank() const {
    const PictureBox& map = main_.Picdepartvolume;
    return !map.visible || std::ranges::count(map.columns(), map.back_colour) == map.width();
  }
  bool ListsValid() const { return program_.flags.AnalysisValid || program_.flags.ClassListsValid; }
  // A path that is shown or would be worked on and does not lie on the volume; empty without.
  std::string ForeignPath(char letter) const {
    const Engine& engine = main_.engine;
    std::vector<const std::vector<std::string>*> lists;
    if (program_.flags.AnalysisValid) lists = {&engine.analysis.lists.FragNames};
    for (const PathList* list : {&engine.table.MoveOutFiles, &engine.table.OptimizeFiles,
                                 &engine.table.DirsToMove, &engine.table.PrefetchFiles}) {
      if (program_.flags.ClassListsValid) lists.push_back(&list->paths);
    }
    if (main_.details.visible) lists.push_back(&main_.details.ListView1.rows());
    for (const auto* list : lists) {
      for (const std::string& path : *list) {
        if (!path.empty() && LetterOf(path) != letter) return path;
      }
    }
    return {};
  }
  // Files that passes found no gap for, so far.
  std::ptrdiff_t WithoutGap() const {
    const auto& failures = main_.engine.movers.statistics.failures;
    return std::count_if(failures.begin(), failures.end(), [](const MoveFailure& failure) {
      return failure.reason == NotMoved::NoGap || failure.reason == NotMoved::NoGapThen;
    });
  }

 private:
  static void Add(Deeds& deeds, Form& form, const char* name, int weight, auto& control) {
    deeds.push_back({name, weight, &form, [&control] { control.Click(); },
                     [&control] { return control.visible && control.enabled; }});
  }

  void AddMainDeeds(Deeds& deeds) {
    Add(deeds, main_, "Drive", 6, main_.Quitter);
    Add(deeds, main_, "Stop", 5, main_.Arretdefrag);
    Add(deeds, main_, "Analyze", 12, main_.cmdanalysemore);
    Add(deeds, main_, "Defrag", 12, main_.cmdDefrag);
    Add(deeds, main_, "Optimize", 6, main_.SmartOptimize);
    Add(deeds, main_, "Compact", 6, main_.cmdCompact);
    Add(deeds, main_, "Thorough", 6, main_.thorough);
    Add(deeds, main_, "Minimize", 2, main_.minmnu);
    Add(deeds, main_, "Exit", 1, main_.exitmnu);
    Add(deeds, main_, "Redraw after each file", 1, main_.Affiche);
    Add(deeds, main_, "Do not show names", 1, main_.ChkNoFileDisplay);
    deeds.push_back({"click on the map", 4, &main_, [this] { Raise(main_.Picdepartvolume.click); },
                     [this] { return main_.Picdepartvolume.visible.get(); }});
    deeds.push_back({"details", 4, &main_, [this] { Raise(main_.Label4[1].click); }});
    deeds.push_back(
        {"close main", 1, &main_, [this] { main_.QueryUnload(CloseReason::CloseBox); }});
    deeds.push_back({"minimize main", 1, &main_, [this] {
                       main_.window_state = WindowState::Minimized;
                       main_.Resized();
                     }});
  }

  void AddLauncherDeeds(Deeds& deeds) {
    Add(deeds, launcher_, "Select Drive", 16, launcher_.CmdGo);
    Add(deeds, launcher_, "More", 6, launcher_.CmdJob);
    Add(deeds, launcher_, "Cancel check", 4, launcher_.CmdCancel);
    Add(deeds, launcher_, "VSS safe-mode now", 1, launcher_.VSS_LIVE);
    for (std::int32_t i = 0; i < 3; ++i) {
      deeds.push_back({"choose " + std::to_string(i + 1), 5, &launcher_,
                       [this, i] { launcher_.ImageCombo1.Choose(i); },
                       [this, i] {
                         const ComboBox& list = launcher_.ImageCombo1;
                         return list.visible && list.enabled && i < std::ssize(list.items());
                       }});
    }
    deeds.push_back({"exclude", 1, &launcher_, [this] { launcher_.ExcludeTxt.text = "*.pf"; },
                     [this] { return launcher_.ExcludeTxt.enabled.get(); }});
    deeds.push_back(
        {"close launcher", 1, &launcher_, [this] { main_.QueryUnload(CloseReason::CloseBox); }});
    // The options of a job, which are folded away at first.
    const auto option = [&](const char* name, auto& control, const Frame& frame) {
      deeds.push_back({name, 1, &launcher_, [&control] { control.Click(); },
                       [this, &control, &frame] {
                         return launcher_.FrmJob.visible && frame.enabled && control.enabled;
                       }});
    };
    option("job Optimize", launcher_.Option3, launcher_.FrmJob);
    option("job Thorough", launcher_.Chk_Thorough, launcher_.FrmJob);
    option("job High", launcher_.OptPrioHi, launcher_.FrmJob);
    option("job When done", launcher_.Chk_ShutDown, launcher_.FrmJob);
    option("job Shutdown", launcher_.OptShutDown, launcher_.FrmAfter);
    option("job VSS safe-mode", launcher_.VSS_Command, launcher_.FrmJob);
    option("job shortcut", launcher_.Command2, launcher_.FrmJob);
  }

  void AddOtherDeeds(Deeds& deeds) {
    FrmDetails& details = main_.details;
    Add(deeds, details, "details defrag", 1, details.Command1);
    Add(deeds, details, "details optimize", 1, details.Command2);
    Add(deeds, details, "details sys area", 1, details.Command3);
    Add(deeds, warning_, "warning Disable", 4, warning_.Command1);
    Add(deeds, warning_, "warning Stop", 4, warning_.Command2);
    Add(deeds, warning_, "warning Continue", 4, warning_.Command3);
    frmContext& context = launcher_.context_menu;
    Add(deeds, context, "context item", 1, context.Check1[2]);
    Add(deeds, context, "context OK", 1, context.cmdOK);
    Add(deeds, context, "context Apply", 1, context.cmdApply);
    Add(deeds, context, "context Cancel", 1, context.cmdCancel);
    for (const auto& [name, form] : {std::pair<const char*, Form*>{"close details", &details},
                                     {"close log", &program_.debug_window},
                                     {"close warning", &warning_}}) {
      deeds.push_back({name, 1, form, [form] { form->Hide(); }});
    }
  }

  const CallLog& log_;
  Program program_;
  DefragWindow& main_ = program_.main_window;
  Introfrm& launcher_ = program_.launcher;
  HDDTempWarning& warning_ = main_.temperature_warning;
};

}  // namespace vornalux::testing
