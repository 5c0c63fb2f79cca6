// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "mkvolume/space.h"

namespace vornalux::making {

// An image file being made. Every failure is a std::runtime_error with the path and the reason.
class Image {
 public:
  // Replaces what is there by so many bytes that read as zeros and take no room.
  static Image Create(const std::string& path, std::uint64_t size);
  static Image Open(const std::string& path);
  Image(Image&& other) noexcept;
  Image& operator=(Image&&) = delete;
  ~Image();

  const std::string& Path() const { return path_; }
  int Descriptor() const { return file_; }
  void Read(std::uint64_t offset, std::span<std::uint8_t> out) const;
  void Write(std::uint64_t offset, std::span<const std::uint8_t> data);

 private:
  Image(std::string path, int file) : path_(std::move(path)), file_(file) {}

  std::string path_;
  int file_;
};

// Where the clusters of a volume lie in its image.
struct ClusterPlaces {
  std::uint64_t first = 0;    // byte offset of LCN 0
  std::uint32_t cluster = 0;  // bytes

  std::uint64_t Of(std::int64_t lcn) const {
    return first + static_cast<std::uint64_t>(lcn) * cluster;
  }
};

// Writes a stream's content to its clusters, the rest of the last one as zeros. Returns the SHA-256
// of the content.
std::string WriteStream(Image& image, const ClusterPlaces& places, const PlannedStream& stream,
                        const std::vector<PlacedRun>& runs);

// SHA-256 of a stream's content, holes as zeros.
std::string HashStream(const PlannedStream& stream);

// Runs a program of the system and waits for it. Throws std::runtime_error with what it printed
// when it cannot be run or fails.
void RunTool(const std::vector<std::string>& command);

// Copies the parts of a file that are not holes into another one at an offset.
void CopySparse(const Image& from, Image& to, std::uint64_t offset);

}  // namespace vornalux::making
