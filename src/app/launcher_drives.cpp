// SPDX-License-Identifier: GPL-2.0-or-later
// The launcher's interactive side: the list of volumes, the chosen one, the way to the main window.
#include <algorithm>

#include "app/launcher.h"
#include "text/ascii_case.h"
#include "text/trimmed.h"

namespace vornalux {
namespace {

constexpr std::size_t kRootStep = 4;  // "C:\" and a NUL
constexpr std::uint32_t kLeftButtonDown = 513;

// In French, unlike the text of a job in the same case.
constexpr const char* kNoMedium = "Ins\xC3\xA9rez un support";

std::string TypeText(std::uint32_t type) {
  if (type == drive_type::kRemovable) return "Removable disk";
  return type == drive_type::kFixed ? "Fixed disk" : "";
}

bool IsListed(std::uint32_t type) {
  return type == drive_type::kRemovable || type == drive_type::kFixed || type == drive_type::kCdRom;
}

}  // namespace

void Introfrm::BindDriveControls() {
  ImageCombo1.change = [this] { ImageCombo1_Click(); };
  CmdGo.click = [this] { CmdGo_Click(); };
  CmdJob.click = [this] { ShowJobOptions(!FrmJob.visible); };
  lblInfo.click = [this] { OpenPage("/readme"); };
  LblSupport.click = [this] { OpenPage("/issues"); };
  CmdCancel.click = checking.CmdCancel.click = [this] { cancel = true; };
  CmdCancel.visible = false;
  FrmJob.visible = false;
}

void Introfrm::Introduction(Start start) {
  tells_checks_ = start == Start::Shown && !visible;
  std::string roots = platform_.volumes.LogicalDriveStrings();
  ImageCombo1.Clear();
  std::int32_t first_fixed = -1;
  for (std::size_t at = 0; at + kRootStep <= roots.size(); at += kRootStep) {
    platform_.desktop.DoEvents();
    std::string root = roots.substr(at, kRootStep - 1);
    root[0] = UpperCase(root[0]);
    const std::uint32_t type = platform_.volumes.DriveType(root);
    if (!IsListed(type)) continue;
    const auto index = static_cast<std::int32_t>(std::ssize(ImageCombo1.items()));
    if (type == drive_type::kFixed && first_fixed < 0) first_fixed = index;
    ImageCombo1.Add(DescribeDrive(root, type), static_cast<std::int32_t>(type));
    trace_.Line(ImageCombo1.items().back());
  }
  flags_.VolumeDirty = False;  // of the chosen one nothing is known yet
  tells_checks_ = false;
  if (main_window_.Ended()) return checking.Hide();
  if (volume_.IsChosen()) {
    VolumeChanged();
  } else if (first_fixed >= 0) {
    volume_.Choose(ImageCombo1.items()[static_cast<std::size_t>(first_fixed)].substr(0, 3), "",
                   kNoMedium);
  }
  if (start == Start::Shown) Show();
  checking.Hide();  // the next one is there: the program stays in front
}

std::string Introfrm::DescribeDrive(const std::string& root, std::uint32_t type) {
  const DriveFacts facts = ReadDriveFacts(platform_, root);
  const bool known = !facts.names.file_system.empty();
  if (!known && type == drive_type::kCdRom) return root + "    ";
  const std::string item = root + "  " + TypeText(type) + "  [" + facts.names.label + "]";
  if (!known) return item;
  runchkdsk(root.substr(0, 2), CheckFor::List);
  // A disc has no check that could have found it dirty.
  if (flags_.VolumeDirty && type == drive_type::kCdRom) return item;
  const bool solid = type == drive_type::kFixed && platform_.machine.IsSolidState(root);
  return item + (flags_.VolumeDirty ? "  Status: Error!" : "  Status: Ok") +
         (solid ? "  Solid state" : "");
}

void Introfrm::ImageCombo1_Click() {
  const auto index = static_cast<std::size_t>(ImageCombo1.list_index.get());
  SelectDrive(ImageCombo1.items()[index].substr(0, 3));
}

void Introfrm::SelectDrive(const std::string& root) {
  if (main_window_.Ended()) return;
  Chk_Thorough.value = false;
  ChooseAction(Pass::Defrag);
  main_window_.UseThorough(false);
  UsePriority(priority::kNormal);
  volume_.Choose(root, "", kNoMedium);
}

void Introfrm::ShowJobOptions(bool shown) {
  FrmJob.visible = shown;
  CmdJob.caption = shown ? "More <<" : "More >>";
}

// The launcher stays, with its Cancel, until the check has ended.
void Introfrm::CmdGo_Click() {
  if (!volume_.IsChosen() || main_window_.Ended()) return;
  ShowJobOptions(false);
  if (!volume_.Choose(volume_.Target().drive, "", kNoMedium)) {
    main_window_.TellCannotOpen();
    return;
  }
  if (!TakeVolume(volume_.Target().drive)) return;
  main_window_.CloseMenu();
  runchkdsk(volume_.Target().Drive());
  if (main_window_.Ended()) return;
  main_window_.OpenMenu();
  ShowMainWindow();
}

bool Introfrm::TakeVolume(const std::string& place) {
  // As it is opened: a job may be given more than a letter, "C:here".
  const std::string root = place.substr(0, 2) + "\\";
  if (platform_.machine.TakeVolume(root)) return true;
  Say("Another Vornalux is working on " + root + ".");
  return false;
}

void Introfrm::ShowMainWindow() {
  main_window_.Show();
  Hide();
}

void Introfrm::OpenPage(const char* page) const {
  const std::string home = VORNALUX_HOME_PAGE;
  if (home.empty()) return Say("This build of the program has no home page.");
  if (open_page) open_page(home + page);
}

void Introfrm::MouseMove() {
  lblInfo.fore_colour = kLinkColour;
  LblSupport.fore_colour = kLinkColour;
}

void Introfrm::TrayMouse(std::uint32_t message) {
  if (message != kLeftButtonDown) return;
  main_window_.window_state = WindowState::Normal;
  main_window_.Show();
  cleanup_systray();
}

}  // namespace vornalux
