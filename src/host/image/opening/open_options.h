// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vornalux {

struct ImageSource;

struct OpenOptions {
  bool writable = false;
  bool dry_run = false;              // keep what is written in memory; the image is only read
  bool allow_dirty = false;          // open a volume that is marked dirty, though not to move
  bool drop_restore_points = false;  // work on a volume with snapshots, which are lost then
  std::optional<std::uint64_t> piece = {};  // of a large copy, until the user is heard again; bytes
  bool refuse_solid = false;            // where it would be written to: what is on no turning disk
  std::string sysfs = "/sys";           // where the kernel tells of the disk
  bool discard = false;                 // keep in the report what DiscardFree() needs
  std::optional<int> partition;         // 1-based, of a partitioned disk image
  std::optional<std::uint64_t> offset;  // bytes
};

// Where a volume was found.
struct VolumePlace {
  bool device = false;       // on a block device, else in a file
  bool partition = false;    // that is a partition's own device
  bool solid = false;        // on a disk that does not turn: nothing is gained by seeking less
  bool last = true;          // nothing but a few zeros lies behind it
  std::uint64_t offset = 0;  // bytes from the start of file or device
  std::uint64_t length = 0;  // bytes, with what belongs to it behind its last sector
};

// What opening found out besides the volume itself.
struct OpenReport {
  bool recovered = false;  // an interrupted run of ours was finished first
  std::string recovery;    // one line about it for the user
  // Opened for looking or a dry run: what a pass would refuse the volume for, with the remedies.
  std::vector<std::string> objections;
  VolumePlace place;
  // Where the options wanted it: keeps the image open and locked.
  std::shared_ptr<const ImageSource> source;
};

}  // namespace vornalux
