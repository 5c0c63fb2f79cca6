// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/plan/mend_files.h"

#include <algorithm>
#include <vector>

#include "engine/plan/mending.h"

namespace vornalux::plan {
namespace {

constexpr int kRounds = 16;

std::vector<std::int32_t> FragmentedFiles(const ClusterSpace& space, MendingOrder order) {
  std::vector<std::int32_t> files;
  for (std::int32_t file = 0; file < space.FileCount(); ++file) {
    if (space.IsFragmented(file)) files.push_back(file);
  }
  const auto rank = [&](std::int32_t file) {
    switch (order) {
      case MendingOrder::LargestFirst:
        return -static_cast<double>(space.SizeOf(file));
      case MendingOrder::SmallestFirst:
        return static_cast<double>(space.SizeOf(file));
      case MendingOrder::MostPiecesPerCluster:
        break;
    }
    return -static_cast<double>(space.PiecesOf(file) - 1) / space.SizeOf(file);
  };
  std::stable_sort(files.begin(), files.end(),
                   [&](std::int32_t a, std::int32_t b) { return rank(a) < rank(b); });
  return files;
}

}  // namespace

void MendFiles(ClusterSpace& space, MendingOrder order, std::int64_t limit) {
  Mending mending(space);
  const auto left = [&] { return limit - space.ClustersMoved(); };
  const auto each_file = [&](auto way) {
    bool any = false;
    for (const std::int32_t file : FragmentedFiles(space, order)) {
      space.Checkpoint();
      any |= space.IsFragmented(file) && way(file);
    }
    return any;
  };
  for (int round = 0; round < kRounds; ++round) {
    bool progress = each_file([&](std::int32_t file) {
      return (space.SizeOf(file) <= left() || mending.CostIntoGap(file) <= left()) &&
             mending.IntoGap(file);
    });
    progress |=
        each_file([&](std::int32_t file) { return mending.IntoVacatedPlace(file, left()); });
    mending.LookFarther();
    if (!progress) {
      progress =
          each_file([&](std::int32_t file) { return mending.IntoGatheredGap(file, left()); });
    }
    if (!progress) {
      progress = each_file([&](std::int32_t file) {
        const std::size_t mark = space.Moves().size();
        if (mending.IntoFewerPieces(file) && left() >= 0) return true;
        space.TakeBackTo(mark);
        return false;
      });
    }
    if (!progress) return;
  }
}

}  // namespace vornalux::plan
