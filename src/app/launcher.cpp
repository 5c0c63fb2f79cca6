// SPDX-License-Identifier: GPL-2.0-or-later
#include "app/launcher.h"

#include <algorithm>

#include "text/ascii_case.h"

namespace vornalux {
namespace {

constexpr std::size_t kRootLength = 3;  // "C:\"

}  // namespace

Introfrm::Introfrm(Platform& platform, RunFlags& flags, JobSettings& settings,
                   const DebugTrace& trace, FrmDBG& debug_window, DefragWindow& main_window)
    : Form(kProgramTitle),
      context_menu(platform),
      platform_(platform),
      flags_(flags),
      settings_(settings),
      trace_(trace),
      debug_window_(debug_window),
      main_window_(main_window),
      volume_(main_window.engine.volume) {
  const std::string windows = platform_.machine.WindowsFolder();
  main_window_.engine.walk.PrefetchDir = windows.empty() ? "" : windows + "\\Prefetch";
  main_window_.launcher = this;
  FrmAfter.enabled = false;
  BindOptions();
  BindDriveControls();
  ChooseAction(Pass::Defrag);
  ShowPriority(platform_.machine.PriorityClass());
  volume_.Watch([this](ChosenVolume::Change) { VolumeChanged(); });
}

void Introfrm::VolumeChanged() {
  const std::vector<std::string>& items = ImageCombo1.items();
  const auto item = std::ranges::find_if(items, [this](const std::string& text) {
    return EqualIgnoringAsciiCase(text.substr(0, kRootLength), volume_.Target().drive);
  });
  ImageCombo1.list_index =
      item == items.end() ? -1 : static_cast<std::int32_t>(item - items.begin());
  ComposeJobLine();
}

// "High" stops at above normal, so that a long run does not starve the desktop.
void Introfrm::ShowPriority(std::uint32_t priority_class) {
  OptPrioLow.value = priority_class == priority::kIdle;
  OptPrioMed.value = priority_class == priority::kNormal;
  OptPrioHi.value = priority_class == priority::kAboveNormal;
  priority_piece_ = OptPrioLow.value   ? " /low"
                    : OptPrioMed.value ? " /normal"
                    : OptPrioHi.value  ? " /high"
                                       : "";
  ComposeJobLine();
}

void Introfrm::UsePriority(std::uint32_t priority_class) {
  ShowPriority(platform_.machine.SetPriorityClass(priority_class));
}

OptionButton& Introfrm::PassOption(Pass pass) {
  switch (pass) {
    case Pass::Defrag:
      break;
    case Pass::Optimize:
      return Option3;
    case Pass::Compact:
      return Option2;
  }
  return Option1;
}

void Introfrm::BindOptions() {
  // Of each group one at most is on.
  struct Choice {
    OptionButton* button;
    std::string text;
  };
  const auto group = [this](std::string& piece, const std::vector<Choice>& choices) {
    for (const Choice& choice : choices) {
      choice.button->click = [this, &piece, choices, choice] {
        for (const Choice& other : choices) other.button->value = other.button == choice.button;
        piece = choice.text;
        ComposeJobLine();
      };
    }
  };
  for (const PassRow& row : kPasses) {
    PassOption(row.pass).click = [this, pass = row.pass] { ChooseAction(pass); };
  }
  Chk_Thorough.click = [this] { ComposeJobLine(); };
  group(after_piece_, {{&OptClose, " /close"}, {&OptShutDown, " /down"}});
  OptPrioLow.click = [this] { UsePriority(priority::kIdle); };
  OptPrioMed.click = [this] { UsePriority(priority::kNormal); };
  OptPrioHi.click = [this] { UsePriority(priority::kAboveNormal); };

  const auto toggle = [this](CheckBox& box, std::string& piece, const char* text) {
    box.click = [this, &box, &piece, text] {
      piece = box.value ? text : "";
      ComposeJobLine();
    };
  };
  toggle(Chk_Minmized, minimized_piece_, " /min");
  toggle(VSS_Command, vss_piece_, " /vssafe");
  Chk_ShutDown.click = [this] {
    FrmAfter.enabled = Chk_ShutDown.value;
    const bool applies = Chk_ShutDown.value;
    after_piece_ = applies && OptClose.value      ? " /close"
                   : applies && OptShutDown.value ? " /down"
                                                  : "";
    ComposeJobLine();
  };
  VSS_LIVE.click = [this] { flags_.VssSafe = ToBoolean(VSS_LIVE.value); };
  Command2.click = [this] { Command2_Click(); };
  ExcludeTxt.change = [this] { volume_.SetExclude(ExcludeTxt.text); };
}

void Introfrm::ChooseAction(Pass pass) {
  for (const PassRow& row : kPasses) PassOption(row.pass).value = row.pass == pass;
  action_piece_ = std::string(" /") + RowOf(pass).letter;
  Chk_Thorough.enabled = RowOf(pass).thorough != nullptr;
  ComposeJobLine();
}

void Introfrm::ComposeJobLine() {
  Command2.enabled = volume_.IsChosen();
  if (!volume_.IsChosen()) return;
  job_line_ = "/drv " + volume_.Target().Drive() + action_piece_ +
              (Chk_Thorough.enabled && Chk_Thorough.value ? " /t" : "") + priority_piece_ +
              minimized_piece_ + after_piece_ + vss_piece_;
  Command2.caption = "Create desktop shortcut Job " + job_line_;
}

void Introfrm::runchkdsk(const std::string& drive, CheckFor purpose) {
  flags_.VolumeDirty = False;
  check_for_ = purpose;
  checked_ = drive;
  if (drive.empty() || main_window_.Ended()) return;
  cancel = false;
  const std::string what = "Checking drive " + drive + " ...";
  if (tells_checks_) checking.Show();
  checking.LblChecking.caption = what;
  LblChecking.caption = what;
  ImageCombo1.enabled = CmdGo.enabled = false;
  CmdCancel.visible = true;
  CheckVolumeBy(platform_.checks, platform_.volumes, drive + "\\", DiskCheckOptions{}, *this);
  CmdCancel.visible = false;
  LblChecking.caption = "";
  ImageCombo1.enabled = CmdGo.enabled = true;
}

void Introfrm::Done(bool failed) {
  if (main_window_.Ended()) return;
  main_window_.OpenMenu();
  // The list shows it; a box would stand before each start, also of a job for another volume.
  if (check_for_ == CheckFor::List) {
    flags_.VolumeDirty = ToBoolean(failed && !cancel);
  } else if (cancel) {
    platform_.desktop.ShowBox("Disk check was cancelled!", CheckTitle(), BoxButtons::Ok,
                              BoxIcon::None);
  } else if (failed) {
    flags_.VolumeDirty = True;
    platform_.desktop.ShowBox(
        "One or more volumes are 'dirty'!\r\nYou should run Chkdsk to correct errors.",
        CheckTitle(), BoxButtons::Ok, BoxIcon::Warning);
  }
}

void Introfrm::Progress(std::int32_t percent, bool& cancel_check) {
  main_window_.progress.SetRange(0, 100);
  main_window_.progress.SetValue(percent);
  cancel_check = cancel;
}

void Introfrm::Status(const std::string&, bool& cancel_check) {
  platform_.desktop.DoEvents();
  cancel_check = cancel;
}

void Introfrm::ShowOverMainWindow() {
  caption = kProgramTitle;
  ShowInFront();
}

void Introfrm::minimize_to_tray() {
  Hide();
  main_window_.Hide();
  in_tray_ = true;
  platform_.desktop.ShowTrayIcon(main_window_.caption);
}

void Introfrm::cleanup_systray() {
  in_tray_ = false;
  platform_.desktop.RemoveTrayIcon();
}

JobOutcome Introfrm::process_cmd_line(const std::string& tail) {
  const JobReading reading = ParseJob(tail);
  const Job& job = reading.job;
  for (const std::string& objection : reading.objections) Say(objection);
  for (const std::uint32_t priority_class : job.priorities) UsePriority(priority_class);
  if (job.shutdown_when_done) settings_.shutdownWhenDone = True;
  if (job.close_when_done) settings_.closeWhenDone = True;
  if (job.vss_safe) flags_.VssSafe = True;
  if (job.vss_safe) VSS_LIVE.value = true;
  if (job.debug_log) flags_.DebugLog = True;
  if (job.debug_log) debug_window_.Show();
  if (reading.refused) return JobOutcome::InvalidArgument;
  if (job.context_menu) {
    OpenContextMenuSettings();
    return JobOutcome::ContextMenu;
  }
  const JobOutcome outcome =
      RunJob(job, {platform_, flags_, settings_, trace_, main_window_, *this});
  // It has not come to where it would go out of sight.
  if (job.run_minimized && !in_tray_ && !main_window_.visible && !main_window_.Ended()) Show();
  return outcome;
}

// The only window there is from now on: the program ends with it.
void Introfrm::OpenContextMenuSettings() {
  Hide();
  main_window_.Hide();
  context_menu.closed = [this] { main_window_.QueryUnload(CloseReason::Code); };
  context_menu.Open();
}

void Introfrm::Say(const std::string& text) const {
  platform_.desktop.ShowBox(text, kProgramTitle, BoxButtons::Ok, BoxIcon::None);
}

}  // namespace vornalux
