// SPDX-License-Identifier: GPL-2.0-or-later
// What the passes share.
#include "engine/passes.h"

namespace vornalux {

// What both ways of defragmenting begin with. False when the run ends here.
bool Passes::PrepareFragmentLists() {
  run_.geometry.BeginRun();
  if (run_.flags.AnalysisValid) return true;
  run_.flags.OptimizeMode = False;
  return analysis_.Analyze_This();
}

// What Optimize and Compact begin with. False when the run ends here.
bool Passes::PrepareClassLists() {
  run_.flags.StopRequested = False;
  run_.geometry.BeginRun();
  if (!run_.flags.ClassListsValid) {
    run_.flags.OptimizeMode = True;
    if (!analysis_.Analyze_This()) {
      run_.flags.ClassListsValid = False;
      return false;
    }
  }
  run_.flags.StopRequested = False;
  BeginPhase("Preparing volume ");
  run_.view.RedrawMap(MapLayers::Candidates);
  return true;
}

void Passes::EndWithStaleLists() {
  TellUnreadGaps();
  run_.flags.AnalysisValid = False;
  run_.flags.ClassListsValid = False;
  ShowIdleCaption();
}

// Files were left for want of a gap only because none could be seen.
void Passes::TellUnreadGaps() {
  const auto [answered, unanswered] = run_.geometry.gap_queries;
  if (answered > 0 || unanswered == 0 || run_.flags.StopRequested) return;
  run_.platform.desktop.ShowBox("Error reading the drive information.", kProgramTitle,
                                BoxButtons::Ok, BoxIcon::Critical);
}

void Passes::DefragmentMasterFileTable() {
  run_.view.SetCurrentFile(run_.target.MasterFileTable());
  run_.movers.DefragmentFileInFront(run_.target.MasterFileTable(), true);
}

void Passes::RedrawUnlessStopped() {
  if (!run_.flags.StopRequested) run_.view.RedrawMap(MapLayers::Candidates);
}

void Passes::Redraw() { run_.view.RedrawMap(MapLayers::Volume); }

// What others have done to the volume meanwhile is to be seen by what comes now.
void Passes::BeginPhase(const char* doing) {
  run_.view.SetCaption(doing + run_.target.Root());
  run_.geometry.bitmap.Distrust();
}

void Passes::ShowIdleCaption() { run_.view.SetCaption("Volume " + run_.target.Root()); }

void Passes::Step() { run_.view.SetValue(run_.view.Value() + 1); }

}  // namespace vornalux
