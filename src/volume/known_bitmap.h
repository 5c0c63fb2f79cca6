// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <vector>

#include "platform/platform.h"
#include "volume/extent_reader.h"
#include "volume/gap_index.h"

namespace vornalux {

// What is known of the bitmap of the selected volume, kept true by reading as little as will do.
//
// Where the system can tell which pieces have changed, those are read again. Elsewhere others may
// use and free clusters at any time: each look reads one more piece, in turn; a place that was
// chosen is read again before it is relied upon; moves of our own are entered; and all is read
// again when a phase begins and when a target turns out to be taken. So a volume that nobody else
// writes to is known as if it were read whole each time, space that others take is noticed before
// it is asked for, and space that they free no later than after as many looks as the bitmap has
// pieces.
class KnownBitmap {
 public:
  // volume: the handle of the one that is selected, whichever that is; may change at each event.
  KnownBitmap(Platform& platform, const Handle& volume) : platform_(platform), volume_(volume) {}

  const GapIndex& Gaps() const { return gaps_; }
  // 0 when nothing could be read.
  std::int32_t TotalClusters() const { return total_; }
  // False: it could not be read to its end, and what lies beyond counts as in use.
  bool Whole() const { return total_ > 0 && end_ == total_; }

  // Brings it up to date, with a word for the user in front of each piece that is read, and at
  // least one.
  void Look() { Update(false, true); }
  // Reads all of it, if it is not known what changed.
  void LookAtAll(bool let_events_happen) { Update(true, let_events_happen); }
  // The next look reads all of it; or so it does where others write.
  void Forget() { volume_known_ = kInvalidHandle; }
  void Distrust() { distrusted_ = true; }

  // Looks again at clusters that are about to be relied upon. False: something is not as it was
  // known, be it there or elsewhere in those pieces.
  bool StillSo(std::int64_t lcn, std::int64_t count);
  // Clusters [vcn, vcn + count) of a file that lay so now lie at target, its holes left out.
  void EnterMove(const ExtentRecord& before, std::int64_t vcn, std::int64_t count,
                 std::int64_t target);
  // A move to that place has failed.
  void EnterRefusal(std::int64_t lcn, std::int64_t count);

 private:
  enum class Piece { AsKnown, Changed, NotRead, OfAnotherSize };

  bool OthersWrite() const { return mark_ == 0; }
  void Update(bool all, bool let_events_happen);
  void ReadAll(bool let_events_happen);
  // From where reading ended to the end of the volume, or as far as it goes.
  void ReadOn(bool let_events_happen);
  // Those that the system says have changed. False: it can't say.
  bool ReadChanges();
  Piece ReadPiece(std::int64_t lcn);
  // False when something is not as it was known, or no longer known.
  bool Reread(std::int64_t lcn);
  void CutOff(std::int64_t end);
  std::uint32_t& LookedAt(std::int64_t lcn) {
    return looked_at_[static_cast<std::size_t>(lcn / kBitmapChunkClusters)];
  }

  Platform& platform_;
  const Handle& volume_;
  GapIndex gaps_;
  BitmapChunk chunk_;
  Handle volume_known_ = kInvalidHandle;  // that all this is about
  std::int32_t total_ = 0;
  std::int64_t end_ = 0;  // clusters from the first on that are known
  bool distrusted_ = false;
  std::uint64_t mark_ = 0;                // of the system, where it can tell what changed
  std::vector<std::int64_t> changes_;     // their LCNs
  std::int64_t turn_ = 0;                 // the LCN of the piece that the next look reads
  std::vector<std::uint32_t> looked_at_;  // the look at which each piece was read
  std::uint32_t look_ = 0;
};

}  // namespace vornalux
