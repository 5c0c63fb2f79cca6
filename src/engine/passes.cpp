// SPDX-License-Identifier: GPL-2.0-or-later
// What the passes share.
#include "engine/passes.h"

namespace vornalux {

// What Optimize and Compact begin with. False when the run ends here.
bool Passes::PrepareClassLists() {
  flags_.StopRequested = False;
  if (!flags_.ClassListsValid) {
    flags_.OptimizeMode = True;
    if (!analysis_.Analyze_This()) {
      flags_.ClassListsValid = False;
      return false;
    }
  }
  flags_.StopRequested = False;
  ShowCaption("Preparing volume ");
  view_.RedrawClusterMap();
  return true;
}

void Passes::EndWithStaleLists() {
  flags_.AnalysisValid = False;
  flags_.ClassListsValid = False;
  ShowIdleCaption();
}

void Passes::DefragmentMasterFileTable() {
  view_.SetCurrentFile(target_.MasterFileTable());
  movers_.DefragmentFileInFront(target_.MasterFileTable(), true);
}

void Passes::RedrawUnlessStopped() {
  if (!flags_.StopRequested) view_.RedrawClusterMap();
}

void Passes::Redraw() { geometry_.ShowVolumeBitmap(target_.Drive(), view_); }

void Passes::ShowCaption(const char* doing) { view_.SetCaption(doing + target_.Root()); }

void Passes::ShowIdleCaption() { view_.SetCaption("Volume " + target_.Root()); }

void Passes::Step() { view_.SetValue(view_.Value() + 1); }

}  // namespace vornalux
