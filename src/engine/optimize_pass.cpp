// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/busy_window.h"
#include "engine/passes.h"

namespace vornalux {

// The stop test comes before each entry, so that the phases after a stop move nothing.
void Passes::OptimizePhase(const std::vector<std::string>& paths, Mover mover) {
  for (const std::string& path : paths) {
    platform_.desktop.DoEvents();
    if (flags_.StopRequested) {
      ShowIdleCaption();
      return;
    }
    view_.SetCurrentFile(path);
    if (!path.empty()) (movers_.*mover)(path);
    Step();
  }
}

bool Passes::optimizequick() {
  const BusyWindow busy(view_);
  if (!PrepareClassLists()) return flags_.StopRequested != False;
  const std::vector<std::string>& fragmented = analysis_.lists.FragNames;
  // One step for every slot that the phases go through, empty ones included.
  view_.SetRange(0, std::ssize(table_.MoveOutFiles.paths) + std::ssize(table_.PrefetchFiles.paths) +
                        std::ssize(table_.DirsToMove.paths) +
                        std::ssize(table_.OptimizeFiles.paths) + std::ssize(fragmented));
  view_.SetValue(0);

  OptimizePhase(table_.MoveOutFiles.paths, &Movers::MoveWholeFile);
  RedrawUnlessStopped();
  if (target_.Ntfs()) {
    // Also after a stop.
    DefragmentMasterFileTable();
    RedrawUnlessStopped();
  }
  ShowCaption("Optimzing volume ");
  OptimizePhase(table_.PrefetchFiles.paths, &Movers::PlacePrefetchFile);
  ShowCaption("Optimzing volume ");
  OptimizePhase(table_.DirsToMove.paths, &Movers::PlacePrefetchFile);
  RedrawUnlessStopped();
  ShowCaption("Compacting volume ");
  OptimizePhase(table_.OptimizeFiles.paths, &Movers::OptimizeFile);
  RedrawUnlessStopped();
  ShowCaption("Defragging volume ");
  OptimizePhase(fragmented, &Movers::DefragmentFile);

  Redraw();
  EndWithStaleLists();
  return true;
}

}  // namespace vornalux
