// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "app/job_settings.h"
#include "engine/pass_table.h"
#include "forms/controls.h"
#include "platform/platform.h"
#include "shell/context_window.h"
#include "ui/debug_window.h"
#include "ui/defrag_window.h"
#include "volume/sector_io.h"

namespace vornalux {

inline constexpr Colour kLinkColour = 0x800000;  // navy

// Behind the launcher's links.
inline constexpr const char* kInfoAddress = "https://vornalux.example/readme";
inline constexpr const char* kSupportAddress = "https://vornalux.example/issues";

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

// What a drive says of itself.
struct DriveFacts {
  std::uint32_t type = 0;  // one of drive_type
  VolumeName names;
  FreeSpace space;
  std::string boot_text;  // what a FAT volume calls itself in its first sector
  bool answers = false;   // it gave figures and the name of its file system
};

// The launcher: the list of volumes, job options, their job line, and the job that a command line
// asks for.
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
  Label Lblversion{VORNALUX_VERSION};
  Label lblInfo{"Information", kLinkColour};
  Label LblSupport{"Support", kLinkColour};

  OptionButton Option1{RowOf(Pass::Defrag).name};
  OptionButton Option2{RowOf(Pass::Compact).name};
  OptionButton Option3{RowOf(Pass::Optimize).name};
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
  Label LblExclude{" Skip these extensions: (example: *.tmp; *.vhd) - defrag only!"};
  TextBox ExcludeTxt;

  // The action's option that stands for the pass.
  OptionButton& PassOption(Pass pass);

  frmContext context_menu;

  // The switches that the options stand for: "/drv C: /d /normal" and so on.
  const std::string& JobLine() const { return job_line_; }

  // Lists the volumes that can be worked on, each with what its check says, and shows the window.
  void Introduction();

  // Of the drive that was last asked for its figures.
  DriveFacts drive_facts;

  // The mouse moved over the window: links are as at rest.
  void MouseMove();
  // The mouse did something over the icon in the notification area; message is the system's.
  void TrayMouse(std::uint32_t message);

  // Takes the drive ("C:\") as the one that jobs and runs work on.
  void SelectDrive(const std::string& root);

  // Carries out the job that the command-line tail asks for.
  JobOutcome process_cmd_line(const std::string& tail);

  // Reads the tail as process_cmd_line() does, up to where the job would begin. None: it would.
  JobOutcome CheckJobLine(const std::string& tail);

  // Tests whether the volume ("C:") is marked dirty and says so.
  void runchkdsk(const std::string& drive);

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
  void UnloadLauncher() override { Unload(); }
  void UnloadContextMenuSettings() override { context_menu.Unload(); }

  // DiskCheckSink
  void Done(bool failed) override;
  void Progress(std::int32_t percent, bool& cancel_check) override;
  void Status(const std::string& line, bool& cancel_check) override;

 private:
  struct Switches;

  JobOutcome ReadTail(const std::string& job, Switches& switches);
  bool ParseSwitches(const std::string& tail, Switches& switches);
  bool ApplySwitch(const std::string& name);
  void TakeDrive(const std::string* operand, const std::string& token);
  void TakeFolder(const std::string* operand, const std::string& token, const std::string& quoted);
  // without_answer stands for the file system of a drive that does not answer.
  void ReadDriveInformation(const char* without_answer);
  JobOutcome RunAction(std::optional<Pass> action);
  void AfterRun();
  void Say(const std::string& text) const;

  void BindDriveControls();
  std::string DescribeDrive(const std::string& root, std::uint32_t type);
  void ReadDriveFacts(const std::string& root);
  void ReadBootText(const std::string& root);
  void ImageCombo1_Click();
  void CmdGo_Click();
  void ShowMainWindow();
  void ShowJobOptions(bool shown);
  void OpenPage(const char* address) const;

  void OpenContextMenuSettings();
  void Command2_Click();
  void ExplainShortcut(const std::string& name, const ShellResult& result);

  void ComposeJobLine();
  void BindOptions();

  Platform& platform_;
  RunFlags& flags_;
  JobSettings& settings_;
  const DebugTrace& trace_;
  FrmDBG& debug_window_;
  DefragWindow& main_window_;
  SectorIo sectors_;
  bool check_heard_ = false;  // the check in hand has told something

  // The pieces of the job line, each with its leading blank, empty until chosen.
  std::string action_piece_;
  std::string priority_piece_;
  std::string minimized_piece_;
  std::string after_piece_;
  std::string vss_piece_;
  std::string job_line_;
};

}  // namespace vornalux
