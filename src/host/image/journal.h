// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include "host/image/block_device.h"

namespace vornalux {

// What a journal belongs to. A journal is used only on the volume that it was made for.
struct VolumeIdentity {
  std::array<char, 8> file_system{};  // "NTFS", "FAT"
  std::uint64_t serial = 0;
  std::uint64_t volume_size = 0;    // bytes
  std::uint64_t volume_offset = 0;  // bytes, inside the image or disk

  friend bool operator==(const VolumeIdentity&, const VolumeIdentity&) = default;
};

// Sectors that must become durable together.
struct SectorRun {
  std::uint64_t first_sector = 0;     // of 512 bytes
  std::vector<std::uint8_t> content;  // a multiple of 512
};

enum class JournalState {
  Empty,     // nothing of ours: no journal, or one that never got to be one
  Idle,      // a run was interrupted between commits: only the dirty flag is left to restore
  Replayed,  // a run was interrupted inside a commit, which has now been finished
  Foreign,   // belongs to another volume, or is no journal of ours
  Conflict,  // ours, but the volume was changed since by somebody else
};

struct JournalFinding {
  JournalState state = JournalState::Empty;
  std::string detail;     // what and where, for the user
  std::error_code error;  // an I/O error while looking; state is then meaningless
};

// A redo journal in a file beside the volume. While it exists with a valid header, a run of ours is
// working on the volume or was interrupted on it.
class RedoJournal {
 public:
  // store grows by writing and is not owned; volume is the device that Record() refers to.
  RedoJournal(BlockDevice& store, BlockDevice& volume);

  // Looks at what an earlier run left; finishes its commit when there is one.
  JournalFinding Recover(const VolumeIdentity& identity);

  // Writes and flushes the header: from here on an interruption is known as ours.
  std::error_code Begin(const VolumeIdentity& identity);

  // Writes the runs, in ascending order without overlap, with the checksums of what they replace,
  // and flushes. From here on the commit will happen, whatever comes between.
  std::error_code Record(const std::vector<SectorRun>& runs);

  // The recorded runs are durable on the volume: forgets them, durably.
  std::error_code Drop();

 private:
  BlockDevice& store_;
  BlockDevice& volume_;
  std::uint64_t sequence_ = 0;
};

}  // namespace vornalux
