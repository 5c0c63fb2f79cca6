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
  bool dry_run = false;                 // keep what is written in memory; the image is only read
  bool allow_dirty = false;             // open a volume that is marked dirty, though not to move
  bool drop_restore_points = false;     // work on a volume with snapshots, which are lost then
  bool discard = false;                 // keep in the report what DiscardFree() needs
  std::optional<int> partition;         // 1-based, of a partitioned disk image
  std::optional<std::uint64_t> offset;  // bytes
};

// What opening found out besides the volume itself.
struct OpenReport {
  bool recovered = false;  // an interrupted run of ours was finished first
  std::string recovery;    // one line about it for the user
  // Opened for looking or a dry run: what a pass would refuse the volume for, with the remedies.
  std::vector<std::string> objections;
  // Where the options wanted it: keeps the image open and locked.
  std::shared_ptr<const ImageSource> source;
};

}  // namespace vornalux
