// SPDX-License-Identifier: GPL-2.0-or-later
#include "volumes/contract/contract.h"

#include <algorithm>
#include <stdexcept>

namespace vornalux::contract {

namespace {

void Require(ErrorCode error, const std::string& what) {
  if (error != error::kSuccess) {
    throw std::runtime_error(what + " failed with error " + std::to_string(error));
  }
}

// Walks a volume; what cannot be read is left out when that is tolerated.
class Walker {
 public:
  Walker(MountedVolume& volume, bool tolerant) : volume_(volume), tolerant_(tolerant) {}

  void Add(const FolderItem& item, const std::string& path) {
    KnownStream own{
        .path = path, .ref = {item.id, {}}, .attributes = item.attributes, .extents = {}};
    AddStream(own);
    std::vector<std::string> names;
    if (Fails(volume_.StreamNames(item.id, names), "streams of " + path)) return;
    for (const std::string& name : names) {
      if (name == "::$DATA") continue;
      KnownStream named = own;
      named.path += name;
      named.ref.stream = name;
      AddStream(named);
    }
  }

  void AddFolder(ItemId folder, const std::string& path) {
    std::vector<FolderItem> items;
    if (Fails(volume_.ListFolder(folder, items), "listing " + path)) return;
    for (const FolderItem& item : items) {
      Add(item, path + item.name);
      const bool enter = (item.attributes & attribute::kDirectory) != 0 &&
                         (item.attributes & attribute::kReparsePoint) == 0;
      if (enter) AddFolder(item.id, path + item.name + '\\');
    }
  }

  std::vector<KnownStream> found;

 private:
  bool Fails(ErrorCode error, const std::string& what) const {
    if (!tolerant_) Require(error, what);
    return error != error::kSuccess;
  }
  void AddStream(KnownStream stream) {
    Fails(volume_.Extents(stream.ref, stream.extents), "extents of " + stream.path);
    found.push_back(std::move(stream));
  }

  MountedVolume& volume_;
  bool tolerant_;
};

}  // namespace

std::vector<KnownStream> Walk(MountedVolume& volume, bool tolerant) {
  Walker walker(volume, tolerant);
  walker.Add({.name = "", .attributes = attribute::kDirectory, .id = volume.Root()}, "");
  walker.AddFolder(volume.Root(), "");
  return std::move(walker.found);
}

std::vector<std::uint8_t> WholeBitmap(const MountedVolume& volume) {
  std::vector<std::uint8_t> bits(static_cast<std::size_t>((volume.Facts().total_clusters + 7) / 8));
  volume.CopyBitmap(0, bits);
  return bits;
}

bool IsUsed(const std::vector<std::uint8_t>& bitmap, std::int64_t lcn) {
  return (bitmap[static_cast<std::size_t>(lcn / 8)] >> (lcn % 8) & 1) != 0;
}

std::int64_t VcnCount(const std::vector<Extent>& extents) {
  return extents.empty() ? 0 : extents.back().NextVcn;
}

std::vector<std::int64_t> PlaceOfEach(const std::vector<Extent>& extents) {
  std::vector<std::int64_t> places;
  for (const Extent& extent : extents) {
    std::int64_t lcn = extent.Lcn;
    while (static_cast<std::int64_t>(places.size()) < extent.NextVcn) {
      places.push_back(lcn < 0 ? -1 : lcn++);
    }
  }
  return places;
}

std::int64_t FindFree(const std::vector<std::uint8_t>& bitmap, std::int64_t clusters,
                      std::int64_t count, std::int64_t from) {
  std::int64_t run = 0;
  for (std::int64_t lcn = from; lcn < clusters; ++lcn) {
    run = IsUsed(bitmap, lcn) ? 0 : run + 1;
    if (run == count) return lcn - count + 1;
  }
  return -1;
}

std::string FlipCase(std::string name) {
  for (char& c : name) {
    const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    if (letter) c = static_cast<char>(c ^ 0x20);
  }
  return name;
}

std::string PossibleMove::Text() const {
  return " vcn " + std::to_string(vcn) + " lcn " + std::to_string(lcn) + " count " +
         std::to_string(count);
}

std::optional<PossibleMove> SomeMove(MountedVolume& volume, const StreamRef& stream,
                                     SeededRandom& random) {
  std::vector<Extent> extents;
  EXPECT_EQ(volume.Extents(stream, extents), error::kSuccess);
  const std::int64_t size = VcnCount(extents);
  if (size == 0) return std::nullopt;
  PossibleMove move;
  move.vcn = random.Chance(0.3) ? 0 : random.Below(size);
  const std::int64_t left = size - move.vcn;
  move.count = random.Chance(0.4) ? left : std::min(left, random.Between(1, 5));
  const std::int64_t total = volume.Facts().total_clusters;
  move.lcn = FindFree(WholeBitmap(volume), total, move.count, random.Below(total));
  if (move.lcn < 0) return std::nullopt;
  return move;
}

std::map<std::string, std::uint64_t> Contents(MountedVolume& volume,
                                              const std::vector<KnownStream>& streams) {
  std::map<std::string, std::uint64_t> contents;
  std::vector<std::uint8_t> buffer(1 << 16);
  for (const KnownStream& stream : streams) {
    if (stream.IsFolder() && !stream.IsNamed()) continue;
    std::uint64_t hash = 0xCBF29CE484222325U;
    std::uint64_t offset = 0;
    std::size_t done = buffer.size();
    while (done == buffer.size()) {
      Require(volume.Read(stream.ref, offset, buffer, done), "reading " + stream.path);
      for (std::size_t i = 0; i < done; ++i) hash = (hash ^ buffer[i]) * 0x100000001B3U;
      offset += done;
    }
    contents[stream.path] = hash ^ offset;
  }
  return contents;
}

Snapshot Take(MountedVolume& volume, const std::vector<KnownStream>& streams) {
  Snapshot snapshot{
      .bitmap = WholeBitmap(volume), .extents = {}, .free_clusters = volume.FreeClusters()};
  for (const KnownStream& stream : streams) {
    snapshot.extents.emplace_back();
    Require(volume.Extents(stream.ref, snapshot.extents.back()), "extents of " + stream.path);
  }
  return snapshot;
}

void VolumeContract::SetUp() {
  subject_ = GetParam().make(seed_);
  streams_ = Walk(Volume());
}

std::vector<Extent> VolumeContract::ExtentsOf(const StreamRef& ref) {
  std::vector<Extent> extents;
  EXPECT_EQ(Volume().Extents(ref, extents), error::kSuccess);
  return extents;
}

const KnownStream* VolumeContract::Find(
    const std::function<bool(const KnownStream&)>& suits) const {
  const auto found = std::find_if(streams_.begin(), streams_.end(), suits);
  return found == streams_.end() ? nullptr : &*found;
}

const KnownStream& VolumeContract::PlainFile(std::int64_t clusters) const {
  const KnownStream* found = nullptr;
  for (const KnownStream& stream : streams_) {
    const bool whole = std::none_of(stream.extents.begin(), stream.extents.end(),
                                    [](const Extent& extent) { return extent.Lcn < 0; });
    const std::int64_t size = VcnCount(stream.extents);
    if (stream.IsFolder() || stream.IsNamed() || !whole || size < clusters) continue;
    if ((stream.attributes & (attribute::kCompressed | attribute::kSparse)) != 0) continue;
    // A small one finds room wherever free space is scattered.
    if (found == nullptr || size < VcnCount(found->extents)) found = &stream;
  }
  if (found == nullptr) throw std::runtime_error("the volume has no plain file of that size");
  return *found;
}

}  // namespace vornalux::contract
