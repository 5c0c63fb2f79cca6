// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/result/results_text.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string_view>
#include <utility>

#include "engine/summary_text.h"
#include "text/quantity_text.h"

namespace vornalux {
namespace {

constexpr std::size_t kLabelColumns = 24;
constexpr std::size_t kNumberColumns = 14;
constexpr std::ptrdiff_t kFailuresShown = 10;
constexpr std::ptrdiff_t kFragmentedShown = 5;

std::string Right(const std::string& text) {
  return std::string(kNumberColumns - std::min(kNumberColumns, text.size()), ' ') + text;
}

std::string Left(std::string text) {
  text.resize(std::max(kLabelColumns, text.size()), ' ');
  return text;
}

std::string Header(const VolumeDescription& volume, const AnalysisFigures& figures,
                   Charset charset) {
  std::string text = "Volume " + volume.drive;
  if (!volume.label.empty()) text += " " + PrintableText(volume.label, charset);
  text += ", " + volume.file_system + ", " +
          ByteText(figures.total_clusters * volume.cluster_bytes) + " in clusters of " +
          ByteText(volume.cluster_bytes);
  return text + "\n\n";
}

// Mostly zero, and then not worth a line.
bool Shown(const FigureRow& row, const AnalysisFigures& figures) {
  if (row.of_classes) return HasClasses(figures);
  return row.figure != &AnalysisFigures::locked_files || figures.locked_files != 0;
}

void AddRow(std::string& text, const FigureRow& row, const AnalysisFigures& figures) {
  if (!Shown(row, figures)) return;
  const std::string share = ShareText(row, figures);
  text += "  " + Left(row.label) + Right(Grouped(figures.*row.figure)) +
          (share.empty() ? "" : "   " + share) + "\n";
}

void AddRow(std::string& text, const FigureRow& row, const AnalysisFigures& before,
            const std::optional<AnalysisFigures>& after) {
  if (!Shown(row, before) && !(after && Shown(row, *after))) return;
  text += "  " + Left(row.label) + Right(Grouped(before.*row.figure)) +
          Right(after && (!row.of_classes || after->classes_known) ? Grouped((*after).*row.figure)
                                                                   : "-") +
          "\n";
}

void AddRegions(std::string& text, const RunSummary& summary) {
  const auto row = [&](const char* label, auto tell) {
    const auto side = [&](const std::optional<FreeRegions>& regions) {
      return Right(regions ? tell(*regions) : std::string("-"));
    };
    text += "  " + Left(label) + side(summary.regions_before) + side(summary.regions_after) + "\n";
  };
  row("Free regions", [](const FreeRegions& regions) { return Grouped(regions.count); });
  row("Largest gap", [&](const FreeRegions& regions) {
    return ByteText(regions.Largest() * summary.cluster_bytes);
  });
  for (const auto& [label, regions] :
       {std::pair("  Largest gaps before  ", summary.regions_before),
        std::pair("  Largest gaps after   ", summary.regions_after)}) {
    if (regions && regions->count > 1) {
      text += label + SizesText(*regions, summary.cluster_bytes) + "\n";
    }
  }
}

std::string Failures(const std::vector<MoveFailure>& failures, std::int64_t cluster_bytes,
                     Charset charset) {
  std::string lines;
  // Paths may be long, and there may be as many as there are files.
  std::set<std::pair<std::string_view, std::string>> told;
  for (const MoveFailure& failure : failures) {
    const std::string reason = ReasonText(failure);
    if (!told.emplace(failure.path, reason).second || std::ssize(told) > kFailuresShown) continue;
    lines += "    " + PrintableText(failure.path, charset);
    if (failure.clusters > 0) lines += "  " + ByteText(failure.clusters * cluster_bytes);
    lines += "  (" + reason + ")\n";
  }
  if (told.empty()) return "";
  if (std::ssize(told) > kFailuresShown) {
    lines += "    and " + Grouped(std::ssize(told) - kFailuresShown) + " more; --json lists all\n";
  }
  return "\n  Left where they were: " + Grouped(std::ssize(told)) + "\n" + lines;
}

std::string StillFragmentedText(const RunSummary& summary, Charset charset) {
  if (!summary.after) return "\n  Still fragmented: not known, the volume could not be read\n";
  const std::vector<StillFragmented>& files = summary.still_fragmented;
  std::string text = "\n  Still fragmented: " + Grouped(std::ssize(files)) + "\n";
  if (std::ssize(files) > kFragmentedShown) {
    std::array<std::int64_t, kReasons> counts{};
    for (const StillFragmented& file : files) ++counts[static_cast<std::size_t>(file.why)];
    for (std::size_t why = 0; why < kReasons; ++why) {
      if (counts[why] == 0) continue;
      text +=
          Right(Grouped(counts[why])) + "  " + ReasonText(static_cast<WhyFragmented>(why)) + "\n";
    }
    text += "  The most fragmented:\n";
  }
  for (std::ptrdiff_t i = 0; i < std::min(std::ssize(files), kFragmentedShown); ++i) {
    const StillFragmented& file = files[static_cast<std::size_t>(i)];
    text += "    " + PrintableText(file.path, charset) + "  " +
            Counted(file.fragments, "fragment") + ", " +
            ByteText(file.clusters * summary.cluster_bytes) + "  (" + ReasonText(file, summary) +
            ")\n";
  }
  if (std::ssize(files) > kFragmentedShown) text += "    --json lists all\n";
  if (const std::string help = HelpText(summary); !help.empty()) text += "  " + help + "\n";
  return text;
}

std::string Discards(const DiscardResult& discard, bool dry_run) {
  std::string text;
  for (const std::string& line : DiscardLines(discard, dry_run)) text += "  " + line + "\n";
  return text;
}

// result is of a pass or of a job.
template <typename Result>
std::string Moves(const Result& result, const VolumeDescription& volume, bool stopped,
                  Charset charset) {
  const MoveStatistics& moved = result.moved;
  std::string text = "  " + Counted(moved.moves, "move") + ", " +
                     ByteText(moved.clusters_moved * volume.cluster_bytes) + " moved";
  if (moved.refused > 0) text += ", " + Grouped(moved.refused) + " refused";
  text += stopped ? "; stopped\n" : "\n";
  if (result.summary) {
    text += "  Took " +
            (result.dry_run ? DurationText(result.summary->duration) : PaceText(*result.summary)) +
            "\n";
  }
  if (result.dry_run) text += "  Dry run: nothing was written to the volume\n";
  if (result.discard) text += Discards(*result.discard, result.dry_run);
  if (result.summary) text += StillFragmentedText(*result.summary, charset);
  if (result.shrink) {
    text += "\n";
    for (const std::string& line : ShrinkLines(*result.shrink)) {
      text += "  " + PrintableText(line, charset) + "\n";
    }
  }
  return text + Failures(moved.failures, volume.cluster_bytes, charset);
}

std::string DetailsText(const AnalysisResult& result, Charset charset) {
  const AnalysisDetails& details = result.details;
  const std::int64_t cluster_bytes = result.volume.cluster_bytes;
  const auto size = [&](std::int64_t clusters) {
    return Right(ByteText(clusters * cluster_bytes));
  };
  std::string text;
  if (!details.extensions.empty()) {
    text += "\n  " + Left("By extension") + Right("files") + Right("size") + Right("fragmented") +
            Right("pieces") + "\n";
  }
  for (const ExtensionRow& row : FirstRows(details.extensions, kExtensionsShown)) {
    const std::string name = CutText(PrintableText(row.extension, charset), 20, charset);
    const std::string label = name.empty() ? "(none)" : name;
    const auto blanks = static_cast<std::size_t>(
        std::max(0, static_cast<int>(kLabelColumns) - DisplayWidth(label, charset)));
    text += "  " + label + std::string(blanks, ' ') + Right(Grouped(row.files)) +
            size(row.clusters) + Right(Grouped(row.fragmented)) + Right(Grouped(row.pieces)) + "\n";
  }
  if (!details.most_fragmented.empty() && !result.list) {
    text += "\n  Most fragmented\n";
    for (const FragmentedFile& file : details.most_fragmented) {
      text += Right(Grouped(file.extents)) + size(file.clusters) + "  " +
              PrintableText(file.path, charset) + "\n";
    }
  }
  if (details.gains.empty()) return text;
  text += "\n  " + Left("What passes would leave") + Right("fragmented") + Right("largest gap") +
          Right("by moving") + "\n  " + Left("now") + Right(Grouped(result.figures.fragmented)) +
          (details.largest_gap ? size(*details.largest_gap) : "") + "\n";
  for (const PassGain& gain : details.gains) {
    text += "  " + Left(gain.Name());
    text += gain.figures ? Right(Grouped(gain.figures->fragmented)) +
                               size(gain.figures->largest_gap) + size(gain.figures->clusters_moved)
                         : "  not worked out";
    text += "\n";
  }
  if (std::ranges::any_of(details.gains, [](const PassGain& gain) { return !gain.figures; })) {
    text += "  --gains SECONDS gives more time for what is not worked out\n";
  }
  return text;
}

std::string Planned(const std::optional<RunSummary>& summary) {
  if (!summary || !summary->plan) return "";
  std::string text = "  Planned: " + PlanText(*summary->plan, summary->cluster_bytes) + "\n  " +
                     Left("") + Right("before") + Right("planned") + "\n";
  for (const PlanRow& row : PlanRows(*summary->plan, summary->cluster_bytes)) {
    text += "  " + Left(row.label) + Right(row.before) + Right(row.after) + "\n";
  }
  return text + "\n";
}

std::string LeftOut(const AnalysisFigures& figures, Charset charset) {
  const std::string text = LeftOutText(figures);
  return text.empty() ? "" : "  " + PrintableText(text, charset) + "\n";
}

std::string BeforeAndAfter(const AnalysisFigures& before,
                           const std::optional<AnalysisFigures>& after,
                           const std::optional<RunSummary>& summary) {
  std::string text = "  " + Left("") + Right("before") + Right("after") + "\n";
  for (const FigureRow& row : FigureRows()) AddRow(text, row, before, after);
  if (summary) AddRegions(text, *summary);
  return text;
}

}  // namespace

std::string ToText(const std::vector<ReadFailure>& failures, bool all_are_listed) {
  const std::ptrdiff_t shown = std::min(std::ssize(failures), kFailuresShown);
  std::string text = Grouped(std::ssize(failures)) +
                     (failures.size() == 1 ? " file or folder" : " files or folders") +
                     " could not be read; figures and moves leave out what is missing:";
  for (std::ptrdiff_t i = 0; i < shown; ++i) {
    const ReadFailure& failure = failures[static_cast<std::size_t>(i)];
    text += "\n  " + PrintableText(failure.path, Charset::Utf8) + "  (" + ReasonText(failure) + ")";
  }
  if (shown < std::ssize(failures)) {
    text += "\n  and " + Grouped(std::ssize(failures) - shown) + " more";
    text += all_are_listed ? "" : "; --json lists all";
  }
  return text;
}

std::string ToText(const AnalysisResult& result, Charset charset) {
  std::string text = Header(result.volume, result.figures, charset);
  for (const FigureRow& row : FigureRows()) AddRow(text, row, result.figures);
  text += LeftOut(result.figures, charset);
  if (result.temperature != 0) {
    const std::string degrees = TemperatureText(result.temperature, " ");
    text += "\n  " + result.volume.drive + " temp " + WithDegrees(degrees, charset) + "\n";
  }
  text += DetailsText(result, charset);
  if (!result.files.empty()) text += "\n";
  for (const auto& [file, fragments] : result.files) {
    text += Right(fragments <= 1 ? "in one piece" : "in " + Grouped(fragments) + " pieces") +
            Right(ByteText(file.clusters * result.volume.cluster_bytes)) + "  " +
            PrintableText(file.path, charset) + "\n";
  }
  if (result.list) {
    text += "\n";
    for (const FragmentedFile& file : *result.list) {
      text += Right(Grouped(file.extents)) +
              Right(ByteText(file.clusters * result.volume.cluster_bytes)) + "  " +
              PrintableText(file.path, charset) + "\n";
    }
  }
  return text;
}

std::string ToText(const PassResult& result, Charset charset) {
  if (!result.before) return "";
  return Header(result.volume, *result.before, charset) + Planned(result.summary) +
         BeforeAndAfter(*result.before, result.after, result.summary) +
         LeftOut(*result.before, charset) + "\n" +
         Moves(result, result.volume, result.stopped, charset);
}

std::string ToText(const TrimResult& result, Charset charset) {
  const VolumeDescription& volume = result.volume;
  std::string text = PrintableText(volume.image, charset);
  if (!volume.label.empty()) text += ", " + PrintableText(volume.label, charset);
  text += ", " + volume.file_system + " in clusters of " + ByteText(volume.cluster_bytes) + "\n\n" +
          Discards(result.discard, result.dry_run);
  if (result.dry_run) text += "  Dry run: nothing was given back\n";
  return text;
}

std::string ToText(const JobResult& result, Charset charset) {
  if (!result.volume || !result.analysis) return "";
  std::string text = Header(*result.volume, *result.analysis, charset);
  text += Planned(result.summary);
  if (result.summary) {
    text += BeforeAndAfter(*result.analysis, result.after, result.summary);
  } else {
    for (const FigureRow& row : FigureRows()) AddRow(text, row, *result.analysis);
  }
  return text + LeftOut(*result.analysis, charset) + "\n" +
         Moves(result, *result.volume, result.outcome == JobOutcome::Stopped, charset);
}

}  // namespace vornalux
