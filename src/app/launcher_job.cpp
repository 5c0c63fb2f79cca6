// SPDX-License-Identifier: GPL-2.0-or-later
// The launcher's unattended side: a command-line tail becomes a job and is carried out.
#include "app/job_tail.h"
#include "app/launcher.h"
#include "text/ascii_case.h"

namespace vornalux {
namespace {

bool IsSwitch(const std::string& operand) {
  return operand.starts_with('-') || operand.starts_with('/');
}

// Lower case, with the slash form turned into the dash form.
std::string SwitchName(const std::string& token) {
  std::string name = LowerCase(token);
  if (name.starts_with('/')) name.front() = '-';
  return name;
}

std::string WithoutBlanksBefore(const std::string& tail) {
  return tail.substr(std::min(tail.find_first_not_of(' '), tail.size()));
}

}  // namespace

struct Introfrm::Switches {
  Action action = Action::None;
  bool run_minimized = false;
  bool context_menu = false;
};

// False when the line holds something that is no switch: then nothing of the job may run.
bool Introfrm::ParseSwitches(const std::string& tail, Switches& switches) {
  const JobTail parts = SplitTail(tail);
  const std::vector<std::string>& tokens = parts.tokens;
  for (std::size_t i = 0; i < tokens.size(); ++i) {
    const std::string name = SwitchName(tokens[i]);
    const bool last = i + 1 == tokens.size();
    const std::string* operand = last ? nullptr : &tokens[i + 1];
    if (name == "-setshell") {
      switches.context_menu = true;
      return true;
    } else if (name == "-d") {
      switches.action = Action::Defrag;
    } else if (name == "-o") {
      switches.action = Action::Optimize;
    } else if (name == "-c") {
      switches.action = Action::Compact;
    } else if (name == "-min") {
      switches.run_minimized = true;
    } else if (name == "-drv") {
      TakeDrive(operand, tokens[i]);
      if (!last) ++i;
    } else if (name == "-dir") {
      TakeFolder(operand, tokens[i], parts.quoted);
      if (!last) ++i;
    } else if (!ApplySwitch(name)) {
      Say("Invalid argument: " + tokens[i]);
      return false;
    }
  }
  return true;
}

// Switches that take effect at once. False for anything else.
bool Introfrm::ApplySwitch(const std::string& name) {
  if (name == "-dbg") {
    flags_.DebugLog = True;
    debug_window_.Show();
  } else if (name == "-down") {
    settings_.shutdownWhenDone = True;
  } else if (name == "-close") {
    settings_.closeWhenDone = True;
  } else if (name == "-vssafe") {
    flags_.VssSafe = True;
  } else if (name == "-low") {
    platform_.machine.SetPriorityClass(priority::kIdle);
  } else if (name == "-normal") {
    platform_.machine.SetPriorityClass(priority::kNormal);
  } else if (name == "-high") {
    platform_.machine.SetPriorityClass(priority::kAboveNormal);
  } else {
    return false;
  }
  return true;
}

// Without an operand the switch stands in for it, and is refused as one: two messages.
void Introfrm::TakeDrive(const std::string* operand, const std::string& token) {
  if (!operand) Say("No drive specified.");
  const std::string& drive = operand ? *operand : token;
  if (IsSwitch(drive)) {
    Say("Invalid drivename.");
    return;
  }
  settings_.target.drive = NormalRoot(drive);
}

void Introfrm::TakeFolder(const std::string* operand, const std::string& token,
                          const std::string& quoted) {
  if (!operand) Say("No dir specified.");
  if (IsSwitch(operand ? *operand : token)) {
    Say("Invalid directory.");
    return;
  }
  if (quoted.size() < 2 || quoted[1] != ':') {
    Say("No dir specified.");
    return;
  }
  settings_.target.drive = NormalRoot(quoted.substr(0, 2));
  settings_.target.directory = NormalFolder(quoted.substr(2));
}

JobOutcome Introfrm::ReadTail(const std::string& job, Switches& switches) {
  if (!ParseSwitches(job, switches)) return JobOutcome::InvalidArgument;
  if (switches.context_menu) return JobOutcome::ContextMenu;
  if (settings_.target.drive.size() < 2 || settings_.target.drive == "\\") {
    Say("No drive specified.");
    return JobOutcome::NoDrive;
  }
  return JobOutcome::None;
}

JobOutcome Introfrm::CheckJobLine(const std::string& tail) {
  Switches switches;
  return ReadTail(WithoutBlanksBefore(tail), switches);
}

// The only window there is from now on: the program ends with it.
void Introfrm::OpenContextMenuSettings() {
  Hide();
  main_window_.Hide();
  context_menu.closed = [this] { main_window_.QueryUnload(CloseReason::Code); };
  context_menu.Open();
}

JobOutcome Introfrm::process_cmd_line(const std::string& tail) {
  const std::string job = WithoutBlanksBefore(tail);
  Switches switches;
  const JobOutcome read = ReadTail(job, switches);
  if (read == JobOutcome::ContextMenu) OpenContextMenuSettings();
  if (read != JobOutcome::None) return read;
  trace_.Line("CDM_line arguments: " + job);
  runchkdsk(settings_.target.Drive());
  if (flags_.VolumeDirty) return JobOutcome::Dirty;
  ReadDriveInformation("FS_Error");
  if (switches.action != Action::None) ShowMainWindow();
  if (switches.run_minimized) minimize_to_tray();
  const JobOutcome outcome = RunAction(switches.action);
  if (!flags_.StopRequested) AfterRun();
  return outcome;
}

JobOutcome Introfrm::RunAction(Action action) {
  MenuItem* const commands[] = {nullptr, &main_window_.cmdDefrag, &main_window_.SmartOptimize,
                                &main_window_.cmdCompact};
  MenuItem* const command = commands[static_cast<std::size_t>(action)];
  if (!command) return JobOutcome::Done;
  command->Click();
  if (flags_.StopRequested) return JobOutcome::Stopped;
  return main_window_.last_run_failed ? JobOutcome::Failed : JobOutcome::Done;
}

void Introfrm::AfterRun() {
  if (settings_.shutdownWhenDone) platform_.machine.PowerOff();
  if (!flags_.StopRequested && settings_.closeWhenDone) {
    cleanup_systray();
    if (end_program) end_program();
  }
}

}  // namespace vornalux
