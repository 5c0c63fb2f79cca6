// SPDX-License-Identifier: GPL-2.0-or-later
#include "app/start_up.h"

#include <charconv>

#include "text/trimmed.h"

namespace vornalux {
namespace {

constexpr double kOldestVersion = 5.1;
constexpr std::uint32_t kImageComboBoxes = 512;
constexpr std::uint32_t kLowWord = 0xFFFF;

constexpr const char* kTooOld =
    "Vornalux requires Windows XP or higher (2003 server, Vista) to run.\r\n"
    "The detected Windows version does not meet the minimum requirements.\r\n\r\n"
    "The program will now terminate.";

std::string NameOf(const SystemVersion& version) {
  switch (version.platform) {
    case 0:
      return "Win32s";
    case 1:
      return version.minor == 0 ? "Windows 95" : version.minor == 90 ? "Windows ME" : "Windows 98";
    default:
      break;
  }
  if (version.major == 5 && version.minor == 0) return "Windows 2000";
  if (version.major == 5 && version.minor == 1) return "Windows XP";
  return "Windows NT";  // newer ones have no name: it is only logged
}

// As far as the text is a number.
double NumberIn(const std::string& text) {
  double number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number, std::chars_format::fixed);
  return number;
}

std::string Word(bool value) { return value ? "True" : "False"; }

}  // namespace

void GetOSName(System& system, OsDescription& description) {
  SystemVersion version;
  if (!system.Version(version)) return;
  description.platform = version.platform;
  description.name = NameOf(version);
  description.version = std::to_string(version.major) + "." + std::to_string(version.minor);
  description.service_pack = version.service_pack.substr(0, version.service_pack.find('\0'));
  description.build = std::to_string(version.build & kLowWord);
}

StartUpResult StartUp(Program& program, const std::string& tail) {
  System& system = program.platform.system;
  Desktop& desktop = program.platform.desktop;
  if (system.AdministratorTest() != 1) {
    desktop.ShowBox("no admin", kProgramTitle, BoxButtons::Ok, BoxIcon::None);
    return StartUpResult::NoAdministrator;
  }
  OsDescription os;
  GetOSName(system, os);
  if (NumberIn(os.version) < kOldestVersion) {
    desktop.ShowBox(kTooOld, kProgramTitle, BoxButtons::Ok, BoxIcon::Critical);
    return StartUpResult::OldSystem;
  }
  // The switch for the log has not been read yet.
  const auto log = [&program](const std::string& line) {
    program.debug_window.Append(line + "\r\n");
  };
  log("OS= Win" + os.version);
  log("IsWow64Process=" + Word(system.IsWow64Process()) + " ");
  log("Backup privilege granted=" + Word(system.EnablePrivilege("SeBackupPrivilege")));
  log("Restore privilege granted=" + Word(system.EnablePrivilege("SeRestorePrivilege")));
  system.InitCommonControls(kImageComboBoxes);
  const JobReading reading = ParseJob(tail);
  const bool unseen = reading.job.run_minimized && !reading.refused && !reading.job.context_menu;
  program.launcher.Introduction(unseen ? Introfrm::Start::Unseen : Introfrm::Start::Shown);
  if (!Trimmed(tail).empty() && !program.main_window.Ended())
    program.launcher.process_cmd_line(tail);
  return StartUpResult::Started;
}

}  // namespace vornalux
