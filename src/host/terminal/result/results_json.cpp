// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/result/results_json.h"

#include <chrono>
#include <nlohmann/json.hpp>

#include "engine/pass_table.h"
#include "host/mounted/error_text.h"

namespace vornalux {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kIndent = 2;

std::string Dump(const Json& json) {
  return json.dump(kIndent, ' ', false, Json::error_handler_t::replace) + "\n";
}

void AddVolume(Json& json, const VolumeDescription& volume) {
  json["image"] = volume.image;
  json["drive"] = volume.drive;
  json["file_system"] = volume.file_system;
  json["label"] = volume.label;
  json["cluster_bytes"] = volume.cluster_bytes;
  json["objections"] = volume.objections;
}

void AddFigures(Json& json, const AnalysisFigures& figures) {
  json["total_files"] = figures.total_files;
  json["total_dirs"] = figures.total_dirs;
  json["fragmented"] = figures.fragmented;
  json["fragments"] = figures.fragments;
  json["max_per_file"] = figures.max_per_file;
  const auto of_class = [&figures](std::int64_t count) -> Json {
    return figures.classes_known ? Json(count) : Json(nullptr);
  };
  json["move_out_files"] = of_class(figures.move_out_files);
  json["optimize_files"] = of_class(figures.optimize_files);
  json["dirs_to_move"] = of_class(figures.dirs_to_move);
  json["prefetch_files"] = of_class(figures.prefetch_files);
  json["locked_files"] = figures.locked_files;
  json["total_clusters"] = figures.total_clusters;
  json["free_clusters"] = figures.free_clusters;
  json["sectors_per_cluster"] = figures.sectors_per_cluster;
  json["reserved_front"] = figures.reserved_front;
  json["optimize_area"] = figures.optimize_area;
  json["mft_zone"] = {figures.mft_zone_start, figures.mft_zone_end};
  json["left_out_folders"] = figures.left_out_folders;
  if (const std::optional<FreeRegions>& regions = figures.free_regions) {
    json["free_regions"] = {{"count", regions->count}, {"largest", regions->largest}};
  }
}

Json Figures(const std::optional<AnalysisFigures>& figures) {
  if (!figures) return nullptr;
  Json json;
  AddFigures(json, *figures);
  return json;
}

const char* ReasonName(NotMoved reason) {
  switch (reason) {
    case NotMoved::CannotOpen:
      return "locked";
    case NotMoved::NoGap:
      return "no gap";
    case NotMoved::NoGapThen:
      return "no gap then";
    case NotMoved::NoPlace:
      return "no place";
    case NotMoved::FewPieces:
      return "few pieces";
    case NotMoved::Alignment:
      return "alignment";
    case NotMoved::Refused:
      return "refused";
  }
  return "";
}

const char* ReasonName(WhyFragmented why) {
  switch (why) {
    case WhyFragmented::LeftOut:
      return "left out";
    case WhyFragmented::Locked:
      return "locked";
    case WhyFragmented::Holes:
      return "holes";
    case WhyFragmented::Immovable:
      return "immovable";
    case WhyFragmented::InPieces:
      return "moved in pieces";
    case WhyFragmented::Alignment:
      return "alignment";
    case WhyFragmented::NoGap:
      return "no gap";
    case WhyFragmented::NoGapThen:
      return "no gap then";
    case WhyFragmented::NoPlace:
      return "no place";
    case WhyFragmented::Stopped:
      return "stopped";
    case WhyFragmented::NotTried:
      return "not tried";
    case WhyFragmented::Changed:
      return "changed";
    case WhyFragmented::Blocked:
      return "blocked";
    case WhyFragmented::Space:
      return "space";
    case WhyFragmented::Limit:
      return "limit";
    case WhyFragmented::NoOrder:
      return "no order";
  }
  return "";
}

void AddCode(Json& entry, ErrorCode code) {
  entry["code"] = code;
  if (const std::string text = EnglishErrorText(code); !text.empty()) {
    entry["text"] = text.substr(0, text.find('\r'));
  }
}

void AddMoves(Json& json, const MoveStatistics& moved) {
  json["moves"] = moved.moves;
  json["clusters_moved"] = moved.clusters_moved;
  json["refused"] = moved.refused;
  json["not_moved"] = Json::array();
  for (const MoveFailure& failure : moved.failures) {
    Json entry = {{"path", failure.path}, {"reason", ReasonName(failure.reason)}};
    if (failure.clusters > 0) entry["clusters"] = failure.clusters;
    if (failure.code != error::kSuccess) AddCode(entry, failure.code);
    json["not_moved"].push_back(std::move(entry));
  }
}

Json Figures(const plan::Figures& figures) {
  return {{"fragmented", figures.fragmented},
          {"pieces", figures.pieces},
          {"gaps", figures.gaps},
          {"largest_gap", figures.largest_gap}};
}

// Only what there is: a planned run, and one that such a run would help.
void AddPlan(Json& json, const RunSummary& summary) {
  if (const std::optional<PlanFigures>& plan = summary.plan) {
    json["plan"] = {{"moves", plan->moves},
                    {"clusters", plan->clusters_moved},
                    {"bytes", plan->clusters_moved * summary.cluster_bytes},
                    {"before", Figures(plan->before)},
                    {"after", Figures(plan->after)},
                    {"new_plans", plan->new_plans}};
    if (plan->least_to_move > 0) {
      json["plan"]["least_bytes"] = plan->least_to_move * summary.cluster_bytes;
    }
  }
  if (const std::optional<ThoroughHelp>& help = summary.help) {
    json["thorough_would"] = {{"files", help->files},
                              {"of", summary.still_fragmented.size()},
                              {"bytes", help->clusters_moved * summary.cluster_bytes}};
  }
}

// Everything is null where no pass began.
void AddSummary(Json& json, const std::optional<RunSummary>& summary, bool dry_run) {
  for (const char* key : {"seconds", "bytes_moved", "bytes_per_second", "plan", "still_fragmented",
                          "thorough_would"}) {
    json[key] = nullptr;
  }
  if (!summary) return;
  AddPlan(json, *summary);
  json["seconds"] = std::chrono::duration<double>(summary->duration).count();
  json["bytes_moved"] = summary->BytesMoved();
  if (const auto rate = BytesPerSecond(*summary); rate && !dry_run) {
    json["bytes_per_second"] = *rate;
  }
  if (!summary->after) return;
  Json files = Json::array();
  for (const StillFragmented& file : summary->still_fragmented) {
    Json entry = {{"path", file.path},
                  {"fragments", file.fragments},
                  {"clusters", file.clusters},
                  {"bytes", file.clusters * summary->cluster_bytes},
                  {"reason", ReasonName(file.why)}};
    if (file.why == WhyFragmented::InPieces) entry["because"] = ReasonName(file.because);
    if (file.why == WhyFragmented::NoGap && summary->regions_after) {
      entry["largest_gap"] = summary->regions_after->Largest();
    }
    if (file.why == WhyFragmented::Blocked) entry["longest_unblocked"] = file.room;
    if (file.why == WhyFragmented::Space) entry["free_clusters"] = file.room;
    if (file.code != error::kSuccess) AddCode(entry, file.code);
    files.push_back(std::move(entry));
  }
  json["still_fragmented"] = std::move(files);
}

void AddUnreadable(Json& json, const std::vector<ReadFailure>& failures) {
  json["unreadable"] = Json::array();
  for (const ReadFailure& failure : failures) {
    Json entry = {{"path", failure.path}};
    AddCode(entry, failure.code);
    if (failure.byte) entry["byte"] = *failure.byte;
    json["unreadable"].push_back(std::move(entry));
  }
}

// Null where it was not asked for, or the run did not get as far.
Json Discard(const std::optional<DiscardResult>& discard) {
  if (!discard) return nullptr;
  const auto count = [](const std::optional<std::uint64_t>& bytes) {
    return bytes ? Json(*bytes) : Json(nullptr);
  };
  return {{"free_bytes", discard->free_bytes},
          {"discarded_bytes", discard->discarded},
          {"stored_before", count(discard->stored_before)},
          {"stored_after", count(discard->stored_after)},
          {"given_back", count(discard->GivenBack())},
          {"possible", !discard->cannot},
          {"note", discard->note}};
}

Json Shrink(const std::optional<ShrinkAdvice>& shrink) {
  if (!shrink) return nullptr;
  return {{"bytes", shrink->bytes},
          {"left_to_move", shrink->left_to_move},
          {"commands", shrink->commands},
          {"then", shrink->then}};
}

void AddDetails(Json& json, const AnalysisDetails& details, std::int64_t cluster_bytes) {
  json["most_fragmented"] = Json::array();
  for (const FragmentedFile& file : details.most_fragmented) {
    json["most_fragmented"].push_back({{"path", file.path},
                                       {"extents", file.extents},
                                       {"clusters", file.clusters},
                                       {"bytes", file.clusters * cluster_bytes}});
  }
  json["extensions"] = Json::array();
  for (const ExtensionRow& row : details.extensions) {
    json["extensions"].push_back({{"extension", row.extension},
                                  {"files", row.files},
                                  {"bytes", row.clusters * cluster_bytes},
                                  {"fragmented", row.fragmented},
                                  {"pieces", row.pieces}});
  }
  json["gains"] = Json::array();
  for (const PassGain& gain : details.gains) {
    Json entry = {{"pass", gain.Name()}};
    for (const char* key : {"fragmented", "free_regions", "largest_gap", "bytes_moved"}) {
      entry[key] = nullptr;
    }
    if (const std::optional<GainFigures>& figures = gain.figures) {
      entry["fragmented"] = figures->fragmented;
      entry["free_regions"] = figures->free_regions;
      entry["largest_gap"] = figures->largest_gap;
      entry["bytes_moved"] = figures->clusters_moved * cluster_bytes;
    }
    json["gains"].push_back(std::move(entry));
  }
}

const char* OutcomeName(JobOutcome outcome) {
  switch (outcome) {
    case JobOutcome::None:
      return "none";
    case JobOutcome::InvalidArgument:
      return "invalid_argument";
    case JobOutcome::NoDrive:
      return "no_drive";
    case JobOutcome::NoFolder:
      return "no_folder";
    case JobOutcome::InUse:
      return "in_use";
    case JobOutcome::ContextMenu:
      return "context_menu";
    case JobOutcome::Dirty:
      return "dirty";
    case JobOutcome::Failed:
      return "failed";
    case JobOutcome::Stopped:
      return "stopped";
    case JobOutcome::Done:
      return "done";
  }
  return "";
}

}  // namespace

std::string ToJsonElement(const std::string& image, int exit_code, const std::string& error,
                          const std::string& result) {
  Json json = {{"image", image}, {"exit_code", exit_code}};
  json["error"] = error.empty() ? Json(nullptr) : Json(error);
  json["result"] = result.empty() ? Json(nullptr) : Json::parse(result);
  std::string text = Dump(json);
  text.pop_back();
  return text;
}

std::string ToJson(const AnalysisResult& result) {
  Json json;
  AddVolume(json, result.volume);
  AddFigures(json, result.figures);
  if (result.temperature != 0) json["temperature"] = result.temperature;
  if (result.list) {
    json["fragmented_files"] = Json::array();
    for (const FragmentedFile& file : *result.list) {
      json["fragmented_files"].push_back(
          {{"path", file.path}, {"extents", file.extents}, {"clusters", file.clusters}});
    }
  }
  if (!result.files.empty()) {
    json["files"] = Json::array();
    for (const auto& [file, fragments] : result.files) {
      json["files"].push_back({{"path", file.path},
                               {"extents", file.extents},
                               {"fragments", fragments},
                               {"clusters", file.clusters},
                               {"one_piece", fragments <= 1}});
    }
  }
  AddDetails(json, result.details, result.volume.cluster_bytes);
  AddUnreadable(json, result.unreadable);
  return Dump(json);
}

std::string ToJson(const PassResult& result) {
  Json json;
  AddVolume(json, result.volume);
  json["before"] = Figures(result.before);
  json["after"] = Figures(result.after);
  AddMoves(json, result.moved);
  AddSummary(json, result.summary, result.dry_run);
  json["remarks"] = result.remarks;
  json["smallest"] = Shrink(result.shrink);
  json["discard"] = Discard(result.discard);
  json["stopped"] = result.stopped;
  json["dry_run"] = result.dry_run;
  AddUnreadable(json, result.unreadable);
  return Dump(json);
}

std::string ToJson(const TrimResult& result) {
  Json json;
  AddVolume(json, result.volume);
  json.erase("drive");
  json["discard"] = Discard(result.discard);
  json["stopped"] = result.discard.stopped;
  json["dry_run"] = result.dry_run;
  return Dump(json);
}

std::string ToJson(const JobResult& result) {
  Json json;
  json["outcome"] = OutcomeName(result.outcome);
  json["pass"] = result.pass ? Json(RowOf(*result.pass).command) : Json(nullptr);
  if (result.volume) {
    AddVolume(json, *result.volume);
    json["before"] = Figures(result.analysis);
    json["after"] = Figures(result.after);
    AddMoves(json, result.moved);
    AddSummary(json, result.summary, result.dry_run);
    json["remarks"] = result.remarks;
    json["smallest"] = Shrink(result.shrink);
    json["discard"] = Discard(result.discard);
  }
  json["stopped"] = result.outcome == JobOutcome::Stopped;
  json["dry_run"] = result.dry_run;
  AddUnreadable(json, result.unreadable);
  return Dump(json);
}

}  // namespace vornalux
