// SPDX-License-Identifier: GPL-2.0-or-later
#include "engine/summary_text.h"

#include <algorithm>
#include <array>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "engine/pass_table.h"
#include "text/quantity_text.h"
#include "text/trimmed.h"

namespace vornalux {
namespace {

constexpr const char* kThoroughOnWindows = "Thorough (/t)";
constexpr const char* kRefusedWhole = "the system refuses to move it whole: ";

std::string PiecesText(const StillFragmented& file, const std::string& size,
                       const SystemText& system) {
  const std::string moved = "moved in pieces: ";
  switch (file.because) {
    case NotMoved::Refused:
      return moved + kRefusedWhole + CodeText(file.code, system);
    case NotMoved::Alignment:
      return moved + "no gap allowed an aligned move";
    case NotMoved::CannotOpen:
    case NotMoved::NoGap:
    case NotMoved::NoGapThen:
    case NotMoved::NoPlace:
    case NotMoved::FewPieces:
      break;
  }
  return moved + "no gap held its " + size;
}

std::string WithCode(WhyFragmented why, ErrorCode code, const SystemText& system) {
  const std::string text = ReasonText(why);
  return code == error::kSuccess ? text : text + ": " + CodeText(code, system);
}

// Both sizes in bytes, or in clusters where that would not show which is larger.
std::string NeedsText(const StillFragmented& file, const RunSummary& summary,
                      const std::string& room) {
  std::string needed = ByteText(file.clusters * summary.cluster_bytes);
  std::string there = ByteText(file.room * summary.cluster_bytes);
  if (needed == there) {
    needed = Grouped(file.clusters) + " clusters";
    there = Grouped(file.room) + " clusters";
  }
  return "needs " + needed + " in one piece, " + room + there;
}

// A name may hold what would begin a line of its own.
std::string OnOneLine(std::string path) {
  std::ranges::replace_if(
      path, [](unsigned char c) { return c < ' ' || c == 0x7F; }, '?');
  return path;
}

constexpr std::size_t kLabelColumns = 24;
constexpr std::size_t kNumberColumns = 14;

std::string Padded(const std::string& text, std::size_t columns) {
  return std::string(columns - std::min(columns, text.size()), ' ');
}

void AddRow(std::string& report, const std::string& label, const std::string& before,
            const std::string& after) {
  report += label + Padded(label, kLabelColumns) + Padded(before, kNumberColumns) + before +
            Padded(after, kNumberColumns) + after + "\r\n";
}

void AddFigures(std::string& report, const RunSummary& summary) {
  struct Row {
    const char* label;
    std::int64_t RunFigures::*figure;
  };
  constexpr Row kRows[] = {{"Files", &RunFigures::files},
                           {"Folders", &RunFigures::dirs},
                           {"Fragmented", &RunFigures::fragmented},
                           {"Fragments", &RunFigures::fragments},
                           {"Most fragments of one", &RunFigures::max_per_file},
                           {"Free clusters", &RunFigures::free_clusters}};
  AddRow(report, "", "before", "after");
  for (const Row& row : kRows) {
    AddRow(report, row.label, Grouped(summary.before.*row.figure),
           summary.after ? Grouped((*summary.after).*row.figure) : "-");
  }
  const auto regions = [&](const char* label, auto text) {
    const auto of = [&](const std::optional<FreeRegions>& side) {
      return side ? text(*side) : std::string("-");
    };
    AddRow(report, label, of(summary.regions_before), of(summary.regions_after));
  };
  regions("Free regions", [](const FreeRegions& side) { return Grouped(side.count); });
  regions("Largest gap", [&](const FreeRegions& side) {
    return ByteText(side.Largest() * summary.cluster_bytes);
  });
  for (const auto& [label, side] : {std::pair("Largest gaps before: ", &summary.regions_before),
                                    std::pair("Largest gaps after:  ", &summary.regions_after)}) {
    if (*side && !(*side)->largest.empty()) {
      report += label + SizesText(**side, summary.cluster_bytes) + "\r\n";
    }
  }
}

}  // namespace

std::string CodeText(ErrorCode code, const SystemText& system) {
  std::string text = system(code);
  std::ranges::replace_if(
      text, [](char c) { return c == '\r' || c == '\n'; }, ' ');
  text = Trimmed(text);
  const std::string number = "error " + std::to_string(code);
  return text.empty() ? number : text + " (" + number + ")";
}

std::string ReasonText(const MoveFailure& failure, const SystemText& system) {
  switch (failure.reason) {
    case NotMoved::CannotOpen:
      return "cannot be opened: " + CodeText(failure.code, system);
    case NotMoved::NoGap:
      return "no gap is large enough";
    case NotMoved::NoGapThen:
      return ReasonText(WhyFragmented::NoGapThen);
    case NotMoved::NoPlace:
      return ReasonText(WhyFragmented::NoPlace);
    case NotMoved::FewPieces:
      return "lies in front, in too few pieces to be worth a move";
    case NotMoved::Alignment:
      return "no gap allows an aligned move";
    case NotMoved::Refused:
      return "refused: " + CodeText(failure.code, system);
  }
  return "";
}

const char* ReasonText(WhyFragmented why) {
  switch (why) {
    case WhyFragmented::LeftOut:
      return "left out by its extension";
    case WhyFragmented::Locked:
      return "locked: could not be opened";
    case WhyFragmented::Holes:
      return "in one piece, but for its holes";
    case WhyFragmented::Immovable:
      return "immovable: the system refuses to move it";
    case WhyFragmented::InPieces:
      return "moved in pieces";
    case WhyFragmented::Alignment:
      return "no gap allowed an aligned move";
    case WhyFragmented::NoGap:
      return "no gap is large enough";
    case WhyFragmented::NoGapThen:
      return "no gap was large enough when its turn came";
    case WhyFragmented::NoPlace:
      return "no free place in the area this pass uses";
    case WhyFragmented::Stopped:
      return "not moved before the run was stopped";
    case WhyFragmented::NotTried:
      return "lies where this pass moves nothing";
    case WhyFragmented::Changed:
      return "moved, and in pieces all the same";
    case WhyFragmented::Blocked:
      return "no room between what this run cannot move";
    case WhyFragmented::Space:
      return "larger than all free space together";
    case WhyFragmented::Limit:
      return "more to move than --max-move allows";
    case WhyFragmented::NoOrder:
      return "no order of moves was found";
  }
  return "";
}

std::string ReasonText(const StillFragmented& file, const RunSummary& summary,
                       const SystemText& system) {
  const std::string size = ByteText(file.clusters * summary.cluster_bytes);
  switch (file.why) {
    case WhyFragmented::Locked:
    case WhyFragmented::Immovable:
      return WithCode(file.why, file.code, system);
    case WhyFragmented::InPieces:
      return PiecesText(file, size, system);
    case WhyFragmented::NoGap:
      if (!summary.regions_after) break;
      return "needs " + size + " in one piece, largest gap " +
             ByteText(summary.regions_after->Largest() * summary.cluster_bytes);
    case WhyFragmented::Blocked:
      return NeedsText(file, summary, "what this run cannot move leaves at most ") + " between";
    case WhyFragmented::Space:
      return NeedsText(file, summary, "all free space together is ") +
             ", and no order of moves in parts was found";
    case WhyFragmented::LeftOut:
    case WhyFragmented::Holes:
    case WhyFragmented::Alignment:
    case WhyFragmented::NoGapThen:
    case WhyFragmented::NoPlace:
    case WhyFragmented::Stopped:
    case WhyFragmented::NotTried:
    case WhyFragmented::Changed:
    case WhyFragmented::Limit:
    case WhyFragmented::NoOrder:
      break;
  }
  return ReasonText(file.why);
}

std::string HelpText(const RunSummary& summary, const std::string& name) {
  if (!summary.help) return "";
  const std::int64_t all = std::ssize(summary.still_fragmented);
  std::string which = Grouped(summary.help->files) + " of " + Grouped(all);
  if (summary.help->files == all) which = all == 1 ? "it" : "all " + Grouped(all);
  return name + " would put " + which + " into one piece, moving " +
         ByteText(summary.help->clusters_moved * summary.cluster_bytes);
}

std::vector<PlanRow> PlanRows(const PlanFigures& plan, std::int64_t cluster_bytes) {
  const plan::Figures& before = plan.before;
  const plan::Figures& after = plan.after;
  return {{"Fragmented", Grouped(before.fragmented), Grouped(after.fragmented)},
          {"Their pieces", Grouped(before.pieces), Grouped(after.pieces)},
          {"Free regions", Grouped(before.gaps), Grouped(after.gaps)},
          {"Largest gap", ByteText(before.largest_gap * cluster_bytes),
           ByteText(after.largest_gap * cluster_bytes)}};
}

std::string PlanText(const PlanFigures& plan, std::int64_t cluster_bytes) {
  std::string text =
      Counted(plan.moves, "move") + ", " + ByteText(plan.clusters_moved * cluster_bytes);
  if (plan.new_plans > 0) {
    text += "; " + Counted(plan.new_plans, "new plan") + " on the way";
  }
  return text;
}

std::string SizesText(const FreeRegions& regions, std::int64_t cluster_bytes) {
  std::string text;
  for (const std::int64_t clusters : regions.largest) {
    text += (text.empty() ? "" : ", ") + ByteText(clusters * cluster_bytes);
  }
  return text;
}

std::string DurationText(std::chrono::milliseconds duration) {
  if (duration < std::chrono::seconds(1)) return std::to_string(duration.count()) + " ms";
  const std::int64_t tenths = duration.count() / 100;
  if (tenths < 600) return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " s";
  return ClockText(std::chrono::duration_cast<std::chrono::seconds>(duration));
}

std::string PaceText(const RunSummary& summary) {
  const std::optional<std::int64_t> rate = BytesPerSecond(summary);
  return DurationText(summary.duration) + (rate ? ", " + ByteText(*rate) + "/s" : "");
}

std::string ResultLine(const RunSummary& summary) {
  std::string line = RowOf(summary.pass).name;
  line += summary.stopped ? " stopped: " : " done: ";
  line += ByteText(summary.BytesMoved()) + " moved in " + PaceText(summary);
  if (summary.after) {
    line += "; " + Counted(std::ssize(summary.still_fragmented), "file") + " still fragmented";
  }
  return line;
}

std::string ReportText(const std::string& volume, const RunSummary& summary,
                       const MoveStatistics& moved, const SystemText& system) {
  const PassRow& pass = RowOf(summary.pass);
  std::string report = std::string(pass.noun) + " of " + volume + "\r\n";
  report += ResultLine(summary) + "\r\n" + Counted(summary.moves, "move") + ", " +
            Grouped(moved.refused) + " refused\r\n\r\n";
  if (summary.plan) {
    report += "Planned: " + PlanText(*summary.plan, summary.cluster_bytes) + "\r\n";
    AddRow(report, "", "before", "planned");
    for (const PlanRow& row : PlanRows(*summary.plan, summary.cluster_bytes)) {
      AddRow(report, row.label, row.before, row.after);
    }
    report += "\r\n";
  }
  AddFigures(report, summary);
  report += "\r\nStill fragmented: ";
  if (!summary.after) {
    report += "not known, the volume could not be read any more\r\n";
  } else {
    report += Counted(std::ssize(summary.still_fragmented), "file") + "\r\n";
  }
  if (const std::string help = HelpText(summary, kThoroughOnWindows); !help.empty()) {
    report += help + "\r\n";
  }
  for (const StillFragmented& file : summary.still_fragmented) {
    const std::string fragments = Grouped(file.fragments);
    const std::string size = ByteText(file.clusters * summary.cluster_bytes);
    report += Padded(fragments, kNumberColumns) + fragments + Padded(size, kNumberColumns) + size +
              "  " + OnOneLine(file.path) + "  (" + ReasonText(file, summary, system) + ")\r\n";
  }
  // Several steps may have tried the same file.
  std::set<std::pair<std::string_view, std::string>> told;
  std::string left;
  for (const MoveFailure& failure : moved.failures) {
    const std::string reason = ReasonText(failure, system);
    if (!told.emplace(failure.path, reason).second) continue;
    left += "  " + OnOneLine(failure.path) + "  (" + reason + ")\r\n";
  }
  return report + "\r\nLeft where they were: " + Counted(std::ssize(told), "file") + "\r\n" + left;
}

}  // namespace vornalux
