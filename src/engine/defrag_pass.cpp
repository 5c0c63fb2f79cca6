// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/busy_window.h"
#include "engine/passes.h"

namespace vornalux {

bool Passes::defrag() {
  const BusyWindow busy(run_.view);
  if (!PrepareFragmentLists()) return run_.flags.StopRequested != False;
  const std::vector<std::string>& names = analysis_.lists.FragNames;
  run_.view.SetRange(0, std::ssize(names));
  run_.view.SetValue(0);
  run_.flags.StopRequested = False;
  run_.view.SetCurrentFile("");
  BeginPhase("Defragmenting volume ");
  record_.Begin(Pass::Defrag);

  if (run_.target.Ntfs() && run_.target.files.empty()) DefragmentMasterFileTable();
  for (const std::string& path : names) {
    run_.platform.desktop.DoEvents();
    run_.view.SetCurrentFile(path);
    if (!path.empty()) run_.movers.DefragmentFile(path);
    run_.platform.desktop.DoEvents();
    if (run_.flags.StopRequested) {
      run_.view.SetValue(0);
      run_.view.SetCurrentFile("");
      ShowIdleCaption();
      break;
    }
    if (run_.view.RedrawsAfterEachFile()) Redraw();
    Step();
  }
  Redraw();
  TellUnreadGaps();
  record_.End();
  run_.flags.AnalysisValid = False;
  ShowIdleCaption();
  return true;
}

}  // namespace vornalux
