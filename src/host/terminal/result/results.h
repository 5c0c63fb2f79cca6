// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "app/program.h"
#include "engine/run_summary.h"
#include "host/image/opening/discard_free.h"
#include "host/mounted/mounted_volume.h"
#include "host/mounted/read_failures.h"
#include "host/terminal/result/analysis_details.h"

namespace vornalux {

// What is told about the volume itself.
struct VolumeDescription {
  std::string image;
  std::string drive;  // "C:"
  std::string file_system;
  std::string label;
  std::int64_t cluster_bytes = 0;
  std::vector<std::string> objections;  // what a pass would refuse it for; it is only looked at
};

// The numbers of one analysis.
struct AnalysisFigures {
  std::int64_t total_files = 0;
  std::int64_t total_dirs = 0;
  std::int64_t fragmented = 0;
  std::int64_t fragments = 0;
  std::int64_t max_per_file = 0;
  std::int64_t move_out_files = 0;
  std::int64_t optimize_files = 0;
  std::int64_t dirs_to_move = 0;
  std::int64_t prefetch_files = 0;
  std::int64_t locked_files = 0;
  std::int64_t total_clusters = 0;
  std::int64_t free_clusters = 0;
  std::int64_t sectors_per_cluster = 0;
  std::int64_t reserved_front = 0;
  std::int64_t optimize_area = 0;
  std::int64_t mft_zone_start = 0;
  std::int64_t mft_zone_end = 0;
  std::optional<FreeRegions> free_regions = {};    // of a run only
  bool classes_known = true;                       // else those of the classes say nothing
  std::vector<std::string> left_out_folders = {};  // with all in them, for the dot in front
};

// How a number is called in tables for people.
struct FigureRow {
  const char* label;
  std::int64_t AnalysisFigures::*figure;
  bool of_classes = false;  // told by an analysis that classifies only
};
std::span<const FigureRow> FigureRows();

// The share that a number is best seen as; empty for most.
std::string ShareText(const FigureRow& row, const AnalysisFigures& figures);

// An analysis that classifies has something in at least one class.
bool HasClasses(const AnalysisFigures& figures);

// Why and where a file could not be read.
std::string ReasonText(const ReadFailure& failure);

// Why a file was left where it was, or is still in pieces.
std::string ReasonText(const MoveFailure& failure);
std::string ReasonText(const StillFragmented& file, const RunSummary& summary);

// What would help with what is still fragmented; empty where nothing would.
std::string HelpText(const RunSummary& summary);

// Which folders the figures leave out, and how to reach them; empty where there are none.
std::string LeftOutText(const AnalysisFigures& figures);

// What giving free space back has come to, each a sentence without its full stop.
std::vector<std::string> DiscardLines(const DiscardResult& discard, bool dry_run);

// How small the volume can become after Compact, and the lines for a shell that make it so.
struct ShrinkAdvice {
  std::uint64_t bytes = 0;         // the volume then
  std::uint64_t left_to_move = 0;  // bytes that are left to the program that does it
  std::vector<std::string> commands;
  std::string then;  // what is left to do by hand; may be empty
};

std::vector<std::string> ShrinkLines(const ShrinkAdvice& shrink);

// The system's text for an error code, on one line.
std::string ErrorText(ErrorCode code);

// A file that was asked for by name.
struct NamedFile {
  FragmentedFile file;
  std::int64_t fragments = 0;  // as the analysis counts them; 0 for a file without clusters
};

struct AnalysisResult {
  VolumeDescription volume;
  AnalysisFigures figures;
  std::int16_t temperature = 0;  // of the disk, degrees Celsius; 0 when it does not say
  std::optional<std::vector<FragmentedFile>> list;
  std::vector<NamedFile> files;  // of an analysis of these alone
  AnalysisDetails details;
  std::vector<ReadFailure> unreadable;
};

struct PassResult {
  VolumeDescription volume;
  std::optional<AnalysisFigures> before;
  std::optional<AnalysisFigures> after;  // missing when nothing was begun
  std::optional<RunSummary> summary;     // likewise
  MoveStatistics moved;
  std::vector<std::string> remarks;  // what was done besides moving
  std::vector<ReadFailure> unreadable;
  std::optional<ShrinkAdvice> shrink;    // after Compact, where there is something to gain
  std::optional<DiscardResult> discard;  // where that was asked for and came to its turn
  bool stopped = false;
  bool dry_run = false;
};

struct JobResult {
  JobOutcome outcome = JobOutcome::None;
  std::optional<Pass> pass;                 // that the line names
  std::optional<VolumeDescription> volume;  // when the job got as far as to one
  std::optional<AnalysisFigures> analysis;  // what the job itself found before it moved anything
  std::optional<AnalysisFigures> after;     // where a pass was run
  std::optional<RunSummary> summary;        // likewise
  MoveStatistics moved;
  std::vector<std::string> remarks;  // what was done besides moving
  std::vector<ReadFailure> unreadable;
  std::optional<ShrinkAdvice> shrink;    // as above
  std::optional<DiscardResult> discard;  // as above
  bool dry_run = false;
};

struct TrimResult {
  VolumeDescription volume;
  DiscardResult discard;
  bool dry_run = false;
};

VolumeDescription Describe(const std::string& image, char letter, const VolumeFacts& facts);

// The temperature of the disk of the volume at work, as above.
std::int16_t ReadTemperature(Program& program);

// What the engine knows from its last analysis.
AnalysisFigures CollectFigures(const Engine& engine);
// By number of extents, then size, both descending.
std::vector<FragmentedFile> CollectFragmentedFiles(const Engine& engine);

// The files that the engine's analysis was about, in their order.
std::vector<NamedFile> CollectNamedFiles(Engine& engine);

// The figures after a run from those before it: what it read anew, and what moves do not change.
std::optional<AnalysisFigures> FiguresAfter(const AnalysisFigures& before,
                                            const RunSummary& summary);

}  // namespace vornalux
