// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <array>
#include <string>

#include "engine/engine.h"
#include "forms/controls.h"
#include "platform/platform.h"
#include "ui/debug_window.h"

namespace vornalux {

// The main window, where a run happens. The menu is the only record of whether one is going on.
class DefragWindow final : public Form, public RunView {
 public:
  DefragWindow(Platform& platform, RunFlags& flags, const RunTarget& target,
               const DebugTrace& trace, FrmDBG& debug_window);

  MenuItem Quitter{"Drive"};
  MenuItem Arretdefrag{"Stop"};
  MenuItem cmdanalysemore{"Analyze"};
  MenuItem cmdDefrag{"Defrag"};
  MenuItem SmartOptimize{"Optimize"};
  MenuItem cmdCompact{"Compact"};
  MenuItem minmnu{"Minimize"};
  MenuItem exitmnu{"Exit"};

  Label etfich;  // the current file, or the walk's counters
  ProgressBar progress;
  Shape activity{activity_colour::kResting};  // flashes with each move
  std::array<Label, 6> status_panels;
  Timer UpdateTimer{2000};
  CheckBox Affiche;           // redraw the map after each file
  CheckBox ChkNoFileDisplay;  // do not show the names of files

  // Numbers beside the categories of the details window.
  Label fragmented_count;
  Label system_area_count;
  Label optimize_count;

  Engine engine;

  // The volume's figures could not be read in the last run; the user has been told.
  bool last_run_failed = false;

  bool Busy() const { return !exitmnu.enabled; }

  // RunView
  void SetRange(std::int64_t minimum, std::int64_t maximum) override;
  void SetValue(std::int64_t value) override { progress.SetValue(value); }
  std::int64_t Value() const override { return progress.value; }
  void SetCaption(const std::string& text) override { caption = text; }
  void SetCurrentFile(const std::string& path) override { etfich.caption = path; }
  void SetActivity(Colour colour) override { activity.fill_colour = colour; }
  bool HidesFileNames() const override { return ChkNoFileDisplay.value; }
  bool RedrawsAfterEachFile() const override { return Affiche.value; }
  void EnterBusy() override { SetMenu(true); }
  void EnterIdle() override { SetMenu(false); }
  void SetStatusPanel(int panel, const std::string& text) override;
  void SetDetailsCounts(const std::string& fragmented, const std::string& system_area,
                        const std::string& optimize) override;
  void SetWalking(bool walking) override { UpdateTimer.enabled = walking; }
  void DrawVolumeBitmap(const VolumeBitmapImage& image) override;
  void PaintCluster(std::int64_t cluster, Colour colour) override;
  void RefreshMap() override;
  void RedrawClusterMap() override;

 private:
  void SetMenu(bool busy);
  void cmdanalysemore_Click();
  void cmdDefrag_Click();
  void Arretdefrag_Click();
  void UpdateTimer_Timer();

  Platform& platform_;
  RunFlags& flags_;
  const RunTarget& target_;
  FrmDBG& debug_window_;
};

}  // namespace vornalux
