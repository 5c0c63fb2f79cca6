// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/mounted/mounted_platform.h"

#include <limits>
#include <optional>
#include <stdexcept>
#include <utility>

#include "host/mounted/error_text.h"
#include "text/windows_path.h"

namespace vornalux {

MountedPlatform::MountedPlatform(MachineSettings settings)
    : settings_(std::move(settings)), random_(settings_.seed) {}

MountedPlatform::~MountedPlatform() = default;

void MountedPlatform::Mount(char letter, MountedVolume& volume) {
  const char drive = DriveLetter(letter);
  if (drive == 0) throw std::invalid_argument("not a drive letter");
  const auto [mounted, is_new] = drives_.try_emplace(drive, volume);
  if (!is_new) throw std::invalid_argument("drive letter in use");
  // What was not needed for opening may be needed for what comes.
  Noted(std::string{drive, ':', '\\'}, &mounted->second, error::kSuccess);
}

void MountedPlatform::Relist(char letter) {
  Drive& drive = *FindDrive(DriveLetter(letter));
  drive.tree = FolderTree(*drive.volume);
  ++drive.moves;
}

ErrorCode MountedPlatform::Noted(std::string_view path, Drive* drive, ErrorCode code) {
  if (drive == nullptr) return code;
  const std::optional<std::uint64_t> byte = drive->volume->TakeReadFault();
  if (code != error::kSuccess || byte) {
    failures_.Note(path, code != error::kSuccess ? code : error::kReadFault, byte);
  }
  return code;
}

MountedPlatform::Drive* MountedPlatform::FindDrive(char letter) {
  const auto drive = drives_.find(letter);
  return drive == drives_.end() ? nullptr : &drive->second;
}

MountedPlatform::Drive* MountedPlatform::DriveOf(Handle volume) {
  const auto open = volumes_.find(volume);
  return open == volumes_.end() ? nullptr : open->second;
}

MountedPlatform::OpenFile* MountedPlatform::FileOf(Handle file) {
  const auto open = files_.find(file);
  return open == files_.end() ? nullptr : &open->second;
}

// A closed handle's number comes back as late as can be, so that using one by mistake shows.
Handle MountedPlatform::NextHandle() {
  do {
    last_handle_ = last_handle_ == std::numeric_limits<Handle>::max() ? 1 : last_handle_ + 1;
  } while (files_.contains(last_handle_) || volumes_.contains(last_handle_));
  return last_handle_;
}

std::string MountedPlatform::ErrorText(ErrorCode code) { return EnglishErrorText(code); }

std::uint32_t MountedPlatform::SetPriorityClass(std::uint32_t priority_class) {
  priority_class_ = priority_class;
  return priority_class_;
}

void MountedPlatform::Check(const std::string& root, const std::string& /*file_system*/,
                            const DiskCheckOptions& /*options*/, const Callback& callback) {
  const Drive* drive = FindDrive(DriveOfRoot(root));
  if (drive == nullptr) return;
  const std::string type =
      "The type of the file system is " + drive->volume->Facts().file_system + ".";
  if (callback({check_command::kOutput, 0, type})) {
    callback({check_command::kProgress, 100, {}});
  }
  callback({check_command::kDone, drive->volume->Dirty() ? 0 : 1, {}});
}

bool MountedPlatform::Version(SystemVersion& version) {
  version = {.platform = 2, .major = 10, .minor = 0, .build = 0, .service_pack = {}};
  return true;
}

void MountedPlatform::ExitWindows(std::uint32_t, std::uint32_t) {
  if (settings_.power_off) settings_.power_off();
}

double MountedPlatform::Random() {
  constexpr double kTwoToMinus53 = 1.0 / 9007199254740992.0;
  return static_cast<double>(random_() >> 11) * kTwoToMinus53;
}

}  // namespace vornalux
