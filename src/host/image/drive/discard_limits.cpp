// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/image/drive/discard_limits.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <system_error>

#include "host/image/drive/sysfs.h"

namespace vornalux {
namespace {

std::uint64_t Number(const std::filesystem::path& path) {
  std::uint64_t number = 0;
  const std::string text = FirstLine(path);
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

}  // namespace

std::optional<DiscardLimits> ReadDiscardLimits(const std::string& sysfs,
                                               const std::string& device) {
  const auto folder = BlockFolder(sysfs, device);
  if (folder.empty()) return std::nullopt;
  std::error_code error;
  const bool partition = std::filesystem::exists(folder / "partition", error);
  const auto queue = (partition ? folder.parent_path() : folder) / "queue";
  if (Number(queue / "discard_max_bytes") == 0) return std::nullopt;
  const std::uint64_t sector = std::max<std::uint64_t>(Number(queue / "logical_block_size"), 512);
  const std::uint64_t unit = std::max(Number(queue / "discard_granularity"), sector);
  return DiscardLimits{.unit = unit, .first = Number(folder / "discard_alignment") % unit};
}

}  // namespace vornalux
