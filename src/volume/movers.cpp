// SPDX-License-Identifier: GPL-2.0-or-later
#include "volume/movers.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "volume/system_error_text.h"

namespace vornalux {
namespace {

constexpr std::int64_t kCannotOpen = -1;
// Shift results from here on are 3 + the clusters to shift by.
constexpr std::int64_t kLeastShift = 4;
constexpr std::int64_t kMftFirstMovableVcn = 16;
constexpr std::int32_t kWorthPieces = 12;  // extents
// A few seconds of a slow disk's time, next to which a request of its own costs nothing.
constexpr std::int64_t kCheckpointSectors = 32768;
// What moves are aligned to for shadow copies, and the unit of compressed files.
constexpr std::int64_t kCheckpointUnit = 16;  // clusters
constexpr std::int64_t kOne = 1;
constexpr std::int64_t kAnywhere = std::numeric_limits<std::int64_t>::max();

bool IsMasterFileTable(const std::string& path) {
  return path.size() > 2 && path.substr(2) == "\\$MFT";
}

std::uint32_t RequestCount(std::int64_t clusters) {
  return static_cast<std::uint32_t>(
      std::min<std::int64_t>(clusters, std::numeric_limits<std::int32_t>::max()));
}

}  // namespace

struct Movers::Item {
  std::string_view tag;
  std::string path;
  OwnedFile file;
  ExtentRecord extents;
  std::int64_t alignment = 0;  // of the last gap tried
  ErrorCode refusal = error::kSuccess;
  bool stays = false;     // needs no move: not a failure when there is none
  bool in_front = false;  // of the master file table: begins where it is to begin
  bool pinned = false;    // refused whatever the gap

  std::int64_t Size() const { return extents.SizeInClusters(); }

  // Clusters, holes left out, among [vcn, vcn + count).
  std::int64_t Allocated(std::int64_t vcn, std::int64_t count) const {
    std::int64_t all = 0;
    extents.EachRun(vcn, count, [&](std::int64_t, std::int64_t clusters) { all += clusters; });
    return all;
  }
  // Where the hole ends that a VCN lies in; the VCN itself where there is none.
  std::int64_t EndOfHole(std::int64_t vcn) const {
    for (auto extent = extents.At(vcn); extent != extents.extents.end() && extent->Lcn == -1;
         ++extent) {
      vcn = extent->NextVcn;
    }
    return vcn;
  }
};

ErrorCode Movers::MoveClusters(Handle volume, Handle file, std::int64_t starting_vcn,
                               std::uint32_t count, std::int64_t starting_lcn, bool must_finish,
                               std::optional<std::int64_t> shown) {
  view_.SetActivity(activity_colour::kMoving);
  if (shown) view_.SetValue(*shown);
  platform_.desktop.DoEvents();
  const auto reached = [this, must_finish, shown](std::int64_t moved) {
    statistics.clusters_in_hand = moved;
    if (shown) view_.SetValue(*shown + moved);
    platform_.desktop.DoEvents();
    return flags_.StopRequested != False && !must_finish;
  };
  ErrorCode result = error::kOperationAborted;
  if (!flags_.ProgramEnded && (must_finish || !flags_.StopRequested)) {
    result = platform_.volumes.MoveClusters(
        volume, file, starting_vcn, starting_lcn, count,
        {.every = CheckpointClusters(), .reached = reached, .must_finish = must_finish});
  }
  view_.SetActivity(activity_colour::kResting);
  platform_.desktop.DoEvents();
  // Only now, when they are about to count as moved: what is shown must not fall in between.
  statistics.clusters_in_hand = 0;
  return result;
}

std::int64_t Movers::CheckpointClusters() const {
  const std::int64_t sectors = std::max(geometry_.constants.SectorsPerCluster, 1);
  return std::max(kCheckpointSectors / sectors / kCheckpointUnit, std::int64_t{1}) *
         kCheckpointUnit;
}

// Given up because the run ends: the file is none that could not be moved.
bool Movers::Stopped(ErrorCode result) const {
  return result == error::kOperationAborted && flags_.StopRequested;
}

// Whatever the gap, no move of so many clusters can be aligned.
bool Movers::NeverAligned(std::int64_t count) const {
  const std::int64_t sectors = geometry_.constants.SectorsPerCluster;
  if (!flags_.VssSafe || sectors >= 9) return false;
  return sectors < 2 || 16.0 / static_cast<double>(sectors) * static_cast<double>(count) <= 16;
}

std::int64_t Movers::VssAlignShift(std::int64_t current_lcn, std::int64_t target_lcn,
                                   std::int64_t count) const {
  const std::int64_t sectors = geometry_.constants.SectorsPerCluster;
  if (!flags_.VssSafe || sectors >= 9) return 0;
  if (sectors < 2) return 3;
  const double clusters = 16.0 / static_cast<double>(sectors);
  if (NeverAligned(count)) return 1;
  const auto unit = static_cast<std::int64_t>(std::nearbyint(clusters));
  const std::int64_t distance = target_lcn - current_lcn;
  const std::int64_t rest = distance % unit;
  if (rest == 0) return 0;
  // The two directions differ on purpose: forward the shift is counted from the cluster's sectors.
  return distance > 0 ? sectors - rest + 3 : -rest + 3;
}

// Opens the file and reads what every mover decides by. False, with the reason logged, when it
// cannot be opened.
bool Movers::Begin(std::string_view tag, const std::string& path, Item& item) {
  item.tag = tag;
  item.path = path;
  const std::string long_path = LongPath(path);
  Files& files = platform_.files;
  item.file = {files,
               files.OpenPath(long_path, FileAccess::ReadAttributes, FileFlags::None).handle};
  if (!item.file) {
    // This attempt only settles who else holds the file; its handle is never moved through.
    const OwnedFile set_aside(
        files, files.OpenPath(long_path, FileAccess::GenericRead, FileFlags::NoBuffering).handle);
    const OpenedFile last =
        files.OpenPath(long_path, FileAccess::GenericRead, FileFlags::BackupSemantics);
    item.file = {files, last.handle};
    if (!item.file) {
      item.refusal = last.error;
      GiveUp(item, NotMoved::CannotOpen);
      if (trace_.On()) {
        trace_.Line(std::string(tag) + "can't move: " + path +
                    ", last dll_err:" + SystemErrorText(platform_, last.error));
      }
      return false;
    }
  }
  view_.SetCurrentFile(path);
  const GapIndex& gaps = geometry_.LookAtGaps();
  if (!statistics.at_first) statistics.at_first = RegionsOf(gaps.List());
  item.extents = extents_.ReadExtents(path, false, false);
  item.stays = item.Size() == 0;
  return true;
}

void Movers::GiveUp(Item& item, NotMoved reason) {
  if (item.stays) return;
  statistics.failures.push_back({item.path, reason, item.refusal, item.Size()});
}

NotMoved Movers::WhyNotWhole(const Item& item) const {
  if (item.refusal != error::kSuccess) return NotMoved::Refused;
  if (item.alignment != 0 && item.alignment < kLeastShift) return NotMoved::Alignment;
  if (item.in_front) return NotMoved::FewPieces;
  return geometry_.bitmap.Gaps().LargestGap().length >= item.Size() ? NotMoved::NoPlace
                                                                    : NotMoved::NoGap;
}

void Movers::NoGap(Item& item, const std::string& detail) {
  GiveUp(item, WhyNotWhole(item));
  trace_.Line(std::string(item.tag) + "can't move: " + item.path + ", prolly no gap" + detail);
}

// What a request of an item has come to. What lies past a file's end is no move, though FAT calls
// it one.
void Movers::Enter(const Item& item, ErrorCode result, std::int64_t vcn, std::int64_t count,
                   std::int64_t target) {
  const std::int64_t clusters = item.Allocated(vcn, count);
  if (result != error::kSuccess) {
    if (!Stopped(result)) geometry_.bitmap.EnterRefusal(target, std::max(clusters, kOne));
  } else if (clusters > 0) {
    geometry_.bitmap.EnterMove(item.extents, vcn, count, target);
    ++statistics.moves;
    statistics.clusters_moved += clusters;
  }
}

// Windows' FAT refuses the first cluster of every folder, and says so in the words it has for a bad
// target. To offer it each gap of a volume takes minutes.
bool Movers::Pinned(const Item& item) const {
  VolumeName names;
  return item.refusal == error::kInvalidParameter &&
         platform_.volumes.VolumeNames(item.path.substr(0, 2) + "\\", names) == error::kSuccess &&
         names.file_system.starts_with("FAT") &&
         platform_.files.FindFirst(LongPath(item.path) + "\\*") != nullptr;
}

// Moves the whole file into a gap that qualifies, shifted as the alignment asks.
Movers::Attempt Movers::TryGap(Item& item, const FreeRun& gap, std::int64_t starting_vcn) {
  item.alignment = VssAlignShift(item.extents.FirstLcn(), gap.start, item.Size());
  std::int64_t target = gap.start;
  if (item.alignment >= kLeastShift) {
    target += item.alignment - 3;
  } else if (item.alignment != 0) {
    if (!trace_.On()) return Attempt::NextGap;
    GiveUp(item, NotMoved::Alignment);
    trace_.Line(std::string(item.tag) + "can't move: " + item.path +
                " - vss_safe: " + std::to_string(item.alignment));
    return Attempt::EndSearch;
  }
  const ErrorCode result = MoveClusters(geometry_.VolumeHandle, item.file.get(), starting_vcn,
                                        RequestCount(item.Size()), target);
  Enter(item, result, starting_vcn, item.Size(), target);
  item.refusal = result;
  if (result == error::kSuccess) return Attempt::Moved;
  if (Stopped(result)) return Attempt::EndSearch;
  ++statistics.refused;
  item.pinned = starting_vcn == 0 && Pinned(item);
  return Attempt::NextGap;
}

// Offers the file each gap that holds it and begins in [from, below), from the lowest on. False: it
// was moved into none, and the search has come to its end.
bool Movers::TryGaps(Item& item, std::int64_t from, std::int64_t below, std::int64_t starting_vcn,
                     bool let_events_happen) {
  while (item.Size() > 0 && !item.pinned) {
    if (let_events_happen) platform_.desktop.DoEvents();
    const FreeRun gap = geometry_.FindGap(from, below, item.Size());
    if (gap.length == 0) break;
    if (TryGap(item, gap, starting_vcn) != Attempt::NextGap) return true;
    if (NeverAligned(item.Size())) break;
    from = std::int64_t{gap.start} + 1;
  }
  return false;
}

std::int64_t Movers::MoveWholeFile(const std::string& path) {
  Item item;
  if (!Begin("MVE:", path, item)) return kCannotOpen;
  const std::int64_t front = geometry_.constants.ReservedFront;
  if (!TryGaps(item, front + 1, kAnywhere, 0)) NoGap(item);
  return 0;
}

std::int64_t Movers::OptimizeFile(const std::string& path) {
  Item item;
  if (!Begin("OPT:", path, item)) return kCannotOpen;
  const std::int64_t current = item.extents.FirstLcn();
  const std::int64_t front = geometry_.constants.ReservedFront;
  item.stays = item.stays || current < front;
  if (TryGaps(item, front + 1, current, 0, true)) return 0;
  if (item.alignment == 0) {
    NoGap(item);
  } else {
    GiveUp(item, item.refusal != error::kSuccess ? NotMoved::Refused : NotMoved::Alignment);
  }
  return 0;
}

std::int64_t Movers::PlacePrefetchFile(const std::string& path) {
  Item item;
  if (!Begin("PRF:", path, item)) return kCannotOpen;
  const std::int64_t first_vcn = IsMasterFileTable(path) ? kMftFirstMovableVcn : 0;
  if (!TryGaps(item, 0, geometry_.constants.ReservedFront, first_vcn)) NoGap(item);
  return 0;
}

std::int64_t Movers::DefragmentFile(const std::string& path) {
  Item item;
  if (!Begin("DFR:", path, item)) return kCannotOpen;
  if (item.Size() == 0) return 0;
  return TryGaps(item, 0, kAnywhere, 0) ? item.refusal : MoveInPieces(item);
}

std::int64_t Movers::DefragmentFileInFront(const std::string& path, bool use_reserved_front) {
  Item item;
  if (!Begin("DFR:", path, item)) return kCannotOpen;
  const std::int64_t bound = use_reserved_front ? geometry_.constants.ReservedFront : 0;
  item.stays = item.stays || !item.extents.Fragmented();
  item.in_front = item.extents.FirstLcn() <= bound;
  if (item.extents.Fragmented() && item.extents.FirstLcn() > bound && TryGaps(item, 0, bound, 0)) {
    return item.refusal;
  }
  if (item.extents.Count() < kWorthPieces) {
    NoGap(item, trace_.On() ? ", last dll_err:" + SystemErrorText(platform_, item.refusal) : "");
    return 0;
  }
  return MoveInPieces(item);
}

std::int64_t Movers::MoveInPieces(Item& item) {
  trace_.Line("DFR:partial_mv: " + item.path + " extents: " + std::to_string(item.extents.Count()));
  const MovedInPieces pieces = {item.path, WhyNotWhole(item), item.refusal};
  std::int64_t moved = 0;
  ErrorCode result = error::kSuccess;
  const auto next = [&] { return geometry_.FindLargestGap(std::max(item.Size() - moved, kOne)); };
  for (FreeRun largest = next(); largest.length > 0; largest = next()) {
    platform_.desktop.DoEvents();
    const std::int64_t vcn = moved;
    const std::uint32_t count = static_cast<std::uint32_t>(largest.length);
    result = MoveClusters(geometry_.VolumeHandle, item.file.get(), vcn, count, largest.start);
    Enter(item, result, vcn, count, largest.start);
    if (result == error::kSuccess) {
      if (vcn == 0 && count < item.Size()) statistics.in_pieces.push_back(pieces);
    } else if (vcn < item.Size() && !Stopped(result)) {
      ++statistics.refused;
      item.refusal = result;
      GiveUp(item, NotMoved::Refused);
    }
    if (result != error::kSuccess || flags_.StopRequested) return result;
    // Where one piece of a hole goes, the others go as well: there is nothing to ask for.
    const std::int64_t done = std::max((item.EndOfHole(vcn) - vcn) / count, kOne);
    for (std::int64_t i = 0; trace_.On() && i < done; ++i) {
      trace_.Line("DFR:partial_mv: " + item.path + "-" + std::to_string(vcn + i * count) + "-" +
                  std::to_string(count) + "-ret:" + std::to_string(result));
    }
    moved += done * count;
    geometry_.LookAtGaps();
    // A file that ends exactly with a piece asks once more, past its end, which NTFS refuses and
    // FAT takes for done.
    if (moved > item.Size()) return result;
  }
  if (moved < item.Size()) GiveUp(item, NotMoved::NoGap);
  return result;
}

Movers::Planned Movers::MovePlanned(const std::string& path, const std::vector<Leg>& legs,
                                    bool must_finish) {
  Item item;
  if (!Begin("THR:", path, item)) return Planned::CannotOpen;
  struct Request {
    std::int64_t vcn = 0;
    std::int64_t count = 0;
    std::int64_t target = 0;
    std::vector<Leg> legs = {};  // what it is made of
  };
  std::vector<Request> requests;
  for (const Leg& leg : legs) {
    geometry_.bitmap.StillSo(leg.to, leg.length);
    if (!geometry_.bitmap.Gaps().IsFree(leg.to, leg.length)) return Planned::Changed;
    std::int64_t found = 0;
    std::int64_t vcn = 0;
    for (const Extent& extent : item.extents.extents) {
      const std::int64_t end = extent.Lcn + extent.NextVcn - vcn;
      const std::int64_t first = std::max<std::int64_t>(extent.Lcn, leg.from);
      const std::int64_t last = std::min<std::int64_t>(end, std::int64_t{leg.from} + leg.length);
      if (extent.Lcn >= 0 && first < last) {
        const std::int64_t first_vcn = vcn + first - extent.Lcn;
        const std::int64_t target = leg.to + (first - leg.from);
        if (requests.empty() || requests.back().vcn + requests.back().count != first_vcn ||
            requests.back().target + requests.back().count != target) {
          requests.push_back({first_vcn, 0, target});
        }
        requests.back().count += last - first;
        requests.back().legs.push_back({static_cast<std::int32_t>(target),
                                        static_cast<std::int32_t>(first),
                                        static_cast<std::int32_t>(last - first)});
        found += last - first;
      }
      vcn = extent.NextVcn;
    }
    if (found != leg.length) return Planned::Changed;
  }
  std::int64_t shown = view_.Value();
  const auto move = [&](std::int64_t vcn, std::int64_t count, std::int64_t target, bool finish) {
    return MoveClusters(geometry_.VolumeHandle, item.file.get(), vcn, RequestCount(count), target,
                        finish, shown);
  };
  for (std::size_t i = 0; i < requests.size(); ++i) {
    const Request& request = requests[i];
    item.refusal = move(request.vcn, request.count, request.target, must_finish);
    Enter(item, item.refusal, request.vcn, request.count, request.target);
    if (item.refusal == error::kSuccess) {
      shown += request.count;
      continue;
    }
    if (i > 0) geometry_.bitmap.Distrust();  // some of it went back
    for (std::size_t back = i; back-- > 0;) {
      std::int64_t vcn = requests[back].vcn;
      for (const Leg& leg : requests[back].legs) {
        move(vcn, leg.length, leg.to, true);
        vcn += leg.length;
      }
    }
    if (Stopped(item.refusal)) return Planned::Stopped;
    ++statistics.refused;
    GiveUp(item, NotMoved::Refused);
    return Planned::Refused;
  }
  return Planned::Done;
}

}  // namespace vornalux
