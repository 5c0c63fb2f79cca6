// SPDX-License-Identifier: GPL-2.0-or-later
#include "app/launcher.h"

namespace vornalux {
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
      sectors_(platform.devices) {
  const std::string windows = platform_.machine.WindowsFolder();
  main_window_.engine.walk.PrefetchDir = windows.empty() ? "" : windows + "\\Prefetch";
  main_window_.launcher = this;
  FrmAfter.enabled = false;
  BindOptions();
  BindDriveControls();
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
    std::uint32_t priority_class = 0;  // takes effect at once
  };
  const auto group = [this](std::string& piece, const std::vector<Choice>& choices) {
    for (const Choice& choice : choices) {
      choice.button->click = [this, &piece, choices, choice] {
        for (const Choice& other : choices) other.button->value = other.button == choice.button;
        if (choice.priority_class) platform_.machine.SetPriorityClass(choice.priority_class);
        piece = choice.text;
        ComposeJobLine();
      };
    }
  };
  std::vector<Choice> actions;
  for (const PassRow& row : kPasses) {
    actions.push_back({&PassOption(row.pass), std::string(" /") + row.letter});
  }
  group(action_piece_, actions);
  group(after_piece_, {{&OptClose, " /close"}, {&OptShutDown, " /down"}});
  // "High" stops at above normal, so that a long run does not starve the desktop.
  group(priority_piece_, {{&OptPrioLow, " /low", priority::kIdle},
                          {&OptPrioMed, " /normal", priority::kNormal},
                          {&OptPrioHi, " /high", priority::kAboveNormal}});

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
  ExcludeTxt.change = [this] { settings_.target.exclude = ExcludeTxt.text; };
}

void Introfrm::ComposeJobLine() {
  job_line_ = "/drv " + settings_.target.Drive() + action_piece_ + priority_piece_ +
              minimized_piece_ + after_piece_ + vss_piece_;
  Command2.caption = "Create desktop shortcut Job " + job_line_;
}

void Introfrm::runchkdsk(const std::string& drive) {
  flags_.VolumeDirty = False;
  if (drive.empty()) return;
  cancel = false;
  CmdCancel.visible = true;
  platform_.machine.CheckDisk(drive + "\\", *this);
  CmdCancel.visible = false;
}

void Introfrm::Done(bool failed) {
  check_heard_ = true;
  main_window_.OpenMenu();
  if (cancel) {
    Say("Disk check was cancelled!");
  } else if (failed) {
    flags_.VolumeDirty = True;
    platform_.desktop.ShowBox(
        "One or more volumes are 'dirty'!\r\nYou should run Chkdsk to correct errors.",
        kProgramTitle, BoxButtons::Ok, BoxIcon::Warning);
  }
}

void Introfrm::Progress(std::int32_t percent, bool& cancel_check) {
  check_heard_ = true;
  main_window_.progress.SetRange(0, 100);
  main_window_.progress.SetValue(percent);
  cancel_check = cancel;
}

void Introfrm::Status(const std::string&, bool& cancel_check) {
  check_heard_ = true;
  platform_.desktop.DoEvents();
  cancel_check = cancel;
}

void Introfrm::ShowOverMainWindow() {
  caption = kProgramTitle;
  Show();
}

void Introfrm::minimize_to_tray() {
  Hide();
  main_window_.Hide();
  platform_.desktop.ShowTrayIcon(main_window_.caption);
}

void Introfrm::cleanup_systray() { platform_.desktop.RemoveTrayIcon(); }

void Introfrm::Say(const std::string& text) const {
  platform_.desktop.ShowBox(text, kProgramTitle, BoxButtons::Ok, BoxIcon::None);
}

}  // namespace vornalux
