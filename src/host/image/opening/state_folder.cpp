// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/opening/state_folder.h"

#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "host/image/opening/journal_file.h"

namespace vornalux {
namespace {

namespace fs = std::filesystem;

// What such a file system holds is gone after a power cut, which is what a journal is for. The
// overlay of a live system keeps its changes in memory.
const char* FleetingFileSystem(fs::path folder) {
  struct statfs status {};
  while (::statfs(folder.c_str(), &status) != 0) {
    if (errno != ENOENT || folder == folder.parent_path()) return nullptr;
    folder = folder.parent_path();
  }
  switch (static_cast<unsigned long>(status.f_type)) {
    case TMPFS_MAGIC:
      return "tmpfs";
    case RAMFS_MAGIC:
      return "ramfs";
    case OVERLAYFS_SUPER_MAGIC:
      return "an overlay";
    default:
      return nullptr;
  }
}

}  // namespace

std::string StateFolder() {
  const char* folder = std::getenv("VORNALUX_STATE_DIR");
  return folder != nullptr && *folder != '\0' ? folder : "/var/lib/vornalux";
}

std::string PrepareStateFolder(const std::string& folder) {
  std::error_code error;
  const fs::path absolute = fs::absolute(folder, error);
  if (const char* const fleeting = FleetingFileSystem(absolute)) {
    return std::string("which lies on ") + fleeting + " and would not survive a power cut";
  }
  if (!error && !fs::exists(absolute, error)) {
    fs::create_directories(absolute.parent_path(), error);
    if (!error && ::mkdir(absolute.c_str(), 0700) != 0 && errno != EEXIST) {
      error = {errno, std::generic_category()};
    }
  }
  struct stat status {};
  if (!error && ::stat(absolute.c_str(), &status) != 0) error = {errno, std::generic_category()};
  if (!error && ::access(absolute.c_str(), W_OK | X_OK) != 0) {
    error = {errno, std::generic_category()};
  }
  if (error) return "where nothing can be written (" + error.message() + ")";
  if (const std::string foreign = ForeignWriter(status); !foreign.empty()) {
    return "which " + foreign;
  }
  return {};
}

}  // namespace vornalux
