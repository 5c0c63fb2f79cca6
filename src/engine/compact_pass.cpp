// SPDX-License-Identifier: GPL-2.0-or-later
#include <limits>

#include "engine/busy_window.h"
#include "engine/passes.h"

namespace vornalux {

// The stop test comes after each move: the entry in hand is always moved first.
void Passes::CompactPhase(const std::vector<std::string>& paths, Mover mover) {
  for (const std::string& path : paths) {
    run_.view.SetCurrentFile(path);
    if (!path.empty()) (run_.movers.*mover)(path);
    run_.platform.desktop.DoEvents();
    if (run_.flags.StopRequested) {
      ShowIdleCaption();
      return;
    }
    if (run_.view.RedrawsAfterEachFile()) Redraw();
    Step();
  }
}

bool Passes::compactquick() {
  const BusyWindow busy(run_.view);
  if (!PrepareClassLists()) return run_.flags.StopRequested != False;
  run_.view.SetRange(0, run_.table.OptimizeFiles.UpperBound() + run_.table.DirsToMove.UpperBound() +
                            run_.table.PrefetchFiles.UpperBound());
  run_.view.SetValue(0);
  record_.Begin(Pass::Compact);

  BeginPhase("Optimzing volume ");
  CompactPhase(run_.table.DirsToMove.paths, &Movers::PlacePrefetchFile);
  RedrawUnlessStopped();
  BeginPhase("Compacting volume ");
  CompactPhase(run_.table.OptimizeFiles.paths, &Movers::OptimizeFile);
  // The prefetch files count in the range but are not handled.
  if (!run_.flags.StopRequested) run_.view.SetValue(std::numeric_limits<std::int64_t>::max());

  Redraw();
  record_.End();
  // The redraw has just computed it anew; until the next one no file counts as lying in front.
  run_.geometry.constants.ReservedFront = 0;
  EndWithStaleLists();
  return true;
}

}  // namespace vornalux
