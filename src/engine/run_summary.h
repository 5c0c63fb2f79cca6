// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "engine/pass.h"
#include "engine/plan/plan.h"
#include "engine/run_view.h"
#include "volume/free_runs.h"
#include "volume/movers.h"
#include "volume/volume_geometry.h"

namespace vornalux {

// What the status bar tells of a volume.
struct RunFigures {
  std::int64_t files = 0;
  std::int64_t dirs = 0;
  std::int64_t free_clusters = 0;
  std::int64_t total_clusters = 0;
  std::int64_t fragmented = 0;    // files counted as fragmented
  std::int64_t fragments = 0;     // of all included items with more than one
  std::int64_t max_per_file = 0;  // largest fragment count
};

void ShowFigures(RunView& view, const RunFigures& figures);

// Why a file is still in pieces after a run. One reason each, true of the volume as it is then.
enum class WhyFragmented {
  LeftOut,    // by the user's list of extensions
  Locked,     // could not be opened
  Holes,      // its clusters are in one piece, and holes are what is counted
  Immovable,  // the system refuses to move it
  InPieces,   // the pass moved it in pieces, because it could not move it whole
  Alignment,  // no gap allowed an aligned move
  NoGap,      // the largest gap does not hold it
  NoGapThen,  // none held it when its turn came; now one does
  NoPlace,    // a gap holds it, but none where the pass may put it
  Stopped,    // the run was stopped before
  NotTried,   // it lies where the pass moves nothing
  Changed,    // it was moved whole, and is in pieces all the same
  // Of a planned run, see plan::Obstacle:
  Blocked,
  Space,
  Limit,
  NoOrder,
};
inline constexpr std::size_t kReasons = static_cast<std::size_t>(WhyFragmented::NoOrder) + 1;

struct StillFragmented {
  std::string path;
  std::int64_t fragments = 0;
  std::int64_t clusters = 0;  // that a gap has to have to hold it
  std::int64_t room = 0;      // clusters; of Blocked: the longest stretch without what cannot be
                              // moved, of Space: all that are free
  WhyFragmented why = WhyFragmented::Changed;
  NotMoved because = NotMoved::NoGap;  // of InPieces: why not whole
  ErrorCode code = error::kSuccess;    // of the system, where it refused
};

// What a run planned before it moved anything.
struct PlanFigures {
  std::int64_t moves = 0;  // requests; of a file with holes the system may be asked in more
  std::int64_t clusters_moved = 0;
  std::int64_t least_to_move = 0;  // clusters; only where compacting was planned
  plan::Figures before;            // of what the plan may move
  plan::Figures after;
  std::int64_t new_plans = 0;  // made since, where one could not be carried out
};

// What a planned run would make of what another pass has left in pieces.
struct ThoroughHelp {
  std::int64_t files = 0;  // of those that are still fragmented: into one piece
  std::int64_t clusters_moved = 0;

  friend bool operator==(const ThoroughHelp&, const ThoroughHelp&) = default;
};

// What came of a run.
struct RunSummary {
  Pass pass = Pass::Defrag;
  bool stopped = false;
  std::int64_t cluster_bytes = 0;
  RunFigures before;
  std::optional<RunFigures> after;  // missing when the volume did not answer any more
  std::optional<FreeRegions> regions_before;
  std::optional<FreeRegions> regions_after;
  // With what the figures leave out: files that are excluded, or locked by now. By number of
  // fragments, then size, both descending.
  std::vector<StillFragmented> still_fragmented;
  std::optional<PlanFigures> plan;   // of a planned run
  std::optional<ThoroughHelp> help;  // where somebody asked for it, and it would help
  std::int64_t moves = 0;
  std::int64_t clusters_moved = 0;
  std::chrono::milliseconds duration{0};  // from the end of the analysis on

  std::int64_t BytesMoved() const { return clusters_moved * cluster_bytes; }
};

// Bytes moved in a second; nothing where none were, or no time has passed.
std::optional<std::int64_t> BytesPerSecond(const RunSummary& summary);

// What decides about a file's reason, besides its size.
struct RunEnd {
  bool joins_all = false;  // the pass takes every fragmented file
  bool stopped = false;
  std::optional<std::int64_t> largest_gap;  // clusters; missing when it could not be read
  std::int64_t free = 0;                    // clusters
};
// What the last plan left in pieces.
struct LeftByPlan {
  std::string path;
  plan::Obstacle obstacle = plan::Obstacle::NotFound;
  std::int64_t clusters = 0;           // of the file, holes left out
  std::int64_t longest_unblocked = 0;  // clusters
};
struct FileStory {
  bool excluded = false;
  bool one_piece = false;                    // but for holes
  const MoveFailure* failure = nullptr;      // the last one; null for none
  const MovedInPieces* in_pieces = nullptr;  // null when it was not
  const LeftByPlan* left = nullptr;          // null when it was not
};

// Sets the file's reason, and what belongs to it.
void Explain(StillFragmented& file, const FileStory& story, const RunEnd& end);

void SortByFragments(std::vector<StillFragmented>& files);

}  // namespace vornalux
