// SPDX-License-Identifier: GPL-2.0-or-later
// Building a simulated volume.
#include "host/simulated/simulated_volume.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "host/simulated/stamp.h"
#include "text/ascii_case.h"

namespace vornalux {

namespace {

std::string_view WithoutDrive(std::string_view path) {
  if (path.size() >= 2 && path[1] == ':') path.remove_prefix(2);
  if (path.starts_with('\\')) path.remove_prefix(1);
  return path;
}

std::string_view TakeComponent(std::string_view& rest) {
  const std::size_t end = rest.find('\\');
  const std::string_view component = rest.substr(0, end);
  rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
  return component;
}

[[noreturn]] void Refuse(std::string_view what, std::string_view where) {
  throw std::invalid_argument(std::string(what) + ": " + std::string(where));
}

// The same for a stream as long as its VCNs and the number of those in holes stay what they are.
std::uint64_t Shape(std::span<const SimulatedRun> runs) {
  std::uint64_t vcns = 0;
  std::uint64_t allocated = 0;
  for (const SimulatedRun& run : runs) {
    vcns += static_cast<std::uint64_t>(run.count);
    if (run.lcn >= 0) allocated += static_cast<std::uint64_t>(run.count);
  }
  return vcns * 0x9E3779B97F4A7C15U + allocated;
}

}  // namespace

SimulatedVolume::SimulatedVolume(SimulatedGeometry geometry)
    : geometry_(std::move(geometry)),
      bits_(geometry_.total_clusters),
      foreign_(geometry_.total_clusters),
      stamps_(static_cast<std::size_t>(geometry_.total_clusters)),
      stream_names_(1) {
  facts_ = {.file_system = geometry_.file_system,
            .label = geometry_.label,
            .serial = 0x5EED,
            .bytes_per_sector = geometry_.bytes_per_sector,
            .sectors_per_cluster = geometry_.sectors_per_cluster,
            .total_clusters = geometry_.total_clusters};
  NewItem({}, attribute::kDirectory, kNone);
  items_[0].first_stream = NewStream(0, {}, {});
}

std::uint32_t SimulatedVolume::NewItem(std::string_view name, std::uint32_t attributes,
                                       std::uint32_t parent) {
  const auto index = static_cast<std::uint32_t>(items_.size());
  items_.push_back({.name_at = static_cast<std::uint32_t>(names_.size()),
                    .name_size = static_cast<std::uint32_t>(name.size()),
                    .attributes = attributes,
                    .parent = parent});
  names_ += name;
  return index;
}

std::uint32_t SimulatedVolume::NewStream(std::uint32_t item, std::string_view name,
                                         std::span<const SimulatedRun> runs) {
  const auto index = static_cast<std::uint32_t>(streams_.size());
  std::int64_t vcn = 0;
  for (const SimulatedRun& run : runs) {
    if (run.count < 1 || run.lcn < -1) Refuse("impossible run", NameOf(item));
    if (run.lcn >= 0) {
      if (run.lcn > bits_.Clusters() - run.count) Refuse("run past the volume", NameOf(item));
      if (!bits_.RangeFree(run.lcn, run.count)) Refuse("clusters in use", NameOf(item));
      bits_.Set(run.lcn, run.count, true);
      for (std::int64_t i = 0; i < run.count; ++i) {
        stamps_[static_cast<std::size_t>(run.lcn + i)] = Stamp(index, vcn + i);
      }
    }
    vcn += run.count;
  }
  Stream stream{.item = item, .shape = Shape(runs)};
  if (!name.empty()) {
    stream.name = static_cast<std::uint32_t>(stream_names_.size());
    stream_names_.emplace_back(name);
  }
  std::vector<SimulatedRun> joined(runs.begin(), runs.end());
  JoinRuns(joined);
  runs_.Set(stream.runs, joined);
  streams_.push_back(stream);
  return index;
}

ItemId SimulatedVolume::AddItem(ItemId folder, std::string_view name,
                                std::span<const SimulatedRun> runs, std::uint32_t attributes) {
  const auto parent = static_cast<std::uint32_t>(folder);
  const std::uint32_t item = NewItem(name, attributes, parent);
  items_[item].first_stream = NewStream(item, {}, runs);
  Item& home = items_[parent];
  (home.last_child == kNone ? home.first_child : items_[home.last_child].next_sibling) = item;
  home.last_child = item;
  return item;
}

ItemId SimulatedVolume::AddByPath(std::string_view path, std::span<const SimulatedRun> runs,
                                  std::uint32_t attributes) {
  const std::string_view within = WithoutDrive(path);
  const std::size_t last = within.rfind('\\');
  const bool in_root = last == std::string_view::npos;
  const std::string_view name = in_root ? within : within.substr(last + 1);
  const ItemId folder = in_root ? Root() : CheckedFolder(within.substr(0, last));
  if (name.empty()) Refuse("no name", path);
  if (FindChild(static_cast<std::uint32_t>(folder), name) != kNone) Refuse("exists already", path);
  return AddItem(folder, name, runs, attributes);
}

ItemId SimulatedVolume::CheckedFolder(std::string_view path) {
  std::uint32_t folder = 0;
  for (std::string_view rest = path; !rest.empty();) {
    const std::string_view name = TakeComponent(rest);
    std::uint32_t next = FindChild(folder, name);
    if (next == kNone) {
      next = static_cast<std::uint32_t>(AddItem(folder, name, {}, attribute::kDirectory));
    }
    if ((items_[next].attributes & attribute::kDirectory) == 0) Refuse("not a folder", path);
    folder = next;
  }
  return folder;
}

ItemId SimulatedVolume::AddFolder(std::string_view path, const std::vector<SimulatedRun>& runs) {
  return AddByPath(path, runs, attribute::kDirectory);
}

ItemId SimulatedVolume::AddFile(std::string_view path, const std::vector<SimulatedRun>& runs,
                                std::uint32_t attributes) {
  return AddByPath(path, runs, attributes);
}

void SimulatedVolume::AddStream(ItemId item, std::string_view name,
                                std::span<const SimulatedRun> runs) {
  if (name.empty() || name.find(':') != std::string_view::npos) Refuse("no stream name", name);
  const std::uint32_t stream = NewStream(static_cast<std::uint32_t>(item), name, runs);
  std::uint32_t* link = &At(item).first_stream;
  while (*link != kNone) link = &streams_[*link].next;
  *link = stream;
}

void SimulatedVolume::Remove(ItemId file) {
  Item& folder = items_[At(file).parent];
  std::uint32_t before = kNone;
  std::uint32_t child = folder.first_child;
  for (; child != file; child = items_[child].next_sibling) before = child;
  (before == kNone ? folder.first_child : items_[before].next_sibling) = At(file).next_sibling;
  if (folder.last_child == file) folder.last_child = before;
  for (std::uint32_t i = At(file).first_stream; i != kNone; i = streams_[i].next) {
    for (const SimulatedRun& run : runs_.Get(streams_[i].runs)) {
      if (run.lcn >= 0) bits_.Set(run.lcn, run.count, false);
    }
    runs_.Set(streams_[i].runs, {});
    streams_[i].shape = Shape({});
  }
}

ItemId SimulatedVolume::AddMft(const std::vector<SimulatedRun>& runs) {
  constexpr std::int64_t kFixedMftClusters = 16;
  const std::uint32_t item = NewItem("$MFT", attribute::kHidden | attribute::kSystem, 0);
  items_[item].first_stream = NewStream(item, {}, runs);
  hidden_.push_back(item);
  MakeImmovable(item, kFixedMftClusters);
  return item;
}

void SimulatedVolume::SetContent(ItemId file, std::string bytes) {
  contents_[file] = std::move(bytes);
}

void SimulatedVolume::SetAttributes(ItemId item, std::uint32_t attributes) {
  At(item).attributes = attributes;
}

void SimulatedVolume::MakeImmovable(ItemId item, std::int64_t below_vcn) {
  immovable_below_[item] = below_vcn;
}

void SimulatedVolume::Lock(ItemId item, bool locked) {
  if (locked) {
    locked_.insert(item);
  } else {
    locked_.erase(item);
  }
}

void SimulatedVolume::TakeClusters(std::int64_t lcn, std::int64_t count) {
  const std::int64_t end = std::min(lcn + count, bits_.Clusters());
  for (std::int64_t cluster = std::max<std::int64_t>(lcn, 0); cluster < end; ++cluster) {
    if (bits_.Used(cluster)) continue;
    bits_.Set(cluster, 1, true);
    foreign_.Set(cluster, 1, true);
    stamps_[static_cast<std::size_t>(cluster)] = 0;
  }
}

void SimulatedVolume::ReleaseClusters(std::int64_t lcn, std::int64_t count) {
  const std::int64_t end = std::min(lcn + count, bits_.Clusters());
  for (std::int64_t cluster = std::max<std::int64_t>(lcn, 0); cluster < end; ++cluster) {
    if (!foreign_.Used(cluster)) continue;
    bits_.Set(cluster, 1, false);
    foreign_.Set(cluster, 1, false);
  }
}

void SimulatedVolume::Overwrite(std::int64_t lcn, std::int64_t count) {
  std::fill_n(stamps_.begin() + static_cast<std::ptrdiff_t>(lcn), count, std::uint64_t{0});
}

void SimulatedVolume::MisstateBitmap(std::int64_t lcn, std::int64_t count, bool used) {
  bits_.Set(lcn, count, used);
}

std::string_view SimulatedVolume::NameOf(std::uint32_t item) const {
  return std::string_view(names_).substr(items_[item].name_at, items_[item].name_size);
}

std::uint32_t SimulatedVolume::FindChild(std::uint32_t folder, std::string_view name) const {
  std::uint32_t child = items_[folder].first_child;
  while (child != kNone && !EqualIgnoringAsciiCase(NameOf(child), name)) {
    child = items_[child].next_sibling;
  }
  return child;
}

std::optional<ItemId> SimulatedVolume::Find(std::string_view path) const {
  std::uint32_t item = 0;
  for (std::string_view rest = WithoutDrive(path); !rest.empty();) {
    const std::string_view name = TakeComponent(rest);
    const std::uint32_t folder = item;
    item = FindChild(folder, name);
    if (item != kNone) continue;
    const auto hidden = std::find_if(hidden_.begin(), hidden_.end(), [&](std::uint32_t candidate) {
      return items_[candidate].parent == folder && EqualIgnoringAsciiCase(NameOf(candidate), name);
    });
    if (hidden == hidden_.end()) return std::nullopt;
    item = *hidden;
  }
  return item;
}

std::string SimulatedVolume::PathOf(ItemId item) const {
  std::string path;
  for (auto at = static_cast<std::uint32_t>(item); items_[at].parent != kNone;
       at = items_[at].parent) {
    if (!path.empty()) path.insert(0, 1, '\\');
    path.insert(0, NameOf(at));
  }
  return path;
}

std::vector<SimulatedRun> SimulatedVolume::RunsOf(std::string_view path) const {
  const std::optional<ItemId> item = Find(path);
  if (!item || At(*item).first_stream == kNone) Refuse("no such stream", path);
  const auto runs = runs_.Get(streams_[At(*item).first_stream].runs);
  return {runs.begin(), runs.end()};
}

namespace {

// Keeps reports of a broken volume readable.
class Findings {
 public:
  bool Full() const { return lines_.size() >= 10; }
  void Add(std::string line) {
    if (!Full()) lines_.push_back(std::move(line));
  }
  std::vector<std::string> Take() { return std::move(lines_); }

 private:
  std::vector<std::string> lines_;
};

}  // namespace

std::vector<std::string> SimulatedVolume::ConsistencyProblems() const {
  Findings findings;
  ClusterBits owned(bits_.Clusters());
  for (const Stream& stream : streams_) {
    const auto report = [&](const char* what, const SimulatedRun& run) {
      findings.Add(what + PathOf(stream.item) + ", clusters " + std::to_string(run.lcn) + " to " +
                   std::to_string(run.lcn + run.count - 1));
    };
    for (const SimulatedRun& run : runs_.Get(stream.runs)) {
      if (run.lcn < 0) continue;
      if (run.count < 1 || run.lcn > bits_.Clusters() - run.count) {
        report("outside the volume: ", run);
        continue;
      }
      if (!owned.RangeFree(run.lcn, run.count)) report("owned twice: ", run);
      owned.Set(run.lcn, run.count, true);
    }
  }
  for (std::int64_t lcn = 0; lcn < bits_.Clusters() && !findings.Full(); ++lcn) {
    const bool used = bits_.Used(lcn);
    if (owned.Used(lcn) && foreign_.Used(lcn)) {
      findings.Add("owned, but taken by somebody else: cluster " + std::to_string(lcn));
    } else if (used != (owned.Used(lcn) || foreign_.Used(lcn))) {
      findings.Add((used ? "used by nobody: cluster " : "owned but free: cluster ") +
                   std::to_string(lcn));
    }
  }
  return findings.Take();
}

bool SimulatedVolume::StreamIntact(std::uint32_t stream) const {
  const auto runs = runs_.Get(streams_[stream].runs);
  if (Shape(runs) != streams_[stream].shape) return false;
  std::int64_t vcn = 0;
  for (const SimulatedRun& run : runs) {
    for (std::int64_t i = 0; run.lcn >= 0 && i < run.count; ++i) {
      if (stamps_[static_cast<std::size_t>(run.lcn + i)] != Stamp(stream, vcn + i)) return false;
    }
    vcn += run.count;
  }
  return true;
}

std::vector<std::string> SimulatedVolume::DamagedContent() const {
  Findings findings;
  for (std::uint32_t stream = 0; stream < streams_.size() && !findings.Full(); ++stream) {
    if (StreamIntact(stream)) continue;
    const std::string& name = stream_names_[streams_[stream].name];
    findings.Add(PathOf(streams_[stream].item) + (name.empty() ? "" : ":" + name));
  }
  return findings.Take();
}

}  // namespace vornalux
