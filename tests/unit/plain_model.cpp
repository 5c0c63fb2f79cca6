// SPDX-License-Identifier: GPL-2.0-or-later
#include "unit/plain_model.h"

#include <algorithm>
#include <ostream>

namespace vornalux::testing {

std::ostream& operator<<(std::ostream& out, const MoveRequest& request) {
  return out << request.path << " vcn " << request.vcn << " to " << request.lcn << " count "
             << request.count << " -> " << request.error;
}

PlainModel::PlainModel(SimulatedVolume& volume, Settings settings)
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

// --- Looking at the volume.

std::optional<StreamRef> PlainModel::Stream(const std::string& path) const {
  const std::size_t colon = path.find(':', 2);
  const auto item = volume_.Find(path.substr(0, colon));
  if (!item) return std::nullopt;
  return StreamRef{*item, colon == std::string::npos ? "" : path.substr(colon)};
}

ErrorCode PlainModel::OpenError(const std::string& path) const {
  const auto stream = Stream(path);
  if (!stream) return error::kFileNotFound;
  return volume_.Locked(stream->item) ? error::kSharingViolation : error::kSuccess;
}

std::vector<Extent> PlainModel::Extents(const std::string& path) const {
  std::vector<Extent> extents;
  if (OpenError(path) == error::kSuccess) volume_.Extents(*Stream(path), extents);
  return extents;
}

std::vector<PlainModel::Gap> PlainModel::Gaps() const {
  const std::int64_t total = volume_.Facts().total_clusters;
  std::vector<std::uint8_t> bits(static_cast<std::size_t>(total / 8 + 1));
  volume_.CopyBitmap(0, bits);
  std::vector<Gap> gaps;
  bool open = false;
  for (std::int64_t lcn = 0; lcn < total; ++lcn) {
    const bool free = (bits[static_cast<std::size_t>(lcn / 8)] & (1U << (lcn % 8))) == 0;
    if (free && !open) gaps.push_back({lcn, 0});
    if (free) ++gaps.back().length;
    open = free;
  }
  return gaps;
}

PlainModel::Gap PlainModel::Largest() const {
  Gap largest;
  for (const Gap& gap : Gaps()) {
    if (gap.length > largest.length) largest = gap;
  }
  return largest;
}

// --- Analysis.

bool PlainModel::UnderPrefetch(const std::string& path) const {
  return path.substr(0, settings_.prefetch_dir.size()) == settings_.prefetch_dir;
}

// The first cluster, looked for behind leading holes.
std::int64_t PlainModel::Position(const std::string& path) {
  for (const Extent& extent : Extents(path)) {
    if (extent.Lcn != -1) return extent.Lcn;
  }
  return -1;
}

// Extents as the walk reads them, which counts items that do not open. Also notes fragments.
std::vector<Extent> PlainModel::Opened(const std::string& path) {
  if (OpenError(path) != error::kSuccess) {
    ++locked;
    return {};
  }
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
  return extents;
}

void PlainModel::FoundFile(const std::string& path) {
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

void PlainModel::WalkFolder(ItemId folder, const std::string& path) {
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

void PlainModel::Analyze(bool optimize_mode) {
  optimize_mode_ = optimize_mode;
  WalkFolder(volume_.Root(), "C:\\");
  for (const std::string& path : settings_.layout) {
    if (optimize_mode && OpenError(path) == error::kSuccess && Position(path) > 0) {
      layout.push_back(path);
    }
  }
}

// --- Passes.

void PlainModel::Defrag(const std::vector<std::string>& fragmented_order) {
  if (ntfs_) Run(Mover::ContiguousInFront, "C:\\$MFT");
  for (const std::string& path : fragmented_order) Run(Mover::Contiguous, path);
}

void PlainModel::Optimize(const std::vector<std::string>& fragmented_order) {
  for (const std::string& path : move_out) Run(Mover::OutOfWay, path);
  if (ntfs_) Run(Mover::ContiguousInFront, "C:\\$MFT");
  for (const std::string& path : prefetch) Run(Mover::Front, path);
  for (const std::string& path : layout) Run(Mover::Front, path);
  for (const std::string& path : dirs) Run(Mover::Front, path);
  for (const std::string& path : optimize) Run(Mover::Forward, path);
  for (const std::string& path : fragmented_order) Run(Mover::Contiguous, path);
}

void PlainModel::Compact() {
  for (const std::string& path : dirs) Run(Mover::Front, path);
  for (const std::string& path : optimize) Run(Mover::Forward, path);
}

// --- Movers.

std::int64_t PlainModel::Shift(std::int64_t distance, std::int64_t count) const {
  constexpr std::int64_t kUnits[] = {0, 0, 8, 5, 4, 3, 3, 2, 2};  // clusters in 16 sectors
  if (!settings_.vss_safe || sectors_ > 8) return 0;
  if (sectors_ == 1) return 3;
  if (count <= sectors_) return 1;
  const std::int64_t unit = kUnits[sectors_];
  const std::int64_t off = (distance < 0 ? -distance : distance) % unit;
  if (off == 0) return 0;
  return distance < 0 ? off + 3 : sectors_ - off + 3;
}

ErrorCode PlainModel::Request(const std::string& path, std::int64_t vcn, std::int64_t lcn,
                              std::int64_t count) {
  ErrorCode error = error::kGenFailure;
  if (!settings_.refused.contains(static_cast<int>(requests.size()) + 1)) {
    error = volume_.Move(*Stream(path), vcn, lcn, count);
  }
  requests.push_back({path, vcn, lcn, count, error});
  return error;
}

PlainModel::Tried PlainModel::Try(Mover mover, Subject& file, const Gap& gap) {
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

bool PlainModel::Qualifies(Mover mover, const Subject& file, const Gap& gap) const {
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

void PlainModel::Run(Mover mover, const std::string& path) {
  const std::map<Mover, std::string> tags = {{Mover::OutOfWay, "MVE:"},
                                             {Mover::Forward, "OPT:"},
                                             {Mover::Front, "PRF:"},
                                             {Mover::Contiguous, "DFR:"},
                                             {Mover::ContiguousInFront, "DFR:"}};
  Subject file{.tag = tags.at(mover), .path = path};
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
  for (const Gap& gap : Gaps()) {
    if (!Qualifies(mover, file, gap)) continue;
    if (Try(mover, file, gap) != Tried::Next) return;
  }
  const std::string no_gap = file.tag + "can't move: " + path + ", prolly no gap";
  if (mover == Mover::Contiguous) {
    if (file.size > 0) Pieces(file);
  } else if (mover == Mover::ContiguousInFront) {
    if (file.extents.size() < 12) {
      Log(no_gap + ", last dll_err:" + settings_.error_text(file.refusal));
    } else {
      Pieces(file);
    }
  } else if (mover != Mover::Forward || file.shift == 0) {
    Log(no_gap);
  }
}

void PlainModel::Pieces(Subject& file) {
  Log("DFR:partial_mv: " + file.path + " extents: " + std::to_string(file.extents.size()));
  for (std::int64_t moved = 0; moved <= file.size;) {
    const Gap gap = Largest();
    if (gap.length == 0) return;
    if (Request(file.path, moved, gap.start, gap.length) != error::kSuccess) return;
    Log("DFR:partial_mv: " + file.path + "-" + std::to_string(moved) + "-" +
        std::to_string(gap.length) + "-ret:0");
    moved += gap.length;
  }
}

}  // namespace vornalux::testing
