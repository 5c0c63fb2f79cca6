// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/analysis.h"
#include "volume/movers.h"

namespace vornalux {

// The runs. Each analyses first when what it needs is not valid, shows the window as busy from
// beginning to end, and leaves failures of single files to the movers. False when the volume's
// figures could not be read; a stop is no failure.
class Passes {
 public:
  Passes(Platform& platform, VolumeGeometry& geometry, Analysis& analysis, Movers& movers,
         FileTable& table, RunFlags& flags, const RunTarget& target, RunView& view)
      : platform_(platform),
        geometry_(geometry),
        analysis_(analysis),
        movers_(movers),
        table_(table),
        flags_(flags),
        target_(target),
        view_(view) {}

  // Makes each fragmented file contiguous, in the order of the fragmented-file lists.
  bool defrag();

  // Clears the front zone and the MFT zone, places prefetch files and directories in front, pulls
  // the files beyond the optimize area forward, then defragments.
  bool optimizequick();

  // Gathers directories in front and pulls the files beyond the optimize area forward.
  bool compactquick();

 private:
  using Mover = std::int64_t (Movers::*)(const std::string&);

  void OptimizePhase(const std::vector<std::string>& paths, Mover mover);
  void CompactPhase(const std::vector<std::string>& paths, Mover mover);

  bool PrepareClassLists();
  void EndWithStaleLists();
  void DefragmentMasterFileTable();
  void RedrawUnlessStopped();
  void Redraw();
  void ShowCaption(const char* doing);
  void ShowIdleCaption();
  void Step();

  Platform& platform_;
  VolumeGeometry& geometry_;
  Analysis& analysis_;
  Movers& movers_;
  FileTable& table_;
  RunFlags& flags_;
  const RunTarget& target_;
  RunView& view_;
};

}  // namespace vornalux
