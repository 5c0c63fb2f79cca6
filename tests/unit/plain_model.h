// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/simulated/simulated_volume.h"

namespace vornalux::testing {

// A move that was asked for, and what came of it.
struct MoveRequest {
  std::string path;
  std::int64_t vcn = 0;
  std::int64_t lcn = 0;
  std::int64_t count = 0;
  ErrorCode error = error::kSuccess;

  friend bool operator==(const MoveRequest&, const MoveRequest&) = default;
  friend std::ostream& operator<<(std::ostream& out, const MoveRequest& request);
};

// What analysis and passes must do, the slow and obvious way: every decision reads the volume
// itself, cluster by cluster, and moves are made on it directly. Shares no code with the engine.
class PlainModel {
 public:
  struct Settings {
    bool vss_safe = false;
    bool debug_log = false;
    std::string prefetch_dir = "C:\\Windows\\Prefetch";
    std::vector<std::string> layout;  // paths that layout.ini names
    std::set<int> refused;            // the moves, from 1, that the system refuses
    std::function<std::string(ErrorCode)> error_text;
  };

  PlainModel(SimulatedVolume& volume, Settings settings);

  // What an analysis finds. The names of fragmented files go with their extent counts.
  void Analyze(bool optimize_mode);
  std::vector<std::string> move_out, optimize, dirs, prefetch, layout;
  std::map<std::string, std::int64_t> fragmented;
  std::int64_t files = 0, folders = 0, locked = 0;

  // Passes, after Analyze(). fragmented_order is the order in which the files are defragmented.
  void Defrag(const std::vector<std::string>& fragmented_order);
  void Optimize(const std::vector<std::string>& fragmented_order);
  void Compact();
  std::vector<MoveRequest> requests;
  std::vector<std::string> log;  // of the movers

  std::int64_t reserved_front() const { return reserved_front_; }

 private:
  enum class Mover { OutOfWay, Forward, Front, Contiguous, ContiguousInFront };
  enum class Tried { Moved, Next, Over };
  struct Gap {
    std::int64_t start = 0;
    std::int64_t length = 0;
  };
  struct Subject {
    std::string tag;
    std::string path;
    std::vector<Extent> extents = {};
    std::int64_t size = 0;
    std::int64_t first_lcn = 0;
    std::int64_t shift = 0;
    ErrorCode refusal = error::kSuccess;
  };

  void WalkFolder(ItemId folder, const std::string& path);
  void FoundFile(const std::string& path);
  std::vector<Extent> Opened(const std::string& path);
  std::int64_t Position(const std::string& path);
  bool UnderPrefetch(const std::string& path) const;

  void Run(Mover mover, const std::string& path);
  bool Qualifies(Mover mover, const Subject& file, const Gap& gap) const;
  Tried Try(Mover mover, Subject& file, const Gap& gap);
  void Pieces(Subject& file);
  ErrorCode Request(const std::string& path, std::int64_t vcn, std::int64_t lcn,
                    std::int64_t count);
  std::int64_t Shift(std::int64_t distance, std::int64_t count) const;
  std::vector<Gap> Gaps() const;
  Gap Largest() const;
  void Log(const std::string& line) {
    if (settings_.debug_log) log.push_back(line);
  }

  std::optional<StreamRef> Stream(const std::string& path) const;
  ErrorCode OpenError(const std::string& path) const;
  std::vector<Extent> Extents(const std::string& path) const;

  SimulatedVolume& volume_;
  Settings settings_;
  bool ntfs_;
  bool optimize_mode_ = false;
  std::int64_t sectors_;
  std::int64_t reserved_front_ = 0;
  std::int64_t optimize_area_ = 0;
};

}  // namespace vornalux::testing
