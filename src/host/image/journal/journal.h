// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include "host/image/device/block_device.h"
#include "host/image/journal/sector_run.h"
#include "host/image/journal/volume_identity.h"

namespace vornalux {

namespace journal_format {
struct RecordHeader;
}

enum class JournalState {
  Empty,     // nothing of ours has reached the volume
  Idle,      // a run was interrupted between commits: only the dirty flag is left to restore
  Pending,   // a run was interrupted inside a commit, which can be finished
  Replayed,  // a run was interrupted inside a commit, which has now been finished
  Unclear,   // nothing of it is on this volume, though perhaps on another one that is just like it
  Foreign,   // belongs to another volume, or is no journal of ours
  Newer,     // a run of a newer version of the program left it, which alone can read it
  Conflict,  // the volume is not as the interrupted run left it
};

struct JournalFinding {
  JournalState state = JournalState::Empty;
  std::string detail;     // what and where, for the user
  std::error_code error;  // an I/O error while looking; state is then meaningless
};

// A redo journal in a file beside the volume. While it exists with a valid header, a run of ours is
// working on the volume or was interrupted on it. The volume's own content has to prove that it is
// the one that the run left, and as the run left it: by the sectors that the last commits wrote,
// the dirty mark among them, and by the file data that was copied for the commit in progress.
class RedoJournal {
 public:
  // store grows by writing and is not owned; volume is the device that Record() refers to.
  RedoJournal(BlockDevice& store, BlockDevice& volume);

  // Looks at what an earlier run left, and changes nothing.
  JournalFinding Judge(const VolumeIdentity& identity);

  // The same, and finishes the commit that is pending: Replayed in place of Pending.
  JournalFinding Recover(const VolumeIdentity& identity);

  // Writes and flushes the header: from here on an interruption is known as ours. still: ranges in
  // which file data never lies, so that only commits change them; proofs are taken from these.
  std::error_code Begin(const VolumeIdentity& identity, std::vector<SectorRange> still = {});

  // Goes on with a journal that Recover() found Idle or Replayed.
  std::error_code Continue();

  // Writes the runs, in ascending order without overlap, with the checksums of what they replace,
  // and flushes. From here on the commit will happen, whatever comes between. The runs recorded
  // before must be durable on the volume. copies: the data that the commit relies on, which is
  // durable and apart from the runs.
  std::error_code Record(const std::vector<SectorRun>& runs,
                         const std::vector<CopiedRange>& copies = {});

  // To be called once the recorded runs are durable on the volume: marks the record as done,
  // durably.
  std::error_code Settle();

 private:
  std::error_code FindRoom(journal_format::RecordHeader& header);
  void SampleStillSectors();
  std::error_code UpdateStillSum(const std::vector<SectorRun>& runs);
  void UpdateProof(const std::vector<SectorRun>& runs);
  // What the journal says once the present commit is done.
  std::array<std::uint8_t, 512> ProofSector() const;
  bool StaysPut(std::uint64_t sector) const;

  BlockDevice& store_;
  BlockDevice& volume_;
  std::uint64_t sequence_ = 0;
  std::uint64_t live_begin_ = 0;  // of the body that would be needed if the power went now
  std::uint64_t live_end_ = 0;    // 0: none
  std::vector<SectorRange> still_;
  // Of all still sectors as the last commit left them; nothing where they could not be read.
  std::optional<std::uint64_t> still_sum_;
  // Checksums of sectors as the last commit left them: those of the first commit, which sets the
  // dirty mark, stay among them.
  std::map<std::uint64_t, std::uint32_t> marks_;
  std::map<std::uint64_t, std::uint32_t> proof_;
};

}  // namespace vornalux
