// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/analysis.h"
#include "engine/run_record.h"
#include "volume/movers.h"

namespace vornalux {

// The runs. Each analyses first when what it needs is not valid, shows the window as busy from
// beginning to end, and leaves it to the movers to note failures of single files. False when the
// volume's figures could not be read; a stop is no failure.
class Passes {
 public:
  Passes(const RunContext& run, Analysis& analysis, RunRecord& record)
      : run_(run), analysis_(analysis), record_(record) {}

  // Makes each fragmented file contiguous, in the order of the fragmented-file lists.
  bool defrag();

  // Clears the front zone and the MFT zone, places prefetch files and directories in front, pulls
  // the files beyond the optimize area forward, then defragments.
  bool optimizequick();

  // Plans the whole volume, and makes every file contiguous for which there is a way. Moves files
  // that are in one piece as well, where that makes room.
  bool ThoroughDefrag();

  // Gathers directories in front and pulls the files beyond the optimize area forward.
  bool compactquick();

  // Plans the whole volume, and brings all files in one piece to its front, all free space behind
  // them.
  bool ThoroughCompact();

 private:
  using Mover = std::int64_t (Movers::*)(const std::string&);

  void OptimizePhase(const std::vector<std::string>& paths, Mover mover);
  void CompactPhase(const std::vector<std::string>& paths, Mover mover);

  bool PrepareFragmentLists();
  void EndThorough();
  bool PrepareClassLists();
  void EndWithStaleLists();
  void TellUnreadGaps();
  void DefragmentMasterFileTable();
  void RedrawUnlessStopped();
  void Redraw();
  void BeginPhase(const char* doing);
  void ShowIdleCaption();
  void Step();

  const RunContext& run_;
  Analysis& analysis_;
  RunRecord& record_;
};

}  // namespace vornalux
