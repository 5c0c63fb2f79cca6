// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace vornalux {

// What a journal belongs to. A journal is used only on the volume that it was made for.
struct VolumeIdentity {
  std::array<char, 8> file_system{};  // "NTFS", "FAT"
  std::uint64_t serial = 0;
  std::uint64_t volume_size = 0;    // bytes
  std::uint64_t volume_offset = 0;  // bytes, inside the image or disk
  std::string device;               // what the block device says of itself; empty for an image
  // The very file, or the device as it is attached now: the same only for the same, but another
  // one after a restart or a move. No part of equality.
  std::string place;

  friend bool operator==(const VolumeIdentity& a, const VolumeIdentity& b) {
    return a.file_system == b.file_system && a.serial == b.serial &&
           a.volume_size == b.volume_size && a.volume_offset == b.volume_offset &&
           a.device == b.device;
  }
};

}  // namespace vornalux
