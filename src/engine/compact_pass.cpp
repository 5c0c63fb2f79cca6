// SPDX-License-Identifier: GPL-2.0-or-later
#include <limits>

#include "engine/busy_window.h"
#include "engine/passes.h"

namespace vornalux {

// The stop test comes after each move: the entry in hand is always moved first.
void Passes::CompactPhase(const std::vector<std::string>& paths, Mover mover) {
  for (const std::string& path : paths) {
    view_.SetCurrentFile(path);
    if (!path.empty()) (movers_.*mover)(path);
    platform_.desktop.DoEvents();
    if (flags_.StopRequested) {
      ShowIdleCaption();
      return;
    }
    if (view_.RedrawsAfterEachFile()) Redraw();
    Step();
  }
}

bool Passes::compactquick() {
  const BusyWindow busy(view_);
  if (!PrepareClassLists()) return flags_.StopRequested != False;
  view_.SetRange(0, table_.OptimizeFiles.UpperBound() + table_.DirsToMove.UpperBound() +
                        table_.PrefetchFiles.UpperBound());
  view_.SetValue(0);

  ShowCaption("Optimzing volume ");
  CompactPhase(table_.DirsToMove.paths, &Movers::PlacePrefetchFile);
  RedrawUnlessStopped();
  ShowCaption("Compacting volume ");
  CompactPhase(table_.OptimizeFiles.paths, &Movers::OptimizeFile);
  // The prefetch files count in the range but are not handled.
  if (!flags_.StopRequested) view_.SetValue(std::numeric_limits<std::int64_t>::max());

  Redraw();
  // The redraw has just computed it anew; until the next one no file counts as lying in front.
  geometry_.constants.ReservedFront = 0;
  EndWithStaleLists();
  return true;
}

}  // namespace vornalux
