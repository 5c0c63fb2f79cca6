// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/busy_window.h"
#include "engine/passes.h"

namespace vornalux {

// The stop test comes before each entry, so that the phases after a stop move nothing.
void Passes::OptimizePhase(const std::vector<std::string>& paths, Mover mover) {
  for (const std::string& path : paths) {
    run_.platform.desktop.DoEvents();
    if (run_.flags.StopRequested) {
      ShowIdleCaption();
      return;
    }
    run_.view.SetCurrentFile(path);
    if (!path.empty()) (run_.movers.*mover)(path);
    Step();
  }
}

bool Passes::optimizequick() {
  const BusyWindow busy(run_.view);
  if (!PrepareClassLists()) return run_.flags.StopRequested != False;
  const std::vector<std::string>& fragmented = analysis_.lists.FragNames;
  // One step for every slot that the phases go through, empty ones included.
  run_.view.SetRange(0, std::ssize(run_.table.MoveOutFiles.paths) +
                            std::ssize(run_.table.PrefetchFiles.paths) +
                            std::ssize(run_.table.DirsToMove.paths) +
                            std::ssize(run_.table.OptimizeFiles.paths) + std::ssize(fragmented));
  run_.view.SetValue(0);
  record_.Begin(Pass::Optimize);

  OptimizePhase(run_.table.MoveOutFiles.paths, &Movers::MoveWholeFile);
  RedrawUnlessStopped();
  if (run_.target.Ntfs()) {
    // Also after a stop.
    DefragmentMasterFileTable();
    RedrawUnlessStopped();
  }
  BeginPhase("Optimzing volume ");
  OptimizePhase(run_.table.PrefetchFiles.paths, &Movers::PlacePrefetchFile);
  BeginPhase("Optimzing volume ");
  OptimizePhase(run_.table.DirsToMove.paths, &Movers::PlacePrefetchFile);
  RedrawUnlessStopped();
  BeginPhase("Compacting volume ");
  OptimizePhase(run_.table.OptimizeFiles.paths, &Movers::OptimizeFile);
  RedrawUnlessStopped();
  BeginPhase("Defragging volume ");
  OptimizePhase(fragmented, &Movers::DefragmentFile);

  Redraw();
  record_.End();
  EndWithStaleLists();
  return true;
}

}  // namespace vornalux
