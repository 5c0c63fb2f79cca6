// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/platform.h"
#include "volume/debug_trace.h"
#include "volume/extent_reader.h"
#include "volume/run_flags.h"
#include "volume/volume_geometry.h"
#include "volume/work_view.h"

namespace vornalux {

// Why a mover left a file where it was.
enum class NotMoved {
  CannotOpen,
  NoGap,      // none on the volume holds it
  NoGapThen,  // none held it when its turn came; after the run one does
  NoPlace,    // a gap holds it, but none where this mover may put it
  FewPieces,  // the master file table, in front already
  Alignment,
  Refused,
};

struct MoveFailure {
  std::string path;
  NotMoved reason = NotMoved::NoGap;
  ErrorCode code = error::kSuccess;  // of the system, where it refused
  std::int64_t clusters = 0;         // that a gap has to hold; 0 where that could not be read
};

// A file that was put into pieces, or some pieces of it elsewhere.
struct MovedInPieces {
  std::string path;
  NotMoved because = NotMoved::NoGap;  // why it was not moved whole
  ErrorCode code = error::kSuccess;    // of the system, where it refused
};

// What the movers did since the last Reset.
struct MoveStatistics {
  std::int64_t moves = 0;  // requests that moved something
  std::int64_t clusters_moved = 0;
  std::int64_t clusters_in_hand = 0;  // of a move that is going on, so far
  std::int64_t refused = 0;           // requests that the system refused
  std::vector<MoveFailure> failures;
  std::vector<MovedInPieces> in_pieces;
  std::optional<FreeRegions> at_first;  // as the first file to be moved found them

  void Reset() { *this = {}; }
};

// The movers. Each takes a file's full path, reads the current gaps and the file's extents, chooses
// a gap by its own rule and moves the file there. Results are 0, a system error code, or -1 for a
// file that cannot be opened.
class Movers {
 public:
  Movers(Platform& platform, VolumeGeometry& geometry, ExtentReader& extents, const RunFlags& flags,
         const DebugTrace& trace, WorkView& view)
      : platform_(platform),
        geometry_(geometry),
        extents_(extents),
        flags_(flags),
        trace_(trace),
        view_(view) {}

  MoveStatistics statistics;

  // One request to the file system. Every few megabytes the user and the timers get their turn; a
  // stop asks the host to give the move up. Where the progress bar counts clusters, from what it
  // shows when the move begins, it follows.
  ErrorCode MoveClusters(Handle volume, Handle file, std::int64_t starting_vcn, std::uint32_t count,
                         std::int64_t starting_lcn, bool must_finish = false,
                         std::optional<std::int64_t> shown = std::nullopt);

  // How a target must shift so that a shadow copy sees aligned moves: 0 not at all, 1 too small to
  // align, 3 not possible on this cluster size, else 3 + the shift in clusters. A positive distance
  // can also give 2 or less, which asks for the gap to be skipped.
  std::int64_t VssAlignShift(std::int64_t current_lcn, std::int64_t target_lcn,
                             std::int64_t count) const;

  // MVE: out of the way, to the lowest gap above the reserved front that holds it.
  std::int64_t MoveWholeFile(const std::string& path);
  // OPT: forward, to the lowest gap above the reserved front; never back.
  std::int64_t OptimizeFile(const std::string& path);
  // PRF: to the lowest gap below the reserved front.
  std::int64_t PlacePrefetchFile(const std::string& path);
  // DFR: in one piece into the lowest gap that holds it, else in pieces, largest gap first.
  std::int64_t DefragmentFile(const std::string& path);
  // Planned moves of one file, to targets that are all free: clusters that lie from LCN `from` on,
  // holes between them left out, to those from `to` on. All or nothing. What must finish is not
  // given up by a stop. The progress bar counts clusters meanwhile.
  struct Leg {
    std::int32_t from = 0;
    std::int32_t to = 0;
    std::int32_t length = 0;
  };
  enum class Planned { Done, Changed, CannotOpen, Refused, Stopped };
  Planned MovePlanned(const std::string& path, const std::vector<Leg>& legs, bool must_finish);

  // DFR for the master file table: in one piece only when it begins behind the front area, into a
  // gap that begins in it; in pieces when it is in twelve or more.
  std::int64_t DefragmentFileInFront(const std::string& path, bool use_reserved_front);

 private:
  struct Item;
  enum class Attempt { Moved, NextGap, EndSearch };

  bool Begin(std::string_view tag, const std::string& path, Item& item);
  Attempt TryGap(Item& item, const FreeRun& gap, std::int64_t starting_vcn);
  std::int64_t MoveInPieces(Item& item);
  void Enter(const Item& item, ErrorCode result, std::int64_t vcn, std::int64_t count,
             std::int64_t target);
  bool Pinned(const Item& item) const;
  bool TryGaps(Item& item, std::int64_t from, std::int64_t below, std::int64_t starting_vcn,
               bool let_events_happen = false);
  bool NeverAligned(std::int64_t count) const;
  NotMoved WhyNotWhole(const Item& item) const;
  void NoGap(Item& item, const std::string& detail = {});
  void GiveUp(Item& item, NotMoved reason);
  std::int64_t CheckpointClusters() const;
  bool Stopped(ErrorCode result) const;

  Platform& platform_;
  VolumeGeometry& geometry_;
  ExtentReader& extents_;
  const RunFlags& flags_;
  const DebugTrace& trace_;
  WorkView& view_;
};

}  // namespace vornalux
