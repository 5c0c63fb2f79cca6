// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <array>
#include <string>

#include "engine/engine.h"
#include "engine/pass_table.h"
#include "forms/controls.h"
#include "forms/picture_box.h"
#include "health/temperature_warning.h"
#include "health/temperatures.h"
#include "platform/platform.h"
#include "ui/cluster_map.h"
#include "ui/debug_window.h"
#include "ui/details_window.h"
#include "ui/map_redraw.h"

namespace vornalux {

// Why the window is asked to close.
enum class CloseReason { CloseBox, Code, EndOfSession, TaskManager };

// The launcher as the main window sees it.
class LauncherLink {
 public:
  virtual ~LauncherLink() = default;
  virtual void ShowOverMainWindow() = 0;
  virtual void minimize_to_tray() = 0;
  virtual void cleanup_systray() = 0;
  // Sets the process's priority class and shows which one is in force.
  virtual void UsePriority(std::uint32_t priority_class) = 0;
  // A disk check that is going on ends.
  virtual void CancelCheck() = 0;
  virtual void UnloadLauncher() = 0;
  virtual void UnloadContextMenuSettings() = 0;
};

// The main window, where a run happens. The menu is the only record of whether one is going on.
class DefragWindow final : public Form, public RunView, public WatchedRun {
 public:
  DefragWindow(Platform& platform, RunFlags& flags, const DebugTrace& trace, FrmDBG& debug_window);

  MenuItem Quitter{"Drive"};
  MenuItem Arretdefrag{"Stop"};
  MenuItem cmdanalysemore{"Analyze"};
  MenuItem cmdDefrag{RowOf(Pass::Defrag).name};
  MenuItem SmartOptimize{RowOf(Pass::Optimize).name};
  MenuItem cmdCompact{RowOf(Pass::Compact).name};
  MenuItem thorough{"Thorough"};  // passes that can plan the whole volume first
  MenuItem minmnu{"Minimize"};
  MenuItem exitmnu{"Exit"};
  MenuItem savereport{"Report"};  // of the last pass

  Label etfich;       // the current file, or the walk's counters
  Label result_line;  // what the last pass did
  ProgressBar progress;
  Shape activity{activity_colour::kResting};  // flashes with each move
  std::array<Label, 6> status_panels;
  Timer UpdateTimer{2000};
  CheckBox Affiche{"&Redraw map after each file"};
  CheckBox ChkNoFileDisplay{"Do not show &names"};

  // The temperature line and how often a pass has it read anew.
  Label Label6{"temp N/A", activity_colour::kResting};
  Timer tmrTemperatures{30000};

  // The cluster map, and the glyph that lights up while it is redrawn.
  PictureBox Picdepartvolume{394, map_colour::kFree};
  Label LblRedraw{"q", activity_colour::kResting};

  // The legend.
  std::array<Shape, 6> Shape2{Shape{map_colour::kUsed},       Shape{map_colour::kFree},
                              Shape{map_colour::kDefrag},     Shape{map_colour::kOptimize},
                              Shape{map_colour::kSystemArea}, Shape{map_colour::kMftZone}};
  Shape Shape4{map_colour::kMft};  // inside the box of the MFT zone
  std::array<Label, 2> Label1{Label{"used"}, Label{"MFT (area)"}};
  std::array<Label, 4> Label4{Label{"free"}, Label{"defrag"}, Label{"optimize"}, Label{"sys area"}};
  Label Label5{"candidate for:"};

  Engine engine;
  ClusterMap map;
  MapRedraw map_redraw;
  FrmDetails details;
  clsTemperatures Temperatures;
  HDDTempWarning temperature_warning;

  // Set by the launcher; null while there is none.
  LauncherLink* launcher = nullptr;

  // The volume's figures could not be read in the last run; the user has been told.
  bool last_run_failed = false;

  // The menu's item that starts the pass.
  MenuItem& PassItem(Pass pass);

  // Whether passes that can run in their thorough form do; the menu shows it.
  void UseThorough(bool use);

  // Passes work on the volume without asking, whatever disk it lies on. True: a solid-state one.
  bool AcceptSolidState();

  bool Busy() const { return !exitmnu.enabled; }

  // The window has been closed, and the program ends with it.
  bool Ended() const { return flags_.ProgramEnded != False; }

  // A disk check begins: until it has ended there is nothing to run on.
  void CloseMenu();
  // It has ended: shows the map and opens the menu. Passes need an open volume.
  void OpenMenu();
  // Tells the user that the chosen volume cannot be opened.
  void TellCannotOpen();

  // The window's size or state has changed.
  void Resized() {
    if (window_state == WindowState::Minimized) Minimize();
  }

  // False when the window must stay. Busy, it only stays for its own close box; closed all the
  // same, the run ends at its next check.
  bool QueryUnload(CloseReason reason);

  // RunView
  void SetRange(std::int64_t minimum, std::int64_t maximum) override;
  void SetValue(std::int64_t value) override { progress.SetValue(value); }
  std::int64_t Value() const override { return progress.value; }
  void SetCaption(const std::string& text) override { caption = text; }
  void SetCurrentFile(const std::string& path) override {
    etfich.caption = ChkNoFileDisplay.value ? "" : path;
  }
  void SetActivity(Colour colour) override { activity.fill_colour = colour; }
  bool RedrawsAfterEachFile() const override { return Affiche.value; }
  void EnterBusy() override { SetMenu(true); }
  void EnterIdle() override { SetMenu(false); }
  void SetStatusPanel(int panel, const std::string& text) override;
  void SetDetailsCounts(const std::string& fragmented, const std::string& system_area,
                        const std::string& optimize) override;
  void SetWalking(bool walking) override { UpdateTimer.enabled = walking; }
  bool RedrawMap(MapLayers layers) override { return map_redraw.Redraw(layers); }
  void PaintExtent(std::int64_t lcn, std::int64_t length, Colour colour) override {
    map.PaintExtent(lcn, length, colour);
  }
  void RefreshMap() override { Picdepartvolume.Refresh(); }

  // WatchedRun
  void StopWatching() override;
  void StopRun() override;

 private:
  void SetMenu(bool busy);
  bool OpenVolume();
  // Whether the disk gains by a pass, or the user wants one all the same.
  bool WorthAPass();
  void VolumeChanged(ChosenVolume::Change change);
  void ForgetVolume();
  // Analyze, the passes, and the way to another drive.
  void EnableWork(bool enabled);
  void cmdanalysemore_Click();
  void RunPass(Pass pass);
  std::string IdleCaption() const { return "Volume " + target_.Root(); }
  void Arretdefrag_Click();
  void Quitter_Click();
  void ShowResult();
  void SaveReport();
  void Minimize();
  void UpdateTimer_Timer();
  void BindTemperatures();
  void Temperatures_HDDTempOK(std::int16_t intTemp);
  void Temperatures_HDDTempNA();
  void Temperatures_HDDTempCritical(std::int16_t intTemp);
  std::string TemperatureLine(std::int16_t temperature) const;

  Platform& platform_;
  RunFlags& flags_;
  const RunTarget& target_;
  const DebugTrace& trace_;
  FrmDBG& debug_window_;
  bool solid_state_accepted_ = false;
};

}  // namespace vornalux
