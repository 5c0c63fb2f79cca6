// SPDX-License-Identifier: GPL-2.0-or-later
// What every kind of mounted volume must do alike. Each kind instantiates VolumeContract with a way
// to make one; the tests find what they need by walking the volume.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "host/mounted/mounted_volume.h"
#include "host/simulated/seeded_random.h"
#include "support/seed.h"

namespace vornalux::contract {

// A volume under test.
class Subject {
 public:
  virtual ~Subject() = default;
  virtual MountedVolume& Volume() = 0;
  // Closes the volume and opens it again from what is durable. References to it end.
  virtual ErrorCode CloseAndReopen() = 0;
  // Closes the volume and lets somebody else judge it: one line for everything wrong.
  virtual std::vector<std::string> CloseAndJudge() = 0;
};

struct Kind {
  std::string name;
  std::function<std::unique_ptr<Subject>(std::uint64_t seed)> make;
  bool has_holes = false;
  bool has_streams = false;
  // All clusters in use belong to items that can be listed, the root and "$MFT".
  bool all_visible = true;
  // A move may take or give back clusters for the file system's own use.
  bool grows_metadata = false;
  // Names come sorted by their upper-case form instead of by creation.
  bool sorted = false;
};
inline void PrintTo(const Kind& kind, std::ostream* out) { *out << kind.name; }

// One run list of the volume, found by walking it.
struct KnownStream {
  std::string path;  // "dir\name:stream:$DATA"
  StreamRef ref;
  std::uint32_t attributes = 0;
  std::vector<Extent> extents;

  bool IsFolder() const { return (attributes & attribute::kDirectory) != 0; }
  bool IsNamed() const { return !ref.stream.empty(); }
};

// Everything listed, folders and named streams included, the root first. Throws for what cannot be
// read, unless that is tolerated.
std::vector<KnownStream> Walk(MountedVolume& volume, bool tolerant = false);
std::vector<std::uint8_t> WholeBitmap(const MountedVolume& volume);
bool IsUsed(const std::vector<std::uint8_t>& bitmap, std::int64_t lcn);

std::int64_t VcnCount(const std::vector<Extent>& extents);
// The LCN of each VCN, -1 in holes.
std::vector<std::int64_t> PlaceOfEach(const std::vector<Extent>& extents);
// The start of a run of at least count free clusters, searched from lcn on; -1 when there is none.
std::int64_t FindFree(const std::vector<std::uint8_t>& bitmap, std::int64_t clusters,
                      std::int64_t count, std::int64_t from = 0);
std::string FlipCase(std::string name);

// A move of a whole stream, or of a piece of it, to some free place.
struct PossibleMove {
  std::int64_t vcn = 0;
  std::int64_t lcn = 0;
  std::int64_t count = 0;

  std::string Text() const;
};
// Nothing for a stream without clusters, or when no place was found.
std::optional<PossibleMove> SomeMove(MountedVolume& volume, const StreamRef& stream,
                                     SeededRandom& random);

// All content by path, as a hash of what Read() gives; folders left out.
std::map<std::string, std::uint64_t> Contents(MountedVolume& volume,
                                              const std::vector<KnownStream>& streams);

// What a refused move must leave alone.
struct Snapshot {
  std::vector<std::uint8_t> bitmap;
  std::vector<std::vector<Extent>> extents;
  std::int64_t free_clusters = 0;

  friend bool operator==(const Snapshot&, const Snapshot&) = default;
};
Snapshot Take(MountedVolume& volume, const std::vector<KnownStream>& streams);

class VolumeContract : public testing::TestWithParam<Kind> {
 protected:
  void SetUp() override;

  MountedVolume& Volume() { return subject_->Volume(); }
  // Asks the volume anew for the extents of a stream; fails the test on an error.
  std::vector<Extent> ExtentsOf(const StreamRef& ref);
  // The first stream that suits, null when there is none.
  const KnownStream* Find(const std::function<bool(const KnownStream&)>& suits) const;
  // The smallest file of at least so many clusters and no holes. Throws when there is none.
  const KnownStream& PlainFile(std::int64_t clusters) const;

  const std::uint64_t seed_ = test::TestSeed();
  const testing::ScopedTrace trace_{__FILE__, __LINE__, test::SeedNote(seed_)};
  std::unique_ptr<Subject> subject_;
  std::vector<KnownStream> streams_;
};

}  // namespace vornalux::contract
