// SPDX-License-Identifier: GPL-2.0-or-later
// The launcher's interactive side: the list of volumes, the chosen one, the way to the main window.
#include <algorithm>

#include "app/launcher.h"
#include "text/ascii_case.h"
#include "text/trimmed.h"

namespace vornalux {
namespace {

constexpr std::size_t kRootStep = 4;  // "C:\" and a NUL
constexpr std::int32_t kSectorBytes = 512;
constexpr std::uint32_t kLeftButtonDown = 513;

// In French, unlike the text of a job in the same case.
constexpr const char* kNoMedium = "Ins\xC3\xA9rez un support";

// Up to the first NUL, without blanks at its ends.
std::string FieldText(const std::string& field) {
  return Trimmed(field.substr(0, field.find('\0')));
}

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
  lblInfo.click = [this] { OpenPage(kInfoAddress); };
  LblSupport.click = [this] { OpenPage(kSupportAddress); };
  CmdCancel.click = [this] { cancel = true; };
  CmdCancel.visible = false;
  FrmJob.visible = false;
}

void Introfrm::Introduction() {
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
  if (first_fixed >= 0 && settings_.target.drive.empty()) ImageCombo1.Choose(first_fixed);
  Show();
}

std::string Introfrm::DescribeDrive(const std::string& root, std::uint32_t type) {
  ReadDriveFacts(root);
  const bool known = !drive_facts.names.file_system.empty();
  if (!known && type == drive_type::kCdRom) return root + "    ";
  const std::string item = root + "  " + TypeText(type) + "  [" + drive_facts.names.label + "]";
  if (!known) return item;
  runchkdsk(root.substr(0, 2));
  return item + (flags_.VolumeDirty ? "  Status: Error!" : "  Status: Ok");
}

// What the drive says of itself, empty where it does not answer.
void Introfrm::ReadDriveFacts(const std::string& root) {
  drive_facts = {};
  drive_facts.type = platform_.volumes.DriveType(root);
  VolumeName names;
  if (platform_.volumes.VolumeNames(root, names) == error::kSuccess) {
    drive_facts.names = {.label = FieldText(names.label),
                         .file_system = FieldText(names.file_system)};
  }
  FreeSpace& space = drive_facts.space;
  drive_facts.answers = platform_.volumes.FreeSpaceFigures(root, space) == error::kSuccess &&
                        !drive_facts.names.file_system.empty();
  if (drive_facts.names.file_system.starts_with("FAT")) ReadBootText(root);
}

// FAT volumes name themselves in their first sector, each size of table in its own words.
void Introfrm::ReadBootText(const std::string& root) {
  const std::int64_t sector = drive_facts.space.bytes_per_sector;
  const bool usual = sector >= kSectorBytes && sector <= 8 * kSectorBytes;
  sectors_.device_path = "\\\\.\\" + root.substr(0, 2);
  sectors_.bytes_per_sector = usual ? static_cast<std::int32_t>(sector) : kSectorBytes;
  sectors_.ReadWriteSector(0, sectors_.bytes_per_sector, SectorIo::kRead);
  if (sectors_.SectorIoFailed) return;
  constexpr std::ptrdiff_t kTextBytes = 8;
  const auto text =
      sectors_.SectorBuffer.begin() + (drive_facts.names.file_system == "FAT32" ? 82 : 54);
  drive_facts.boot_text = FieldText(std::string(text, text + kTextBytes));
}

void Introfrm::ImageCombo1_Click() {
  const auto index = static_cast<std::size_t>(ImageCombo1.list_index.get());
  SelectDrive(ImageCombo1.items()[index].substr(0, 3));
}

void Introfrm::SelectDrive(const std::string& root) {
  settings_.target.drive = root;
  settings_.target.directory.clear();
  Option1.value = true;
  Option2.value = false;
  Option3.value = false;
  OptPrioMed.value = true;
  OptPrioLow.value = false;
  OptPrioHi.value = false;
  action_piece_ = " /d";
  priority_piece_ = " /normal";
  ComposeJobLine();
  ReadDriveInformation(kNoMedium);
}

void Introfrm::ReadDriveInformation(const char* without_answer) {
  ReadDriveFacts(settings_.target.Root());
  settings_.target.file_system =
      drive_facts.answers ? drive_facts.names.file_system : without_answer;
  main_window_.engine.geometry.SelectVolume(settings_.target.Drive());
}

void Introfrm::ShowJobOptions(bool shown) {
  FrmJob.visible = shown;
  CmdJob.caption = shown ? "More <<" : "More >>";
}

void Introfrm::CmdGo_Click() {
  if (settings_.target.drive.empty()) return;
  ShowJobOptions(false);
  ShowMainWindow();
  check_heard_ = false;
  runchkdsk(settings_.target.Drive());
  // Where there is no check to open the menu at its end.
  if (!check_heard_) main_window_.OpenMenu();
}

// Takes the launcher's place on the screen.
void Introfrm::ShowMainWindow() {
  main_window_.caption = "Volume " + settings_.target.Root();
  main_window_.Show();
  Hide();
}

void Introfrm::OpenPage(const char* address) const {
  if (open_page) open_page(address);
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
