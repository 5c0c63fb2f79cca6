// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vornalux {

// What may hold a volume: a disk or partition of this machine, a partition of an image.
struct ListedVolume {
  std::string path;              // to be named in a command line
  std::optional<int> partition;  // of the image at path
  std::uint64_t offset = 0;      // bytes, in the image
  std::uint64_t size = 0;        // bytes
  std::string file_system;       // "NTFS", "FAT32", "ext4"; empty where none is known
  bool workable = false;         // NTFS or FAT
  std::string label;
  std::string uuid;
  std::optional<std::uint64_t> free;  // bytes, where that is told at little cost
  std::optional<bool> rotational;     // of the disk; nothing where it does not say
  std::vector<std::string> mounted;   // where
  std::string in_use;                 // otherwise: "swap", or what it is a part of
  std::string unreadable;             // why it could not be looked at; empty: it could
};

// Where this machine tells what it has.
struct ListSources {
  std::string sys = "/sys";
  std::string dev = "/dev";
  std::string mounts = "/proc/self/mountinfo";
  std::string swaps = "/proc/swaps";
};

// The disks of this machine with their partitions, of a disk with partitions these alone. Disks
// without a medium and what lives in memory are left out. What the user may not read is told as far
// as the system tells it to everybody.
std::vector<ListedVolume> ListVolumes(const ListSources& sources = {});

// The volume in an image or on a device, or its partitions. Throws VolumeRefused for what cannot be
// opened, and for a container of an image.
std::vector<ListedVolume> ListImage(const std::string& path, const ListSources& sources = {});

}  // namespace vornalux
