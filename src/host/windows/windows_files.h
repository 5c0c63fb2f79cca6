// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/files.h"

namespace vornalux {

// Files and folders as the system has them. Paths are taken literally, with the prefix or without.
// Not thread-safe: answers land in one buffer, kept for the next.
class WindowsFiles final : public Files {
 public:
  OpenedFile OpenPath(const std::string& path, FileAccess access, FileFlags flags) override;
  void CloseFile(Handle file) override;
  ErrorCode RetrievalPointers(Handle file, std::int64_t starting_vcn, std::size_t max_extents,
                              ExtentChunk& out) override;
  // kMoreData for a file with more streams than any file system keeps.
  ErrorCode StreamNames(Handle file, std::vector<std::string>& out) override;
  // The system gives "." and ".." along.
  std::unique_ptr<FolderSearch> FindFirst(const std::string& pattern,
                                          const std::function<bool()>& go_on = {}) override;
  // kNotEnoughMemory for files above 64 MiB.
  ErrorCode ReadBytes(const std::string& path, std::string& out) override;
  std::string FromCodePage(std::string text) override;

 private:
  std::vector<std::uint8_t> answer_;
};

}  // namespace vornalux
