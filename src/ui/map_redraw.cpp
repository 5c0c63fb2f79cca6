// SPDX-License-Identifier: GPL-2.0-or-later
#include "ui/map_redraw.h"

#include <utility>

namespace vornalux {
namespace {

constexpr int kMostDrawings = 10;

const char* TextOf(BitmapResult result) {
  switch (result) {
    case BitmapResult::Read:
      break;
    case BitmapResult::CannotOpen:
      return "Error opening the drive.\r\nClose some applications and try again.";
    case BitmapResult::CannotRead:
      return "Error reading the drive information.";
  }
  return "";
}

}  // namespace

bool MapRedraw::Redraw(MapLayers layers) {
  bool good = false;
  // A window that was resized in the meantime has the whole drawn once more; one that never rests
  // gets it stretched.
  for (int drawn = 0; drawn == 0 || (good && map_.NeedsRedraw() && drawn < kMostDrawings);
       ++drawn) {
    good = layers == MapLayers::Volume ? DrawVolume() : DrawWithCandidates();
  }
  return good;
}

bool MapRedraw::DrawVolume() {
  // A drawing inside this one has memory of its own.
  VolumeBitmapImage bitmap = std::exchange(spare_, {});
  const BitmapResult result = engine_.geometry.ReadVolumeBitmap(target_.Drive(), bitmap);
  if (result != BitmapResult::Read) {
    desktop_.ShowBox(TextOf(result), kProgramTitle, BoxButtons::Ok, BoxIcon::Critical);
    // The user knows.
    engine_.geometry.gap_queries = {};
    return false;
  }
  const VolumeConstants& constants = engine_.geometry.constants;
  map_.DrawVolume({.bitmap = bitmap,
                   .zone_start = constants.MftZoneStart,
                   .zone_end = constants.MftZoneEnd,
                   .master_file_table = target_.Ntfs() ? target_.MasterFileTable() : ""});
  spare_ = std::move(bitmap);
  return true;
}

bool MapRedraw::DrawWithCandidates() {
  redraw_glyph_.fore_colour = activity_colour::kMoving;
  desktop_.DoEvents();
  const bool good = DrawVolume();
  if (flags_.ClassListsValid) {
    const FileTable& table = engine_.table;
    map_.DrawCandidates(table.PrefetchFiles.paths, map_colour::kSystemArea, true);
    map_.DrawCandidates(table.DirsToMove.paths, map_colour::kSystemArea, true);
    map_.DrawCandidates(table.OptimizeFiles.paths, map_colour::kOptimize, true);
  }
  map_.DrawCandidates(engine_.analysis.lists.FragNames, map_colour::kDefrag, false);
  map_.Refresh();
  map_.Refresh();
  redraw_glyph_.fore_colour = activity_colour::kResting;
  desktop_.DoEvents();
  return good;
}

}  // namespace vornalux
