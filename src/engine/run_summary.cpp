// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/run_summary.h"

#include <algorithm>
#include <limits>
#include <tuple>

namespace vornalux {
namespace {

WhyFragmented Reason(const LeftByPlan& left, const RunEnd& end) {
  switch (left.obstacle) {
    case plan::Obstacle::Blocked:
      return WhyFragmented::Blocked;
    case plan::Obstacle::Space:
      // Somebody may have freed some since.
      if (left.clusters > end.free) return WhyFragmented::Space;
      break;
    case plan::Obstacle::Limit:
      return WhyFragmented::Limit;
    case plan::Obstacle::NotFound:
      break;
  }
  return WhyFragmented::NoOrder;
}

WhyFragmented Reason(const StillFragmented& file, const FileStory& story, const RunEnd& end) {
  const auto failed = [&story](NotMoved reason) {
    return story.failure != nullptr && story.failure->reason == reason;
  };
  if (story.excluded) return WhyFragmented::LeftOut;
  if (failed(NotMoved::CannotOpen)) return WhyFragmented::Locked;
  if (story.one_piece) return WhyFragmented::Holes;
  if (failed(NotMoved::Refused)) return WhyFragmented::Immovable;
  if (story.in_pieces != nullptr) return WhyFragmented::InPieces;
  if (failed(NotMoved::Alignment)) return WhyFragmented::Alignment;
  const bool too_large = end.largest_gap && file.clusters > *end.largest_gap;
  if (story.failure != nullptr && too_large) return WhyFragmented::NoGap;
  // A step that looks in an area comes before the one that takes all fragmented files.
  const bool last_word = story.failure != nullptr && !(end.joins_all && failed(NotMoved::NoPlace));
  if (end.stopped && !last_word) return WhyFragmented::Stopped;
  if (story.failure != nullptr) {
    return failed(NotMoved::NoPlace) ? WhyFragmented::NoPlace : WhyFragmented::NoGapThen;
  }
  if (story.left != nullptr) return Reason(*story.left, end);
  if (end.joins_all) return WhyFragmented::Changed;
  return too_large ? WhyFragmented::NoGap : WhyFragmented::NotTried;
}

}  // namespace

void ShowFigures(RunView& view, const RunFigures& figures) {
  const std::int64_t percent = PercentFree(static_cast<std::int32_t>(figures.free_clusters),
                                           static_cast<std::int32_t>(figures.total_clusters));
  const std::string panels[] = {
      "files: " + std::to_string(figures.files),
      "dirs: " + std::to_string(figures.dirs),
      "free: " + std::to_string(figures.free_clusters) + " (" + std::to_string(percent) + "%)",
      "fragmented: " + std::to_string(figures.fragmented),
      "fragments: " + std::to_string(figures.fragments),
      "max/file: " + std::to_string(figures.max_per_file),
  };
  int index = 0;
  for (const std::string& panel : panels) view.SetStatusPanel(index++, panel);
}

std::optional<std::int64_t> BytesPerSecond(const RunSummary& summary) {
  if (summary.BytesMoved() <= 0 || summary.duration.count() <= 0) return std::nullopt;
  const double rate = static_cast<double>(summary.BytesMoved()) * 1000 /
                      static_cast<double>(summary.duration.count());
  if (rate >= static_cast<double>(std::numeric_limits<std::int64_t>::max())) return std::nullopt;
  return static_cast<std::int64_t>(rate);
}

void Explain(StillFragmented& file, const FileStory& story, const RunEnd& end) {
  file.why = Reason(file, story, end);
  if (file.why == WhyFragmented::InPieces) {
    file.because = story.in_pieces->because;
    file.code = story.in_pieces->code;
  } else if (file.why == WhyFragmented::Locked || file.why == WhyFragmented::Immovable) {
    file.code = story.failure->code;
  } else if (file.why == WhyFragmented::Blocked || file.why == WhyFragmented::Space) {
    file.clusters = story.left->clusters;
    file.room = file.why == WhyFragmented::Space ? end.free : story.left->longest_unblocked;
  }
}

void SortByFragments(std::vector<StillFragmented>& files) {
  std::ranges::sort(files, [](const StillFragmented& a, const StillFragmented& b) {
    return std::tie(b.fragments, b.clusters, a.path) < std::tie(a.fragments, a.clusters, b.path);
  });
}

}  // namespace vornalux
