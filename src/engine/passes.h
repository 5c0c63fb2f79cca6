// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <string>

#include "engine/analysis.h"
#include "volume/movers.h"

namespace vornalux {

// The runs. Each analyses first when what it needs is not valid, shows the window as busy from
// beginning to end, and leaves it to the movers to note failures of single files. False when the
// volume's figures could not be read; a stop is no failure.
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

  bool PrepareClassLists();
  void OptimizePhase(const std::vector<std::string>& paths, Mover mover);
  void CompactPhase(const std::vector<std::string>& paths, Mover mover);
  void RedrawUnlessStopped();
  void DefragmentMasterFileTable();
  void EndWithStaleLists();

  void ShowCaption(const char* doing) { view_.SetCaption(doing + target_.Root()); }
  void ShowIdleCaption() { view_.SetCaption("Volume " + target_.Root()); }
  void Step() { view_.SetValue(view_.Value() + 1); }
  void Redraw() { geometry_.ShowVolumeBitmap(target_.Drive(), view_); }

  Platform& platform_;
  VolumeGeometry& geometry_;
  Analysis& analysis_;
  Movers& movers_;
  FileTable& table_;
  RunFlags& flags_;
  const RunTarget& target_;
  RunView& view_;
};

// Shows the window as busy for as long as it lives.
class BusyWindow {
 public:
  explicit BusyWindow(RunView& view) : view_(view) { view_.EnterBusy(); }
  ~BusyWindow() { view_.EnterIdle(); }
  BusyWindow(const BusyWindow&) = delete;
  BusyWindow& operator=(const BusyWindow&) = delete;

 private:
  RunView& view_;
};

}  // namespace vornalux
