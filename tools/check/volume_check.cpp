// SPDX-License-Identifier: GPL-2.0-or-later
#include "check/volume_check.h"

#include <algorithm>
#include <array>

namespace vornalux {

CheckReport CheckVolume(const ByteSource& source, const CheckOptions& options) {
  std::array<std::uint8_t, 512> boot{};
  const bool read = source.Read(options.offset, boot);
  if (read && std::equal(boot.begin() + 3, boot.begin() + 11, "NTFS    ")) {
    return CheckNtfs(source, options);
  }
  const auto starts = [&boot](int at) {
    return std::equal(boot.begin() + at, boot.begin() + at + 3, "FAT");
  };
  if (read && (starts(54) || starts(82))) return CheckFat(source, options);
  CheckReport report;
  report.problems.push_back(read ? "boot sector: neither NTFS nor FAT"
                                 : "boot sector: cannot be read");
  return report;
}

CheckReport CheckVolume(const std::string& image_path, const CheckOptions& options) {
  return CheckVolume(FileSource(image_path), options);
}

}  // namespace vornalux
