// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <string>

#include "engine/analysis.h"
#include "volume/movers.h"

namespace vornalux {

// The runs. Each analyses first when what it needs is not valid, shows the window as busy from
// beginning to end, and leaves failures of single files to the movers.
class Passes {
 public:
  Passes(Platform& platform, VolumeGeometry& geometry, Analysis& analysis, Movers& movers,
         RunFlags& flags, const RunTarget& target, RunView& view)
      : platform_(platform),
        geometry_(geometry),
        analysis_(analysis),
        movers_(movers),
        flags_(flags),
        target_(target),
        view_(view) {}

  // Makes each fragmented file contiguous, in the order of the fragmented-file lists. False when
  // the volume's figures could not be read; a stop is no failure.
  bool defrag();

 private:
  std::string Caption(const char* doing) const { return doing + target_.Root(); }
  void ShowIdleCaption() { view_.SetCaption("Volume " + target_.drive); }
  void Redraw() { geometry_.ShowVolumeBitmap(target_.Drive(), view_); }

  Platform& platform_;
  VolumeGeometry& geometry_;
  Analysis& analysis_;
  Movers& movers_;
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
