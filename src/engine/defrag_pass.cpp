// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/busy_window.h"
#include "engine/passes.h"

namespace vornalux {

bool Passes::defrag() {
  const BusyWindow busy(view_);
  if (!flags_.AnalysisValid) {
    flags_.OptimizeMode = False;
    if (!analysis_.Analyze_This()) return flags_.StopRequested != False;
  }
  const std::vector<std::string>& names = analysis_.lists.FragNames;
  view_.SetRange(0, std::ssize(names));
  view_.SetValue(0);
  flags_.StopRequested = False;
  view_.SetCurrentFile("");
  ShowCaption("Defragmenting volume ");

  if (target_.Ntfs()) DefragmentMasterFileTable();
  for (const std::string& path : names) {
    platform_.desktop.DoEvents();
    view_.SetCurrentFile(path);
    if (!path.empty()) movers_.DefragmentFile(path);
    platform_.desktop.DoEvents();
    if (flags_.StopRequested) {
      view_.SetValue(0);
      view_.SetCurrentFile("");
      ShowIdleCaption();
      break;
    }
    if (view_.RedrawsAfterEachFile()) Redraw();
    Step();
  }
  Redraw();
  flags_.AnalysisValid = False;
  ShowIdleCaption();
  return true;
}

}  // namespace vornalux
