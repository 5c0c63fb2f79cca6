// SPDX-License-Identifier: GPL-2.0-or-later
// What a simulated volume answers once it is mounted.
#include <algorithm>
#include <utility>

#include "host/simulated/simulated_volume.h"
#include "text/ascii_case.h"

namespace vornalux {

std::optional<NtfsVolumeData> SimulatedVolume::NtfsData() const {
  if (facts_.file_system != "NTFS") return std::nullopt;
  return geometry_.mft_zone;
}

void SimulatedVolume::CopyBitmap(std::int64_t first_lcn, std::span<std::uint8_t> out) const {
  bits_.Copy(first_lcn, out);
}

bool SimulatedVolume::BitmapChanges(std::uint64_t& mark, std::vector<std::int64_t>& lcns) {
  if (tells_changes_) return bits_.Changes().Since(mark, lcns);
  return MountedVolume::BitmapChanges(mark, lcns);
}

ErrorCode SimulatedVolume::List(ItemId folder, FolderListing& out) {
  if (folder >= items_.size() || (At(folder).attributes & attribute::kDirectory) == 0) {
    return error::kPathNotFound;
  }
  for (std::uint32_t child = At(folder).first_child; child != kNone;
       child = items_[child].next_sibling) {
    if (!out.Add(NameOf(child), items_[child].attributes, child)) return error::kOperationAborted;
  }
  return error::kSuccess;
}

std::string SimulatedVolume::FoldName(std::string_view name) const {
  return UpperCase(std::string(name));
}

std::optional<FolderItem> SimulatedVolume::HiddenItem(ItemId folder, std::string_view name) {
  for (const std::uint32_t item : hidden_) {
    if (items_[item].parent == folder && EqualIgnoringAsciiCase(NameOf(item), name)) {
      return FolderItem{
          .name = std::string(NameOf(item)), .attributes = items_[item].attributes, .id = item};
    }
  }
  return std::nullopt;
}

std::uint32_t SimulatedVolume::FindStream(const StreamRef& stream) const {
  constexpr std::string_view kDataType = ":$DATA";
  if (stream.item >= items_.size()) return kNone;
  std::string_view name = stream.stream;
  if (name.starts_with(':')) name.remove_prefix(1);
  if (name.size() >= kDataType.size() &&
      EqualIgnoringAsciiCase(name.substr(name.size() - kDataType.size()), kDataType)) {
    name.remove_suffix(kDataType.size());
  }
  const bool folder = (At(stream.item).attributes & attribute::kDirectory) != 0;
  if (folder && name.empty() && !stream.stream.empty()) return kNone;
  std::uint32_t found = At(stream.item).first_stream;
  while (found != kNone && !EqualIgnoringAsciiCase(stream_names_[streams_[found].name], name)) {
    found = streams_[found].next;
  }
  return found;
}

ErrorCode SimulatedVolume::Extents(const StreamRef& stream, std::vector<Extent>& out) {
  out.clear();
  const std::uint32_t found = FindStream(stream);
  if (found == kNone) return error::kFileNotFound;
  std::int64_t vcn = 0;
  for (const SimulatedRun& run : runs_.Get(streams_[found].runs)) {
    vcn += run.count;
    out.push_back({.NextVcn = vcn, .Lcn = run.lcn});
  }
  return error::kSuccess;
}

ErrorCode SimulatedVolume::StreamNames(ItemId item, std::vector<std::string>& out) {
  out.clear();
  if (item >= items_.size()) return error::kInvalidParameter;
  for (std::uint32_t stream = At(item).first_stream; stream != kNone;
       stream = streams_[stream].next) {
    const std::string& name = stream_names_[streams_[stream].name];
    const bool folder = (At(item).attributes & attribute::kDirectory) != 0;
    if (!folder || !name.empty()) out.push_back(":" + name + ":$DATA");
  }
  return error::kSuccess;
}

std::int64_t SimulatedVolume::VcnCount(std::uint32_t stream) const {
  std::int64_t clusters = 0;
  for (const SimulatedRun& run : runs_.Get(streams_[stream].runs)) clusters += run.count;
  return clusters;
}

ErrorCode SimulatedVolume::Read(const StreamRef& stream, std::uint64_t offset,
                                std::span<std::uint8_t> out, std::size_t& done) {
  done = 0;
  const std::uint32_t found = FindStream(stream);
  if (found == kNone) return error::kFileNotFound;

  const std::uint64_t cluster_size =
      std::uint64_t{facts_.bytes_per_sector} * facts_.sectors_per_cluster;
  const auto fixed = contents_.find(stream.item);
  const bool is_fixed = fixed != contents_.end() && streams_[found].name == 0;
  const std::uint64_t size =
      is_fixed ? fixed->second.size() : static_cast<std::uint64_t>(VcnCount(found)) * cluster_size;
  if (offset >= size) return error::kSuccess;
  out = out.first(static_cast<std::size_t>(std::min<std::uint64_t>(out.size(), size - offset)));
  done = out.size();
  if (is_fixed) {
    const auto from = fixed->second.begin() + static_cast<std::ptrdiff_t>(offset);
    std::copy(from, from + static_cast<std::ptrdiff_t>(done), out.begin());
    return error::kSuccess;
  }

  std::uint64_t run_start = 0;  // bytes
  for (const SimulatedRun& run : runs_.Get(streams_[found].runs)) {
    const std::uint64_t run_end = run_start + static_cast<std::uint64_t>(run.count) * cluster_size;
    for (std::uint64_t at = std::max(offset, run_start); at < std::min(offset + done, run_end);
         ++at) {
      const auto lcn = static_cast<std::size_t>(run.lcn) +
                       static_cast<std::size_t>((at - run_start) / cluster_size);
      const std::uint64_t stamp = run.lcn < 0 ? 0 : stamps_[lcn];
      out[static_cast<std::size_t>(at - offset)] = static_cast<std::uint8_t>(stamp >> (at % 8 * 8));
    }
    run_start = run_end;
  }
  return error::kSuccess;
}

// The range lies inside the stream.
ErrorCode SimulatedVolume::CheckTarget(std::uint32_t stream, std::int64_t vcn, std::int64_t lcn,
                                       std::int64_t count) const {
  std::int64_t start = 0;
  std::int64_t needed = 0;
  for (const SimulatedRun& run : runs_.Get(streams_[stream].runs)) {
    const std::int64_t end = start + run.count;
    const std::int64_t inside = std::min(end, vcn + count) - std::max(start, vcn);
    if (run.lcn >= 0 && inside > 0) needed += inside;
    start = end;
  }
  if (needed > bits_.Clusters() - lcn) return error::kInvalidParameter;
  const auto immovable = immovable_below_.find(streams_[stream].item);
  if (immovable != immovable_below_.end() && vcn < immovable->second) return error::kAccessDenied;
  return bits_.RangeFree(lcn, needed) ? error::kSuccess : error::kAccessDenied;
}

// The time that the move takes.
bool SimulatedVolume::GivenUp(std::int64_t count, const MoveCheckpoint& checkpoint) {
  if (!checkpoint.reached || checkpoint.every < 1) return false;
  moving_ = true;
  bool end = false;
  for (std::int64_t moved = checkpoint.every; moved < count && !end; moved += checkpoint.every) {
    end = checkpoint.reached(moved);
  }
  moving_ = false;
  return end;
}

ErrorCode SimulatedVolume::Move(const StreamRef& stream, std::int64_t vcn, std::int64_t lcn,
                                std::int64_t count, const MoveCheckpoint& checkpoint) {
  if (closed_ || moving_) return error::kNotReady;
  const std::uint32_t found = FindStream(stream);
  if (found == kNone) return error::kFileNotFound;
  const std::int64_t size = VcnCount(found);
  if (count < 1 || vcn < 0 || vcn >= size || lcn < 0 || lcn >= bits_.Clusters()) {
    return error::kInvalidParameter;
  }
  count = std::min(count, size - vcn);
  if (const ErrorCode error = CheckTarget(found, vcn, lcn, count)) return error;
  if (GivenUp(count, checkpoint)) return error::kOperationAborted;
  // Somebody may have been quicker.
  if (vcn + count > VcnCount(found)) return error::kFileNotFound;
  if (const ErrorCode error = CheckTarget(found, vcn, lcn, count)) return error;

  std::vector<SimulatedRun> after;
  std::int64_t target = lcn;
  std::int64_t start = 0;
  for (const SimulatedRun& run : runs_.Get(streams_[found].runs)) {
    // What of the run is inside the range, counted from the run's start.
    const std::int64_t from = std::clamp<std::int64_t>(vcn - start, 0, run.count);
    const std::int64_t to = std::clamp<std::int64_t>(vcn + count - start, from, run.count);
    start += run.count;
    if (run.lcn < 0 || from == to) {
      after.push_back(run);
      continue;
    }
    MoveRun({run.lcn + from, to - from}, target);
    after.push_back({run.lcn, from});
    after.push_back({target, to - from});
    after.push_back({run.lcn + to, run.count - to});
    target += to - from;
  }
  JoinRuns(after);
  runs_.Set(streams_[found].runs, after);
  return error::kSuccess;
}

void SimulatedVolume::MoveRun(const SimulatedRun& source, std::int64_t target) {
  bits_.Set(target, source.count, true);
  const auto from = stamps_.begin() + static_cast<std::ptrdiff_t>(source.lcn);
  std::copy(from, from + static_cast<std::ptrdiff_t>(source.count),
            stamps_.begin() + static_cast<std::ptrdiff_t>(target));
  bits_.Set(source.lcn, source.count, false);
  clusters_moved_ += source.count;
}

ErrorCode SimulatedVolume::Commit() { return error::kSuccess; }

ErrorCode SimulatedVolume::Close() {
  closed_ = true;
  return error::kSuccess;
}

ErrorCode SimulatedVolume::ReadDevice(std::uint64_t offset, std::span<std::uint8_t> out) {
  std::string sector(facts_.bytes_per_sector, '\0');
  sector.replace(54, 8, "FAT16   ");
  if (facts_.file_system == "FAT32") sector.replace(82, 8, "FAT32   ");
  std::fill(out.begin(), out.end(), std::uint8_t{0});
  if (offset < sector.size()) {
    const std::string_view rest = std::string_view(sector).substr(static_cast<std::size_t>(offset));
    std::copy_n(rest.begin(), std::min(rest.size(), out.size()), out.begin());
  }
  return error::kSuccess;
}

}  // namespace vornalux
