// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/types.h"

namespace vornalux {

enum class CallKind : std::uint8_t {
  OpenVolume,
  CloseVolume,
  FreeSpaceFigures,
  VolumeNames,
  VolumeBitmap,  // starting LCN, most bytes, bytes given
  NtfsData,
  MoveClusters,  // starting VCN, starting LCN, cluster count
  OpenPath,      // FileAccess, FileFlags
  CloseFile,
  RetrievalPointers,  // starting VCN, most extents, extents given
  StreamNames,        // names given
  FindFirst,
  ReadBytes,  // bytes given
  CheckDisk,
  SetPriorityClass,  // class
  PowerOff,
  DoEvents,      // how often until now
  InputPending,  // 0 or 1
  ShowBox,       // BoxButtons, BoxIcon, BoxAnswer; path is the text
};
inline constexpr std::size_t kCallKinds = static_cast<std::size_t>(CallKind::ShowBox) + 1;

// One call. handle is what was passed in or came out; numbers as said at CallKind.
struct CallRecord {
  CallKind kind = CallKind::DoEvents;
  ErrorCode error = error::kSuccess;
  std::uint32_t path = 0;  // see CallLog::Path()
  Handle handle = kInvalidHandle;
  std::array<std::int64_t, 3> numbers{};
};

// Every call that was made of a platform, in order. Paths (without "\\?\") are kept once each; a
// call with a handle has the path that the handle was opened by.
class CallLog {
 public:
  CallLog();

  const std::vector<CallRecord>& Calls() const { return calls_; }
  const std::string& Path(const CallRecord& call) const { return paths_[call.path]; }
  // Calls made until now, recorded or not.
  std::size_t Count(CallKind kind) const { return counts_[static_cast<std::size_t>(kind)]; }
  std::vector<CallRecord> Of(CallKind kind) const;
  std::vector<CallRecord> Of(CallKind kind, std::string_view path) const;
  // "MoveClusters C:\file 0 120 16 -> 5"
  std::string Text(const CallRecord& call) const;

  // Forgets calls and counts; paths of open handles stay known.
  void Clear();
  // Off for millions of calls: then they are counted only.
  void SetRecording(bool on) { recording_ = on; }
  // Hears every call when it has been made.
  void SetObserver(std::function<void(const CallRecord&)> observer);

  void Add(CallKind kind, std::string_view path, Handle handle, std::array<std::int64_t, 3> numbers,
           ErrorCode error);
  // From here on the handle stands for this path.
  void NameHandle(Handle handle, std::string_view path);
  const std::string& HandlePath(Handle handle) const;
  void ForgetHandle(Handle handle) { handles_.erase(handle); }

 private:
  std::uint32_t PathIndex(std::string_view path);

  std::vector<CallRecord> calls_;
  std::array<std::size_t, kCallKinds> counts_{};
  std::vector<std::string> paths_;
  std::unordered_map<std::string, std::uint32_t> path_index_;
  std::unordered_map<Handle, std::string> handles_;
  std::function<void(const CallRecord&)> observer_;
  bool recording_ = true;
};

// The path as the log and the fault plan know it: without "\\?\" and "\\.\".
std::string_view BarePath(std::string_view path);

}  // namespace vornalux
