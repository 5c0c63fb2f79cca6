// SPDX-License-Identifier: GPL-2.0-or-later
#include "ui/defrag_window.h"

namespace vornalux {

DefragWindow::DefragWindow(Platform& platform, RunFlags& flags, const RunTarget& target,
                           const DebugTrace& trace, FrmDBG& debug_window)
    : engine(platform, flags, target, trace, *this),
      platform_(platform),
      flags_(flags),
      target_(target),
      debug_window_(debug_window) {
  cmdanalysemore.click = [this] { cmdanalysemore_Click(); };
  cmdDefrag.click = [this] { cmdDefrag_Click(); };
  Arretdefrag.click = [this] { Arretdefrag_Click(); };
  UpdateTimer.tick = [this] { UpdateTimer_Timer(); };
  EnterIdle();
}

void DefragWindow::SetMenu(bool busy) {
  for (MenuItem* item :
       {&Quitter, &cmdanalysemore, &cmdDefrag, &SmartOptimize, &cmdCompact, &exitmnu}) {
    item->enabled = !busy;
  }
  Arretdefrag.enabled = busy;
}

void DefragWindow::cmdanalysemore_Click() {
  const BusyWindow busy(*this);
  flags_.StopRequested = False;
  flags_.OptimizeMode = False;
  last_run_failed = !engine.analysis.Analyze_This() && !flags_.StopRequested;
}

void DefragWindow::cmdDefrag_Click() {
  flags_.StopRequested = False;
  last_run_failed = !engine.passes.defrag();
  flags_.AnalysisValid = False;
  caption = "Volume " + target_.Root();
  if (flags_.DebugLog) debug_window_.Show();
}

// The box is the pause: the run stands still inside the checkpoint that let this click through.
void DefragWindow::Arretdefrag_Click() {
  if (platform_.desktop.ShowBox("Are you sure?", "Paused ...", BoxButtons::YesNo,
                                BoxIcon::Question) != BoxAnswer::Yes) {
    return;
  }
  UpdateTimer.enabled = false;
  flags_.StopRequested = True;
  etfich.caption = "";
  engine.geometry.ShowVolumeBitmap(target_.Drive(), *this);
}

void DefragWindow::UpdateTimer_Timer() {
  etfich.caption = "directories: " + std::to_string(engine.table.TotalDirs) +
                   " / files: " + std::to_string(engine.table.TotalFiles);
  if (platform_.desktop.InputPending()) platform_.desktop.DoEvents();
}

void DefragWindow::SetRange(std::int64_t minimum, std::int64_t maximum) {
  progress.SetRange(minimum, maximum);
}

void DefragWindow::SetStatusPanel(int panel, const std::string& text) {
  status_panels.at(static_cast<std::size_t>(panel)).caption = text;
}

void DefragWindow::SetDetailsCounts(const std::string& fragmented, const std::string& system_area,
                                    const std::string& optimize) {
  fragmented_count.caption = fragmented;
  system_area_count.caption = system_area;
  optimize_count.caption = optimize;
}

// The map comes with the cluster map control; until then there is nothing to paint on.
void DefragWindow::DrawVolumeBitmap(const VolumeBitmapImage&) {}
void DefragWindow::PaintCluster(std::int64_t, Colour) {}
void DefragWindow::RefreshMap() {}
void DefragWindow::RedrawClusterMap() {}

}  // namespace vornalux
