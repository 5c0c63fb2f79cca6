// SPDX-License-Identifier: GPL-2.0-or-later
// NTFS volumes in memory: made by the volume maker and ntfscp, opened, moved on and judged.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/image/volume/image_volume.h"
#include "support/devices.h"
#include "volumes/contract/contract.h"

namespace vornalux::test {

// A volume after a recipe, with files in the root besides: name and size in bytes.
Bytes MakeNtfs(const std::string& recipe,
               const std::vector<std::pair<std::string, std::size_t>>& files = {});

// One with some of everything that the volume maker knows, and a few things that only careless
// software leaves: a sparse mark without holes, clusters never written in a file marked compressed.
// words: the recipe's about size and number of files.
Bytes MakeStrange(std::size_t cluster_size, const std::string& words, std::uint64_t seed,
                  std::vector<std::pair<std::string, std::size_t>> files = {});

using contract::KnownStream;

// All streams that can be found, those of $MFT at the end.
std::vector<KnownStream> AllStreams(MountedVolume& volume);
// The stream with a path that ends so. Throws when there is none.
StreamRef FindStream(MountedVolume& volume, const std::string& path_end);

// While one of these lives, what is allocated may be lost: the library frees not all that it has
// when it gives up mounting a damaged volume.
class MayLeak {
 public:
  MayLeak();
  MayLeak(const MayLeak&) = delete;
  MayLeak& operator=(const MayLeak&) = delete;
  ~MayLeak();
};

// The first run of count free clusters from lcn on, -1 when there is none.
std::int64_t FreeRun(const MountedVolume& volume, std::int64_t lcn, std::int64_t count);

// A volume in memory, where flushing costs nothing.
class MemoryVolume {
 public:
  // dry: as for a dry run, which works on a volume, in memory, that a pass would refuse.
  explicit MemoryVolume(Bytes content, bool dry = false);

  ImageVolume& operator*() { return *volume_; }
  ImageVolume* operator->() { return volume_.get(); }
  FailingDevice& Device() { return failing_; }
  // Closes the volume and gives its bytes.
  ErrorCode Finish(Bytes& image);

 private:
  MemoryDevice device_;
  FailingDevice failing_;
  MemoryJournal journal_;
  std::unique_ptr<ImageVolume> volume_;
};

// A line for everything that must survive: names, attributes, times, stream content. Read by the
// checker, which shares no code with what is tested.
std::set<std::string> Snapshot(const Bytes& image);
// Empty when the volume is sound and holds what it should.
std::string Complaint(const Bytes& image, const std::set<std::string>& expected);

}  // namespace vornalux::test
