// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/image/opening/file_device.h"

namespace vornalux {

// Where something lies, as command lines name it.
struct ForeignPlace {
  std::string path;              // of the file or block device
  std::uint64_t offset = 0;      // bytes, in it
  std::string mount_point = {};  // where it is mounted; empty: it is not
};

// Something that we can name and cannot work on.
struct ForeignContent {
  std::string type;                // libblkid's name; empty for a container of an image
  std::string name;                // "an ext4 volume", "packed with gzip"
  std::string advice;              // what to do about it, a sentence without its end
  std::vector<std::string> lines;  // commands to copy, quoted for a shell
};

// A disk image in another format than the disk's own, by its magic at the start of the file.
std::optional<ForeignContent> FindContainer(FileDevice& file, const std::string& path);

// What libblkid finds in length bytes from offset on of the file or device; place is where that is
// for who is told.
std::optional<ForeignContent> FindForeign(const FileDevice& file, std::uint64_t offset,
                                          std::uint64_t length, const ForeignPlace& place);

// ". ADVICE:" and each command on a line of its own; ". ADVICE" without any.
std::string Remedy(const std::string& advice, const std::vector<std::string>& lines);

}  // namespace vornalux
