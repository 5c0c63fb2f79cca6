// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vornalux {

// What a checker reads: bytes of an image, a device or memory. Kept apart from the program's own
// devices, so that judge and judged share nothing.
class ByteSource {
 public:
  virtual ~ByteSource() = default;
  virtual std::uint64_t Size() const = 0;
  // All of out, or false (past the end, read error).
  virtual bool Read(std::uint64_t offset, std::span<std::uint8_t> out) const = 0;
};

// A file or block device, opened for reading. Throws std::system_error when it cannot be opened.
class FileSource : public ByteSource {
 public:
  explicit FileSource(const std::string& path);
  ~FileSource() override;
  FileSource(const FileSource&) = delete;
  FileSource& operator=(const FileSource&) = delete;

  std::uint64_t Size() const override { return size_; }
  bool Read(std::uint64_t offset, std::span<std::uint8_t> out) const override;

 private:
  int file_ = -1;
  std::uint64_t size_ = 0;
};

// Bytes owned by somebody else, who keeps them alive.
class MemorySource : public ByteSource {
 public:
  explicit MemorySource(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  std::uint64_t Size() const override { return bytes_.size(); }
  bool Read(std::uint64_t offset, std::span<std::uint8_t> out) const override;

 private:
  std::span<const std::uint8_t> bytes_;
};

}  // namespace vornalux
