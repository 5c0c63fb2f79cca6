// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/terminal/result/results_json.h"

#include <cstdlib>
#include <nlohmann/json.hpp>

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
  json["move_out_files"] = figures.move_out_files;
  json["optimize_files"] = figures.optimize_files;
  json["dirs_to_move"] = figures.dirs_to_move;
  json["prefetch_files"] = figures.prefetch_files;
  json["locked_files"] = figures.locked_files;
  json["total_clusters"] = figures.total_clusters;
  json["free_clusters"] = figures.free_clusters;
  json["sectors_per_cluster"] = figures.sectors_per_cluster;
  json["reserved_front"] = figures.reserved_front;
  json["optimize_area"] = figures.optimize_area;
  json["mft_zone"] = {figures.mft_zone_start, figures.mft_zone_end};
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
    case NotMoved::Alignment:
      return "alignment";
    case NotMoved::Refused:
      return "refused";
  }
  return "";
}

void AddMoves(Json& json, const MoveStatistics& moved) {
  json["moves"] = moved.moves;
  json["clusters_moved"] = moved.clusters_moved;
  json["refused"] = moved.refused;
  json["not_moved"] = Json::array();
  for (const MoveFailure& failure : moved.failures) {
    Json entry = {{"path", failure.path}, {"reason", ReasonName(failure.reason)}};
    if (failure.code != error::kSuccess) entry["code"] = failure.code;
    json["not_moved"].push_back(std::move(entry));
  }
}

void AddUnreadable(Json& json, const std::vector<ReadFailure>& failures) {
  json["unreadable"] = Json::array();
  for (const ReadFailure& failure : failures) {
    Json entry = {{"path", failure.path}, {"code", failure.code}};
    if (failure.byte) entry["byte"] = *failure.byte;
    json["unreadable"].push_back(std::move(entry));
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

std::string ToJson(const AnalysisResult& result) {
  Json json;
  AddVolume(json, result.volume);
  AddFigures(json, result.figures);
  if (result.temperature != 0) json["temperature"] = result.temperature;
  if (result.list) {
    json["fragmented_files"] = Json::array();
    for (const FragmentedFile& file : *result.list) {
      json["fragmented_files"].push_back(
          {{"path", file.path}, {"extents", std::atoll(file.extents.c_str())}});
    }
  }
  AddUnreadable(json, result.unreadable);
  return Dump(json);
}

std::string ToJson(const PassResult& result) {
  Json json;
  AddVolume(json, result.volume);
  json["before"] = Figures(result.before);
  json["after"] = Figures(result.after);
  AddMoves(json, result.moved);
  json["remarks"] = result.remarks;
  json["stopped"] = result.stopped;
  json["dry_run"] = result.dry_run;
  AddUnreadable(json, result.unreadable);
  return Dump(json);
}

std::string ToJson(const JobResult& result) {
  Json json;
  json["outcome"] = OutcomeName(result.outcome);
  if (result.volume) {
    AddVolume(json, *result.volume);
    json["before"] = Figures(result.analysis);
    AddMoves(json, result.moved);
    json["remarks"] = result.remarks;
  }
  json["stopped"] = result.outcome == JobOutcome::Stopped;
  json["dry_run"] = result.dry_run;
  AddUnreadable(json, result.unreadable);
  return Dump(json);
}

}  // namespace vornalux
