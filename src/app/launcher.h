// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <functional>
#include <string>

#include "app/job.h"
#include "app/job_settings.h"
#include "engine/pass_table.h"
#include "forms/controls.h"
#include "health/disk_check.h"
#include "platform/platform.h"
#include "shell/context_window.h"
#include "ui/debug_window.h"
#include "ui/defrag_window.h"

namespace vornalux {

inline constexpr Colour kLinkColour = 0x800000;  // navy

// What is shown while the volumes are checked before there is another window.
class frmChecking final : public Form {
 public:
  frmChecking() : Form(kProgramTitle) {}

  Label LblChecking;
  Button CmdCancel{"Cancel"};
};

// The launcher: the list of volumes, the job options, and the job line that they stand for.
class Introfrm final : public Form, public DiskCheckSink, public LauncherLink {
 public:
  Introfrm(Platform& platform, RunFlags& flags, JobSettings& settings, const DebugTrace& trace,
           FrmDBG& debug_window, DefragWindow& main_window);

  ComboBox ImageCombo1;  // the volumes; pictures are numbered as drive_type has it
  Button CmdGo{"Select Drive"};
  Button CmdJob{"More >>"};
  Frame FrmJob;  // the job options, folded away at first
  Frame Frame1{" Create task shortcut (saved on desktop) "};
  Frame Frame3{" Action "};
  Button CmdCancel{"Cancel"};  // the disk check; shown while it runs
  Label LblChecking;           // the drive that is checked
  Label Lblversion{VORNALUX_VERSION};
  Label lblInfo{"Information", kLinkColour};
  Label LblSupport{"Support", kLinkColour};

  OptionButton Option1{RowOf(Pass::Defrag).name};
  OptionButton Option2{RowOf(Pass::Compact).name};
  OptionButton Option3{RowOf(Pass::Optimize).name};
  CheckBox Chk_Thorough{"Thorough"};  // of an action that can
  OptionButton OptPrioLow{"Low"};
  OptionButton OptPrioMed{"Normal"};
  OptionButton OptPrioHi{"High"};
  CheckBox Chk_ShutDown{"When done:"};
  Frame FrmAfter;
  OptionButton OptClose{"Close"};
  OptionButton OptShutDown{"Shutdown"};
  CheckBox Chk_Minmized{"Run minimized"};
  CheckBox VSS_Command{"VSS safe-mode", "Of the job that the shortcut runs"};
  CheckBox VSS_LIVE{"VSS safe-mode", "Of the runs that you start from here"};
  Button Command2{"Create desktop shortcut Job"};
  Label LblExclude{" Skip these extensions: (example: *.tmp; *.vhd) - defrag only!"};
  TextBox ExcludeTxt;

  // The action's option that stands for the pass.
  OptionButton& PassOption(Pass pass);

  frmContext context_menu;
  frmChecking checking;

  // The switches that the options stand for: "/drv C: /d /normal" and so on.
  const std::string& JobLine() const { return job_line_; }

  // Lists the volumes that can be worked on, each with what its check says, and shows the window.
  // Unseen, nothing is shown: what follows shows the window where somebody has to see it.
  enum class Start { Shown, Unseen };
  void Introduction(Start start = Start::Shown);

  // The mouse moved over the window: links are as at rest.
  void MouseMove();
  // The mouse did something over the icon in the notification area; message is the system's.
  void TrayMouse(std::uint32_t message);

  // Takes the drive ("C:\") as a user does who chooses it in the list.
  void SelectDrive(const std::string& root);

  // The main window takes the launcher's place on the screen.
  void ShowMainWindow();

  // Carries out the job that the command-line tail asks for.
  JobOutcome process_cmd_line(const std::string& tail);

  // Takes the volume for work. False, and the user told: another program of ours has it.
  bool TakeVolume(const std::string& place);

  // Tests whether the volume ("C:") is marked dirty, and says so when it is to be worked on. No
  // other volume can be chosen meanwhile.
  enum class CheckFor { Work, List };
  void runchkdsk(const std::string& drive, CheckFor purpose = CheckFor::Work);

  // The user asked for the disk check to end.
  bool cancel = false;
  // Opens a web page; set by the host.
  std::function<void(const std::string& address)> open_page;
  // What ends the program at once; set by the host.
  std::function<void()> end_program;

  // LauncherLink
  void ShowOverMainWindow() override;
  void minimize_to_tray() override;
  void cleanup_systray() override;
  void UsePriority(std::uint32_t priority_class) override;
  void CancelCheck() override { cancel = true; }
  void UnloadLauncher() override { Unload(); }
  void UnloadContextMenuSettings() override { context_menu.Unload(); }

  // DiskCheckSink
  void Done(bool failed) override;
  void Progress(std::int32_t percent, bool& cancel_check) override;
  void Status(const std::string& line, bool& cancel_check) override;

 private:
  void Say(const std::string& text) const;
  // The title of boxes about one drive's check.
  std::string CheckTitle() const { return kProgramTitle + (" - " + checked_); }

  void BindDriveControls();
  std::string DescribeDrive(const std::string& root, std::uint32_t type);
  void ImageCombo1_Click();
  void CmdGo_Click();
  void ShowJobOptions(bool shown);
  void OpenPage(const char* page) const;
  void VolumeChanged();
  void ShowPriority(std::uint32_t priority_class);

  void OpenContextMenuSettings();
  void Command2_Click();
  void ExplainShortcut(const std::string& name, const ShellResult& result);

  void ChooseAction(Pass pass);
  void ComposeJobLine();
  void BindOptions();

  Platform& platform_;
  RunFlags& flags_;
  JobSettings& settings_;
  CheckFor check_for_ = CheckFor::Work;
  std::string checked_;        // the drive of the check
  bool in_tray_ = false;       // the program, or it should be
  bool tells_checks_ = false;  // in a window of its own
  const DebugTrace& trace_;
  FrmDBG& debug_window_;
  DefragWindow& main_window_;
  ChosenVolume& volume_;

  // The pieces of the job line, each with its leading blank, empty until chosen.
  std::string action_piece_;
  std::string priority_piece_;
  std::string minimized_piece_;
  std::string after_piece_;
  std::string vss_piece_;
  std::string job_line_;
};

}  // namespace vornalux
