// SPDX-License-Identifier: GPL-2.0-or-later
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "engine/pass_table.h"
#include "host/simulated/simulated_volume.h"
#include "volume/free_runs.h"

namespace vornalux::testing {

using Bits = std::vector<std::uint8_t>;

inline bool Used(const Bits& bits, std::int64_t lcn) {
  return (bits[static_cast<std::size_t>(lcn / 8)] >> (lcn % 8) & 1) != 0;
}

inline Bits BitmapOf(const SimulatedVolume& volume) {
  Bits bits(static_cast<std::size_t>(volume.Facts().total_clusters / 8 + 1));
  volume.CopyBitmap(0, bits);
  return bits;
}

inline FreeRunList PlainRuns(const Bits& bits, std::int64_t clusters) {
  FreeRunList runs;
  for (std::int64_t lcn = 0; lcn < clusters; ++lcn) {
    if (Used(bits, lcn)) continue;
    if (lcn == 0 || Used(bits, lcn - 1)) runs.push_back({static_cast<std::int32_t>(lcn), 0, 0});
    ++runs.back().length;
  }
  return runs;
}

// A move that was asked for, and what came of it.
struct MoveRequest {
  std::string path;
  std::int64_t vcn = 0;
  std::int64_t lcn = 0;
  std::int64_t count = 0;
  ErrorCode error = error::kSuccess;

  friend bool operator==(const MoveRequest&, const MoveRequest&) = default;
  friend std::ostream& operator<<(std::ostream& out, const MoveRequest& request) {
    return out << request.path << " vcn " << request.vcn << " to " << request.lcn << " count "
               << request.count << " -> " << request.error;
  }
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

  PlainModel(SimulatedVolume& volume, Settings settings)
      : volume_(volume),
        settings_(std::move(settings)),
        ntfs_(volume.Facts().file_system == "NTFS"),
        sectors_(volume.Facts().sectors_per_cluster) {
    // Volumes here are too small for the front area's full size: two thirds of what is free.
    const std::int64_t free = volume.FreeClusters();
    reserved_front_ = free * 2 / 3 + (free * 2 % 3 == 2 ? 1 : 0);
    const std::int64_t used = volume.Facts().total_clusters - free;
    optimize_area_ = used / 2 + (used % 4 == 3 ? 1 : 0);  // halves go to the even number
  }

  // What an analysis finds. The names of fragmented files go with their extent counts.
  void Analyze(bool optimize_mode) {
    optimize_mode_ = optimize_mode;
    WalkFolder(volume_.Root(), "C:\\");
    for (const std::string& path : settings_.layout) {
      if (optimize_mode && OpenError(path) == error::kSuccess && Position(path) > 0) {
        layout.push_back(path);
      }
    }
  }
  std::vector<std::string> move_out, optimize, dirs, prefetch, layout;
  std::map<std::string, std::int64_t> fragmented;
  std::int64_t files = 0, folders = 0, locked = 0;

  // After Analyze(). fragmented_order is the order in which Defrag and Optimize take these files.
  void Run(Pass pass, const std::vector<std::string>& fragmented_order) {
    const auto all = [this](Mover mover, const std::vector<std::string>& paths) {
      for (const std::string& path : paths) Take(mover, path);
    };
    if (pass == Pass::Optimize) all(Mover::OutOfWay, move_out);
    if (pass != Pass::Compact && ntfs_) Take(Mover::ContiguousInFront, "C:\\$MFT");
    if (pass == Pass::Optimize) {
      all(Mover::Front, prefetch);
      all(Mover::Front, layout);
    }
    if (pass != Pass::Defrag) {
      all(Mover::Front, dirs);
      all(Mover::Forward, optimize);
    }
    if (pass != Pass::Compact) all(Mover::Contiguous, fragmented_order);
  }
  std::vector<MoveRequest> requests;
  std::vector<std::string> log;  // of the movers

  std::int64_t reserved_front() const { return reserved_front_; }

 private:
  enum class Mover { OutOfWay, Forward, Front, Contiguous, ContiguousInFront };
  enum class Tried { Moved, Next, Over };
  struct Subject {
    std::string tag;
    std::string path;
    std::vector<Extent> extents = {};
    std::int64_t size = 0;
    std::int64_t first_lcn = 0;
    std::int64_t shift = 0;
    ErrorCode refusal = error::kSuccess;
  };

  // --- Looking at the volume.

  std::optional<StreamRef> Stream(const std::string& path) const {
    const std::size_t colon = path.find(':', 2);
    const auto item = volume_.Find(path.substr(0, colon));
    if (!item) return std::nullopt;
    return StreamRef{*item, colon == std::string::npos ? "" : path.substr(colon)};
  }

  ErrorCode OpenError(const std::string& path) const {
    const auto stream = Stream(path);
    if (!stream) return error::kFileNotFound;
    return volume_.Locked(stream->item) ? error::kSharingViolation : error::kSuccess;
  }

  std::vector<Extent> Extents(const std::string& path) const {
    std::vector<Extent> extents;
    if (OpenError(path) == error::kSuccess) volume_.Extents(*Stream(path), extents);
    return extents;
  }

  FreeRunList Gaps() const { return PlainRuns(BitmapOf(volume_), volume_.Facts().total_clusters); }

  // --- Analysis.

  bool UnderPrefetch(const std::string& path) const {
    return path.substr(0, settings_.prefetch_dir.size()) == settings_.prefetch_dir;
  }

  // The first cluster, looked for behind leading holes.
  std::int64_t Position(const std::string& path) {
    for (const Extent& extent : Extents(path)) {
      if (extent.Lcn != -1) return extent.Lcn;
    }
    return -1;
  }

  // Counts items that do not open and notes those in fragments.
  void Opened(const std::string& path) {
    locked += OpenError(path) != error::kSuccess;
    const std::vector<Extent> extents = Extents(path);
    const auto hole = [&](std::size_t i) { return extents[i].Lcn == -1; };
    const auto end = [&](std::size_t i) {
      return extents[i].Lcn + extents[i].NextVcn - (i == 0 ? 0 : extents[i - 1].NextVcn);
    };
    std::size_t fragments = extents.size();
    if (ntfs_ && fragments > 1) {
      fragments = 1;
      for (std::size_t i = 1; i < extents.size(); ++i) {
        if (hole(i)) continue;
        // A hole between two runs is looked through; one at the file's beginning is not.
        const std::size_t before = i >= 2 && hole(i - 1) ? i - 2 : i - 1;
        if (extents[i].Lcn != end(before)) ++fragments;
      }
    }
    if (fragments > 1) fragmented[path] = std::ssize(extents);
  }

  void FoundFile(const std::string& path) {
    Opened(path);
    if (!optimize_mode_ || OpenError(path) != error::kSuccess) return;
    const std::int64_t lcn = Position(path);
    NtfsVolumeData zone;
    if (ntfs_) zone = *volume_.NtfsData();
    if (lcn > 0 && lcn < reserved_front_) move_out.push_back(path);
    if (lcn > zone.mft_zone_start && lcn < zone.mft_zone_end) move_out.push_back(path);
    if (UnderPrefetch(path)) {
      prefetch.push_back(path);
    } else if (lcn > 0 && lcn > optimize_area_) {
      optimize.push_back(path);
    }
  }

  void WalkFolder(ItemId folder, const std::string& path) {
    std::vector<FolderItem> items;
    volume_.ListFolder(folder, items);
    for (const FolderItem& item : items) {
      const std::string name = path + item.name;
      if (item.attributes & attribute::kReparsePoint) continue;
      if (item.attributes & attribute::kDirectory) {
        if (item.name[0] == '.') continue;
        ++folders;
        Opened(name);
        const std::int64_t lcn = Position(name);
        if (optimize_mode_ && lcn > 0) {
          dirs.push_back(name);
          if (!UnderPrefetch(name) && lcn < reserved_front_) move_out.push_back(name);
        }
        WalkFolder(item.id, name + "\\");
        continue;
      }
      ++files;
      FoundFile(name);
      std::vector<std::string> streams;
      volume_.StreamNames(item.id, streams);
      for (const std::string& stream : streams) {
        if (stream == "::$DATA" || !optimize_mode_ || volume_.Locked(item.id)) continue;
        FoundFile(name + stream);
      }
    }
  }

  // --- Movers.

  void Log(const std::string& line) {
    if (settings_.debug_log) log.push_back(line);
  }

  std::int64_t Shift(std::int64_t distance, std::int64_t count) const {
    constexpr std::int64_t kUnits[] = {0, 0, 8, 5, 4, 3, 3, 2, 2};  // clusters in 16 sectors
    if (!settings_.vss_safe || sectors_ > 8) return 0;
    if (sectors_ == 1) return 3;
    if (count <= sectors_) return 1;
    const std::int64_t unit = kUnits[sectors_];
    const std::int64_t off = (distance < 0 ? -distance : distance) % unit;
    if (off == 0) return 0;
    return distance < 0 ? off + 3 : sectors_ - off + 3;
  }

  ErrorCode Request(const std::string& path, std::int64_t vcn, std::int64_t lcn,
                    std::int64_t count) {
    ErrorCode error = error::kGenFailure;
    if (!settings_.refused.contains(static_cast<int>(requests.size()) + 1)) {
      error = volume_.Move(*Stream(path), vcn, lcn, count);
    }
    requests.push_back({path, vcn, lcn, count, error});
    return error;
  }

  Tried Try(Mover mover, Subject& file, const FreeRun& gap) {
    file.shift = Shift(gap.start - file.first_lcn, file.size);
    std::int64_t target = gap.start;
    if (file.shift > 3) {
      target += file.shift - 3;
    } else if (file.shift != 0) {
      if (!settings_.debug_log) return Tried::Next;
      Log(file.tag + "can't move: " + file.path + " - vss_safe: " + std::to_string(file.shift));
      return Tried::Over;
    }
    const bool mft = mover == Mover::Front && file.path == "C:\\$MFT";
    file.refusal = Request(file.path, mft ? 16 : 0, target, file.size);
    return file.refusal == error::kSuccess ? Tried::Moved : Tried::Next;
  }

  bool Qualifies(Mover mover, const Subject& file, const FreeRun& gap) const {
    if (gap.length < file.size || file.size == 0) return false;
    switch (mover) {
      case Mover::OutOfWay:
        return gap.start > reserved_front_;
      case Mover::Forward:
        return gap.start > reserved_front_ && file.first_lcn > reserved_front_ &&
               gap.start < file.first_lcn;
      case Mover::Front:
        return gap.start < reserved_front_;
      case Mover::Contiguous:
        return true;
      case Mover::ContiguousInFront:
        return file.extents.size() > 1 && file.first_lcn > reserved_front_ &&
               gap.start < reserved_front_;
    }
    return false;
  }

  void Take(Mover mover, const std::string& path) {
    constexpr const char* kTags[] = {"MVE:", "OPT:", "PRF:", "DFR:", "DFR:"};
    Subject file{.tag = kTags[static_cast<int>(mover)], .path = path};
    if (path.empty()) return;
    if (const ErrorCode error = OpenError(path)) {
      Log(file.tag + "can't move: " + path + ", last dll_err:" + settings_.error_text(error));
      return;
    }
    file.extents = Extents(path);
    if (!file.extents.empty()) {
      file.size = file.extents.back().NextVcn;
      file.first_lcn = file.extents.front().Lcn;
    }
    for (const FreeRun& gap : Gaps()) {
      if (!Qualifies(mover, file, gap)) continue;
      if (Try(mover, file, gap) != Tried::Next) return;
    }
    const std::string no_gap = file.tag + "can't move: " + path + ", prolly no gap";
    if (mover == Mover::Contiguous) {
      if (file.size > 0) Pieces(file);
    } else if (mover == Mover::ContiguousInFront && file.extents.size() >= 12) {
      Pieces(file);
    } else if (mover == Mover::ContiguousInFront) {
      Log(no_gap + ", last dll_err:" + settings_.error_text(file.refusal));
    } else if (mover != Mover::Forward || file.shift == 0) {
      Log(no_gap);
    }
  }

  // Whether all of [vcn, vcn + count) is in one hole.
  static bool IsHole(const Subject& file, std::int64_t vcn, std::int64_t count) {
    std::int64_t first = 0;
    return std::ranges::any_of(file.extents, [&](const Extent& extent) {
      const std::int64_t from = std::exchange(first, extent.NextVcn);
      return extent.Lcn == -1 && from <= vcn && vcn + count <= extent.NextVcn;
    });
  }

  void Pieces(Subject& file) {
    Log("DFR:partial_mv: " + file.path + " extents: " + std::to_string(file.extents.size()));
    for (std::int64_t moved = 0; moved <= file.size;) {
      const FreeRunList gaps = Gaps();
      if (gaps.empty()) return;
      const FreeRun gap = *std::ranges::max_element(gaps, {}, &FreeRun::length);
      if (Request(file.path, moved, gap.start, gap.length) != error::kSuccess) return;
      // Nobody is asked to move what follows in a hole.
      for (const bool hole = IsHole(file, moved, gap.length);; moved += gap.length) {
        Log("DFR:partial_mv: " + file.path + "-" + std::to_string(moved) + "-" +
            std::to_string(gap.length) + "-ret:0");
        if (!hole || !IsHole(file, moved + gap.length, gap.length)) break;
      }
      moved += gap.length;
    }
  }

  SimulatedVolume& volume_;
  Settings settings_;
  bool ntfs_;
  bool optimize_mode_ = false;
  std::int64_t sectors_;
  std::int64_t reserved_front_ = 0;
  std::int64_t optimize_area_ = 0;
};

}  // namespace vornalux::testing
