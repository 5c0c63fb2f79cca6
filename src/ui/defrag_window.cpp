// SPDX-License-Identifier: GPL-2.0-or-later
#include "ui/defrag_window.h"

#include <optional>

#include "engine/busy_window.h"
#include "engine/summary_text.h"
#include "engine/thorough_help.h"

namespace vornalux {

DefragWindow::DefragWindow(Platform& platform, RunFlags& flags, const DebugTrace& trace,
                           FrmDBG& debug_window)
    : engine(platform, flags, trace, *this),
      map(platform.desktop, engine.extents, Picdepartvolume, LblRedraw),
      map_redraw(platform.desktop, engine, flags, engine.volume.Target(), map, LblRedraw),
      details(engine.table, engine.analysis.lists, flags),
      Temperatures(platform.devices, engine.volume.Target()),
      temperature_warning(platform.devices, engine.volume.Target(), trace, *this),
      platform_(platform),
      flags_(flags),
      target_(engine.volume.Target()),
      trace_(trace),
      debug_window_(debug_window) {
  cmdanalysemore.click = [this] { cmdanalysemore_Click(); };
  for (const PassRow& row : kPasses) {
    PassItem(row.pass).click = [this, pass = row.pass] { RunPass(pass); };
  }
  thorough.click = [this] { UseThorough(!thorough.checked); };
  Picdepartvolume.click = [this] { RedrawMap(MapLayers::Candidates); };
  Quitter.click = [this] { Quitter_Click(); };
  minmnu.click = [this] { Minimize(); };
  savereport.click = [this] { SaveReport(); };
  exitmnu.click = [this] { QueryUnload(CloseReason::Code); };
  for (Label& caption_label : Label4) caption_label.click = [this] { details.Open(); };
  Arretdefrag.click = [this] { Arretdefrag_Click(); };
  // The name that is there now is none to be shown any more.
  ChkNoFileDisplay.click = [this] {
    if (ChkNoFileDisplay.value) etfich.caption = "";
  };
  UpdateTimer.tick = [this] { UpdateTimer_Timer(); };
  BindTemperatures();
  engine.volume.Watch([this](ChosenVolume::Change change) { VolumeChanged(change); });
  ShowResult();
  CloseMenu();
}

MenuItem& DefragWindow::PassItem(Pass pass) {
  switch (pass) {
    case Pass::Defrag:
      break;
    case Pass::Optimize:
      return SmartOptimize;
    case Pass::Compact:
      return cmdCompact;
  }
  return cmdDefrag;
}

void DefragWindow::EnableWork(bool enabled) {
  Quitter.enabled = enabled;
  cmdanalysemore.enabled = enabled;
  thorough.enabled = enabled;
  for (const PassRow& row : kPasses) PassItem(row.pass).enabled = enabled;
}

void DefragWindow::UseThorough(bool use) {
  flags_.Thorough = ToBoolean(use);
  thorough.checked = use;
}

void DefragWindow::SetMenu(bool busy) {
  EnableWork(!busy);
  exitmnu.enabled = !busy;
  savereport.enabled = !busy && engine.record.Summary();
  Arretdefrag.enabled = busy;
  tmrTemperatures.enabled = busy;
  platform_.machine.KeepAwake(busy);
}

void DefragWindow::CloseMenu() {
  EnableWork(false);
  Arretdefrag.enabled = false;
  Picdepartvolume.visible = false;
  tmrTemperatures.enabled = false;
  Label6.fore_colour = activity_colour::kResting;
}

void DefragWindow::OpenMenu() {
  if (Busy() || Ended()) return;
  CloseMenu();
  EnableWork(engine.volume.IsOpen());
  Quitter.enabled = true;
  Picdepartvolume.visible = engine.volume.IsOpen();
}

void DefragWindow::TellCannotOpen() {
  platform_.desktop.ShowBox("Error opening the drive.\r\nClose some applications and try again.",
                            kProgramTitle, BoxButtons::Ok, BoxIcon::Critical);
}

void DefragWindow::VolumeChanged(ChosenVolume::Change change) {
  if (change == ChosenVolume::Change::Forgotten) ForgetVolume();
  if (Busy()) return;
  caption = IdleCaption();
  if (!engine.volume.IsOpen()) {
    CloseMenu();
    Quitter.enabled = true;
  }
}

// Nothing that the window shows is left of the volume before.
void DefragWindow::ForgetVolume() {
  map.Forget();
  solid_state_accepted_ = false;
  engine.record.Forget();
  ShowResult();
  for (Label& panel : status_panels) panel.caption = "";
  SetDetailsCounts("", "", "");
  details.ListView1.Clear();
  details.Hide();
  etfich.caption = "";
  progress.SetRange(0, 1);
  progress.SetValue(0);
  Label6.caption = "temp N/A";
}

// Back to the launcher for another drive.
void DefragWindow::Quitter_Click() {
  engine.volume.Close();
  platform_.machine.TakeVolume({});
  debug_window_.DBGTXT.Clear();
  if (launcher) launcher->ShowOverMainWindow();
  platform_.desktop.DoEvents();
}

void DefragWindow::Minimize() {
  if (!launcher) return;
  launcher->minimize_to_tray();
  launcher->UsePriority(priority::kIdle);
}

bool DefragWindow::QueryUnload(CloseReason reason) {
  if (Ended()) return true;
  const bool busy = Busy();
  if (busy) {
    platform_.desktop.ShowBox("Quit current operation first!", kProgramTitle, BoxButtons::Ok,
                              BoxIcon::None);
    if (reason == CloseReason::CloseBox) return false;
  }
  flags_.StopRequested = True;
  flags_.ProgramEnded = True;
  if (launcher) launcher->CancelCheck();
  if (busy) {
    // A run that waits behind it would never look.
    if (temperature_warning.visible) temperature_warning.Unload();
    Unload();
    return true;
  }
  if (launcher) {
    launcher->cleanup_systray();
    launcher->UnloadLauncher();
  }
  details.Unload();
  debug_window_.Unload();
  if (launcher) launcher->UnloadContextMenuSettings();
  temperature_warning.Unload();
  engine.volume.Close();
  Unload();
  return true;
}

// What happened to the drive since it was chosen shows here at the latest.
bool DefragWindow::OpenVolume() {
  last_run_failed = true;
  if (Ended()) return false;
  flags_.StopRequested = False;
  if (engine.volume.Reopen()) return true;
  TellCannotOpen();
  return false;
}

void DefragWindow::cmdanalysemore_Click() {
  if (!OpenVolume()) return;
  const BusyWindow busy(*this);
  flags_.OptimizeMode = False;
  last_run_failed = !engine.analysis.Analyze_This() && !flags_.StopRequested;
  ShowResult();
}

bool DefragWindow::AcceptSolidState() {
  solid_state_accepted_ = true;
  return platform_.machine.IsSolidState(target_.Root());
}

bool DefragWindow::WorthAPass() {
  if (solid_state_accepted_ || !platform_.machine.IsSolidState(target_.Root())) return true;
  const std::string text = "Drive " + target_.Drive() +
                           " is a solid-state disk. Moving files wears it and hardly makes it "
                           "faster.\r\nDo you want to go on?";
  solid_state_accepted_ = platform_.desktop.ShowBox(text, kProgramTitle, BoxButtons::YesNo,
                                                    BoxIcon::Question) == BoxAnswer::Yes;
  return solid_state_accepted_;
}

void DefragWindow::RunPass(Pass pass) {
  if (!WorthAPass() || !OpenVolume()) return;
  const PassRow& row = RowOf(pass);
  engine.record.Forget();
  ShowResult();
  const bool planned = flags_.Thorough && row.thorough != nullptr;
  last_run_failed = !(engine.passes.*(planned ? row.thorough : row.run))();
  ShowResult();
  flags_.AnalysisValid = False;
  caption = IdleCaption();
  if (flags_.DebugLog) debug_window_.Show();
  if (!row.needs_class_lists || !flags_.StopRequested) return;
  // Showing the log may have let something happen.
  caption = IdleCaption();
  flags_.AnalysisValid = False;
}

void DefragWindow::ShowResult() {
  const std::optional<RunSummary>& summary = engine.record.Summary();
  result_line.caption = summary ? ResultLine(*summary) : "";
  savereport.enabled = summary && !Busy();
}

void DefragWindow::SaveReport() {
  if (!engine.record.Summary() || Busy() || Ended()) return;
  const SystemText system = [this](ErrorCode code) { return platform_.machine.ErrorText(code); };
  // As it is now: the dialog may stay open for long.
  RunSummary summary = *engine.record.Summary();
  const MoveStatistics moved = engine.movers.statistics;
  const std::string volume =
      target_.Drive() + (target_.directory.empty() ? "" : "\\" + target_.directory);
  const std::optional<std::string> path = platform_.desktop.SavePath(
      "Save report", std::string(kProgramTitle) + " " + target_.Drive().substr(0, 1) + ".txt");
  if (!path) return;
  // Only who wants the report waits for a walk over a mounted volume. It may be another one by now.
  if (engine.record.Summary()) summary.help = FindThoroughHelp(engine.context, summary);
  const std::string report = ReportText(volume, summary, moved, system);
  const ErrorCode code = platform_.shell.WriteUnicodeFile(*path, report);
  if (code == error::kSuccess) return;
  platform_.desktop.ShowBox("The report could not be saved:\r\n" + CodeText(code, system),
                            kProgramTitle, BoxButtons::Ok, BoxIcon::Critical);
}

// The box is the pause: the run stands still inside the checkpoint that let this click through.
void DefragWindow::Arretdefrag_Click() {
  if (platform_.desktop.ShowBox("Are you sure?", "Paused ...", BoxButtons::YesNo,
                                BoxIcon::Question) != BoxAnswer::Yes) {
    return;
  }
  UpdateTimer.enabled = false;
  StopRun();
}

void DefragWindow::UpdateTimer_Timer() {
  etfich.caption = "directories: " + std::to_string(engine.table.TotalDirs) +
                   " / files: " + std::to_string(engine.table.TotalFiles);
  if (platform_.desktop.InputPending()) platform_.desktop.DoEvents();
}

void DefragWindow::BindTemperatures() {
  Temperatures.HDDTempOK = [this](std::int16_t intTemp) { Temperatures_HDDTempOK(intTemp); };
  Temperatures.HDDTempNA = [this](std::int16_t) { Temperatures_HDDTempNA(); };
  Temperatures.HDDTempCritical = [this](std::int16_t intTemp) {
    Temperatures_HDDTempCritical(intTemp);
  };
  tmrTemperatures.tick = [this] {
    // The warning has a reading of its own.
    if (!temperature_warning.visible) Temperatures.QueryHDDTemperature();
  };
}

std::string DefragWindow::TemperatureLine(std::int16_t temperature) const {
  return target_.Drive() + " temp " + TemperatureText(temperature, " ");
}

void DefragWindow::Temperatures_HDDTempOK(std::int16_t intTemp) {
  Label6.fore_colour = activity_colour::kMoving;
  Label6.caption = TemperatureLine(intTemp);
}

void DefragWindow::Temperatures_HDDTempNA() {
  Label6.fore_colour = activity_colour::kMoving;
  Label6.caption = target_.Drive() + " temp N/A";
}

// The warning is a pause: the run stands still inside the checkpoint that let the timer through.
void DefragWindow::Temperatures_HDDTempCritical(std::int16_t intTemp) {
  Label6.caption = TemperatureLine(intTemp);
  temperature_warning.Load(intTemp);
  temperature_warning.tmrTemperatures.enabled = true;
  platform_.desktop.ShowModal(temperature_warning);
  trace_.Line("HD Temp HIGH: " + std::to_string(intTemp));
}

void DefragWindow::StopWatching() {
  tmrTemperatures.enabled = false;
  Label6.fore_colour = activity_colour::kResting;
}

void DefragWindow::StopRun() {
  flags_.StopRequested = True;
  etfich.caption = "";
  // The run may have ended while the question was open.
  if (Busy()) result_line.caption = "Stopping ...";
  RedrawMap(MapLayers::Volume);
}

void DefragWindow::SetRange(std::int64_t minimum, std::int64_t maximum) {
  progress.SetRange(minimum, maximum);
}

void DefragWindow::SetStatusPanel(int panel, const std::string& text) {
  status_panels.at(static_cast<std::size_t>(panel)).caption = text;
}

void DefragWindow::SetDetailsCounts(const std::string& fragmented, const std::string& system_area,
                                    const std::string& optimize) {
  details.counts[0].caption = fragmented;
  details.counts[1].caption = optimize;
  details.counts[2].caption = system_area;
}

}  // namespace vornalux
