// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/simulated/call_log.h"

#include <utility>

#include "text/ascii_case.h"

namespace vornalux {

namespace {

constexpr std::array<std::string_view, kCallKinds> kNames = {
    "OpenVolume",  "CloseVolume",  "FreeSpaceFigures", "VolumeNames", "VolumeBitmap",
    "NtfsData",    "MoveClusters", "OpenPath",         "CloseFile",   "RetrievalPointers",
    "StreamNames", "FindFirst",    "ReadBytes",        "CheckDisk",   "SetPriorityClass",
    "PowerOff",    "DoEvents",     "InputPending",     "ShowBox"};

}  // namespace

std::string_view BarePath(std::string_view path) {
  if (path.starts_with(R"(\\?\)") || path.starts_with(R"(\\.\)")) path.remove_prefix(4);
  return path;
}

CallLog::CallLog() { PathIndex({}); }

std::vector<CallRecord> CallLog::Of(CallKind kind) const {
  std::vector<CallRecord> found;
  for (const CallRecord& call : calls_) {
    if (call.kind == kind) found.push_back(call);
  }
  return found;
}

std::vector<CallRecord> CallLog::Of(CallKind kind, std::string_view path) const {
  std::vector<CallRecord> found;
  for (const CallRecord& call : calls_) {
    if (call.kind == kind && EqualIgnoringAsciiCase(Path(call), path)) found.push_back(call);
  }
  return found;
}

std::string CallLog::Text(const CallRecord& call) const {
  std::string text(kNames[static_cast<std::size_t>(call.kind)]);
  if (call.path != 0) text += ' ' + Path(call);
  for (const std::int64_t number : call.numbers) text += ' ' + std::to_string(number);
  return text + " -> " + std::to_string(call.error);
}

void CallLog::Clear() {
  calls_.clear();
  counts_.fill(0);
}

void CallLog::SetObserver(std::function<void(const CallRecord&)> observer) {
  observer_ = std::move(observer);
}

void CallLog::Add(CallKind kind, std::string_view path, Handle handle,
                  std::array<std::int64_t, 3> numbers, ErrorCode error) {
  ++counts_[static_cast<std::size_t>(kind)];
  if (!recording_ && !observer_) return;
  const CallRecord call{.kind = kind,
                        .error = error,
                        .path = PathIndex(BarePath(path)),
                        .handle = handle,
                        .numbers = numbers};
  if (recording_) calls_.push_back(call);
  if (observer_) observer_(call);
}

std::uint32_t CallLog::PathIndex(std::string_view path) {
  const auto [entry, added] =
      path_index_.try_emplace(std::string(path), static_cast<std::uint32_t>(paths_.size()));
  if (added) paths_.emplace_back(path);
  return entry->second;
}

void CallLog::NameHandle(Handle handle, std::string_view path) {
  handles_[handle] = BarePath(path);
}

const std::string& CallLog::HandlePath(Handle handle) const {
  const auto known = handles_.find(handle);
  return known == handles_.end() ? paths_[0] : known->second;
}

}  // namespace vornalux
