// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/drive/rotation.h"

#include <filesystem>
#include <system_error>

#include "host/image/drive/sysfs.h"

namespace vornalux {
namespace {

namespace fs = std::filesystem;

constexpr int kDeepest = 8;  // devices on top of each other

std::optional<bool> OwnWord(const fs::path& folder) {
  const std::string word = FirstLine(folder / "queue/rotational");
  if (word == "0") return false;
  if (word == "1") return true;
  return std::nullopt;
}

std::optional<bool> Ask(const std::string& sysfs, const std::string& device, int depth) {
  fs::path folder = BlockFolder(sysfs, device);
  std::error_code error;
  if (folder.empty() || depth > kDeepest) return std::nullopt;
  if (fs::exists(folder / "partition", error)) folder = folder.parent_path();
  bool any = false, all_known = true;
  for (fs::directory_iterator slave(folder / "slaves", error), end; !error && slave != end;
       slave.increment(error)) {
    const auto turns = Ask(sysfs, FirstLine(slave->path() / "dev"), depth + 1);
    if (turns == true) return true;
    any = true;
    all_known = all_known && turns.has_value();
  }
  if (any && all_known && !error) return false;
  return OwnWord(folder);
}

}  // namespace

std::optional<bool> IsRotational(const std::string& sysfs, const std::string& device) {
  return Ask(sysfs, device, 0);
}

}  // namespace vornalux
