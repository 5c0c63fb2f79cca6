// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <functional>
#include <string>

#include "app/job_settings.h"
#include "forms/controls.h"
#include "platform/platform.h"
#include "ui/debug_window.h"
#include "ui/defrag_window.h"

namespace vornalux {

// How a command-line job ended.
enum class JobOutcome {
  None,             // no job was given yet
  InvalidArgument,  // told to the user; nothing ran
  NoDrive,          // neither the line nor the launcher named one; told to the user
  ContextMenu,      // the context-menu settings were asked for
  Dirty,            // the volume needs a disk check; told to the user
  Failed,           // the volume could not be read; told to the user
  Stopped,
  Done,
};

// The launcher: job options, their job line, and the job that a command line asks for.
class Introfrm final : public Form, public DiskCheckSink, public LauncherLink {
 public:
  Introfrm(Platform& platform, RunFlags& flags, JobSettings& settings, const DebugTrace& trace,
           FrmDBG& debug_window, DefragWindow& main_window);

  // " Action "
  OptionButton Option1{"Defrag"};
  OptionButton Option2{"Compact"};
  OptionButton Option3{"Optimize"};
  OptionButton OptPrioLow{"Low"};
  OptionButton OptPrioMed{"Normal"};
  OptionButton OptPrioHi{"High"};
  CheckBox Chk_ShutDown{"When done:"};
  Frame FrmAfter;
  OptionButton OptClose{"Close"};
  OptionButton OptShutDown{"Shutdown"};
  CheckBox Chk_Minmized{"Run minimized"};
  CheckBox VSS_Command{"VSS safe-mode"};
  CheckBox VSS_LIVE{"VSS safe-mode"};
  Button Command2{"Create desktop shortcut Job"};
  TextBox ExcludeTxt;

  Form frmContext{"Context menu"};

  // The switches that the options stand for: "/drv C: /d /normal" and so on.
  const std::string& JobLine() const { return job_line_; }

  // Takes the drive ("C:\") as the one that jobs and runs work on.
  void SelectDrive(const std::string& root);

  // Carries out the job that the command-line tail asks for.
  JobOutcome process_cmd_line(const std::string& tail);

  // Tests whether the volume ("C:") is marked dirty and says so.
  void runchkdsk(const std::string& drive);

  // The user asked for the disk check to end.
  bool cancel = false;
  // What ends the program at once; set by the host.
  std::function<void()> end_program;

  // LauncherLink
  void ShowOverMainWindow() override;
  void minimize_to_tray() override;
  void cleanup_systray() override;
  void UnloadLauncher() override { Unload(); }
  void UnloadContextMenuSettings() override { frmContext.Unload(); }

  // DiskCheckSink
  void Done(bool failed) override;
  void Progress(std::int32_t percent, bool& cancel_check) override;
  void Status(const std::string& line, bool& cancel_check) override;

 private:
  enum class Action { None, Defrag, Optimize, Compact };
  struct Switches;

  bool ParseSwitches(const std::string& tail, Switches& switches);
  bool ApplySwitch(const std::string& name);
  void TakeDrive(const std::string* operand, const std::string& token);
  void TakeFolder(const std::string* operand, const std::string& token, const std::string& quoted);
  void ReadDriveInformation();
  JobOutcome RunAction(Action action);
  void AfterRun();
  void Say(const std::string& text) const;

  void ComposeJobLine();
  void BindOptions();

  Platform& platform_;
  RunFlags& flags_;
  JobSettings& settings_;
  const DebugTrace& trace_;
  FrmDBG& debug_window_;
  DefragWindow& main_window_;

  // The pieces of the job line, each with its leading blank, empty until chosen.
  std::string action_piece_;
  std::string priority_piece_;
  std::string minimized_piece_;
  std::string after_piece_;
  std::string vss_piece_;
  std::string job_line_;
};

}  // namespace vornalux
