// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/mounted/mounted_platform.h"

namespace vornalux {

// What Windows' own FAT driver answers where a mounted volume answers otherwise: errors by other
// names, success for what is no move, and what it never moves. tools/guest asks the driver itself.
class FatDriver {
 public:
  explicit FatDriver(MountedPlatform& machine) : machine_(machine) {}

  // Nothing where the volume is to answer, or is not FAT. path is that of the open file.
  std::optional<ErrorCode> Move(const std::string& path, Handle volume, Handle file,
                                std::int64_t vcn, std::int64_t lcn, std::uint32_t count);
  std::optional<ErrorCode> Pointers(const std::string& path, std::int64_t vcn, ExtentChunk& out);

 private:
  std::string FileSystem(const std::string& path);
  bool RootInFront(const std::string& path);
  bool Free(Handle volume, std::int64_t lcn, std::int64_t count);

  MountedPlatform& machine_;
};

}  // namespace vornalux
