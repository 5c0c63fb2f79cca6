// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/result/results.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <tuple>

#include "engine/summary_text.h"
#include "host/image/ntfs/snapshot_catalog.h"
#include "host/mounted/error_text.h"
#include "text/quantity_text.h"

namespace vornalux {
namespace {

constexpr std::array kFigureRows = {
    FigureRow{"Files", &AnalysisFigures::total_files},
    FigureRow{"Folders", &AnalysisFigures::total_dirs},
    FigureRow{"Fragmented", &AnalysisFigures::fragmented},
    FigureRow{"Fragments", &AnalysisFigures::fragments},
    FigureRow{"Most fragments of one", &AnalysisFigures::max_per_file},
    FigureRow{"Cannot be opened", &AnalysisFigures::locked_files},
    FigureRow{"Free clusters", &AnalysisFigures::free_clusters},
    FigureRow{"To move out of the way", &AnalysisFigures::move_out_files, true},
    FigureRow{"To pack together", &AnalysisFigures::optimize_files, true},
    FigureRow{"Folders to place", &AnalysisFigures::dirs_to_move, true},
    FigureRow{"Start-up files", &AnalysisFigures::prefetch_files, true},
};

constexpr const char* kKeepsRestorePoints = "keeps restore points, which refer to it by its place";

bool KeepsRestorePoints(const std::string& path) {
  return path.find(kSnapshotFileMark) != std::string::npos;
}

}  // namespace

std::span<const FigureRow> FigureRows() { return kFigureRows; }

bool HasClasses(const AnalysisFigures& figures) {
  return std::any_of(kFigureRows.begin(), kFigureRows.end(), [&](const FigureRow& row) {
    return row.of_classes && figures.*row.figure != 0;
  });
}

std::string ShareText(const FigureRow& row, const AnalysisFigures& figures) {
  if (row.figure == &AnalysisFigures::fragmented) {
    return PercentText(figures.fragmented, figures.total_files + figures.total_dirs);
  }
  if (row.figure == &AnalysisFigures::free_clusters) {
    return PercentText(figures.free_clusters, figures.total_clusters);
  }
  return "";
}

std::string LeftOutText(const AnalysisFigures& figures) {
  constexpr std::ptrdiff_t kShown = 3;
  const std::vector<std::string>& folders = figures.left_out_folders;
  if (folders.empty()) return {};
  std::string text = "Left out, with all below: " + Grouped(std::ssize(folders)) +
                     (folders.size() == 1 ? " folder whose name begins with a dot ("
                                          : " folders whose names begin with a dot (");
  for (std::ptrdiff_t i = 0; i < std::min(std::ssize(folders), kShown); ++i) {
    text += (i == 0 ? "" : ", ") + folders[static_cast<std::size_t>(i)];
  }
  if (std::ssize(folders) > kShown) {
    text += " and " + Grouped(std::ssize(folders) - kShown) + " more; --json lists all";
  }
  return text +
         "). --directory, in a job line /dir, takes one by itself; --thorough moves what is " +
         "in them, too";
}

std::string ErrorText(ErrorCode code) { return CodeText(code, EnglishErrorText); }

std::string ReasonText(const ReadFailure& failure) {
  if (failure.byte) return "the disk failed at byte " + std::to_string(*failure.byte);
  if (failure.code == error::kFileCorrupt) return "damaged";
  return ErrorText(failure.code);
}

std::string ReasonText(const MoveFailure& failure) {
  if (failure.reason == NotMoved::Refused && KeepsRestorePoints(failure.path)) {
    return kKeepsRestorePoints;
  }
  return ReasonText(failure, EnglishErrorText);
}

std::string ReasonText(const StillFragmented& file, const RunSummary& summary) {
  if (file.why == WhyFragmented::Immovable && KeepsRestorePoints(file.path)) {
    return kKeepsRestorePoints;
  }
  return ReasonText(file, summary, EnglishErrorText);
}

std::string HelpText(const RunSummary& summary) { return HelpText(summary, "defrag --thorough"); }

std::vector<std::string> DiscardLines(const DiscardResult& discard, bool dry_run) {
  const auto text = [](std::uint64_t bytes) { return ByteText(static_cast<std::int64_t>(bytes)); };
  std::vector<std::string> lines;
  if (discard.cannot || discard.failed) {
    lines.push_back("Free space was " +
                    std::string(discard.discarded == 0 ? "not" : "only partly") +
                    " given back: " + discard.note);
  }
  if (discard.cannot) return lines;
  const char* const did = dry_run ? "would be given back" : "given back";
  if (const auto back = discard.GivenBack()) {
    lines.push_back(text(*back) + " " + did + " of " + text(discard.free_bytes) +
                    " free; the image takes " + text(*discard.stored_after) +
                    (dry_run ? " then, now " : ", before ") + text(*discard.stored_before));
  } else {
    lines.push_back(text(discard.discarded) + " of " + text(discard.free_bytes) + " free " + did);
  }
  return lines;
}

std::vector<std::string> ShrinkLines(const ShrinkAdvice& shrink) {
  const auto bytes = static_cast<std::int64_t>(shrink.bytes);
  std::string first =
      "The volume can be made as small as " + ByteText(bytes) + " (" + Grouped(bytes) + " bytes)";
  if (shrink.left_to_move > 0) {
    first += ", " + ByteText(static_cast<std::int64_t>(shrink.left_to_move)) +
             " of system files and lists moved by that program itself";
  }
  std::vector<std::string> lines = {first + ":"};
  for (const std::string& command : shrink.commands) lines.push_back("  " + command);
  if (!shrink.then.empty()) lines.push_back(shrink.then);
  return lines;
}

VolumeDescription Describe(const std::string& image, char letter, const VolumeFacts& facts) {
  return {.image = image,
          .drive = {letter, ':'},
          .file_system = facts.file_system,
          .label = facts.label,
          .cluster_bytes = std::int64_t{facts.bytes_per_sector} * facts.sectors_per_cluster,
          .objections = {}};
}

// A hot disk is no reason to wait: nothing runs any more.
std::int16_t ReadTemperature(Program& program) {
  clsTemperatures probe(program.platform.devices, program.main_window.engine.volume.Target());
  probe.QueryHDDTemperature();
  return probe.Temperature();
}

AnalysisFigures CollectFigures(const Engine& engine) {
  const VolumeConstants& constants = engine.geometry.constants;
  const AnalysisSummary& summary = engine.analysis.summary;
  return {.total_files = engine.table.TotalFiles,
          .total_dirs = engine.table.TotalDirs,
          .fragmented = summary.fragmented,
          .fragments = summary.fragments,
          .max_per_file = summary.max_per_file,
          .move_out_files = engine.table.MoveOutFiles.count,
          .optimize_files = engine.table.OptimizeFiles.count,
          .dirs_to_move = engine.table.DirsToMove.count,
          .prefetch_files = engine.table.PrefetchFiles.count,
          .locked_files = engine.extents.LockedCount,
          .total_clusters = constants.TotalClusters,
          .free_clusters = constants.FreeClusters,
          .sectors_per_cluster = constants.SectorsPerCluster,
          // A pass may have ended without one.
          .reserved_front = summary.reserved_front,
          .optimize_area = constants.OptimizeArea,
          .mft_zone_start = constants.MftZoneStart,
          .mft_zone_end = constants.MftZoneEnd,
          .left_out_folders = engine.table.LeftOutFolders};
}

std::vector<FragmentedFile> CollectFragmentedFiles(const Engine& engine) {
  const FragmentLists& lists = engine.analysis.lists;
  std::vector<FragmentedFile> files;
  for (std::size_t i = 0; i < lists.FragNames.size(); ++i) {
    if (lists.FragNames[i].empty()) continue;
    files.push_back({.extents = std::atoll(lists.FragExtents[i].c_str()),
                     .clusters = lists.SizeAt(i).clusters,
                     .path = lists.FragNames[i]});
  }
  std::ranges::sort(files, [](const FragmentedFile& a, const FragmentedFile& b) {
    return std::tie(b.extents, b.clusters, a.path) < std::tie(a.extents, a.clusters, b.path);
  });
  return files;
}

std::vector<NamedFile> CollectNamedFiles(Engine& engine) {
  std::vector<NamedFile> files;
  const RunTarget& target = engine.volume.Target();
  for (const std::string& path : target.files) {
    const ExtentRecord record = engine.extents.ReadExtents(path, false, false);
    files.push_back(
        {.file = {.extents = record.Count(), .clusters = record.SizeInClusters(), .path = path},
         .fragments = CountFragments(record.extents, target.Ntfs())});
  }
  return files;
}

std::optional<AnalysisFigures> FiguresAfter(const AnalysisFigures& before,
                                            const RunSummary& summary) {
  if (!summary.after) return std::nullopt;
  AnalysisFigures figures = before;
  figures.fragmented = summary.after->fragmented;
  figures.fragments = summary.after->fragments;
  figures.max_per_file = summary.after->max_per_file;
  figures.free_clusters = summary.after->free_clusters;
  figures.free_regions = summary.regions_after;
  figures.classes_known = false;
  return figures;
}

}  // namespace vornalux
