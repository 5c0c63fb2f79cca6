// SPDX-License-Identifier: GPL-2.0-or-later
#include <gtest/gtest.h>

#include <random>

#include "support/seed.h"
#include "volumes/ntfs_image.h"

namespace vornalux::test {
namespace {

struct Geometry {
  int cluster_size;
  std::uint64_t size;
  int files;
  int moves;
};

void PrintTo(const Geometry& geometry, std::ostream* out) { *out << geometry.cluster_size; }

std::int64_t Clusters(const std::vector<Extent>& extents) {
  return extents.empty() ? 0 : extents.back().NextVcn;
}

// The longest free run that begins at a random place, cut to wanted clusters.
std::pair<std::int64_t, std::int64_t> FreeRun(const MountedVolume& volume, std::int64_t wanted,
                                              std::mt19937_64& random) {
  const std::int64_t total = volume.Facts().total_clusters;
  std::vector<std::uint8_t> bits(static_cast<std::size_t>((total + 7) / 8));
  volume.CopyBitmap(0, bits);
  const auto used = [&](std::int64_t lcn) {
    return bits[static_cast<std::size_t>(lcn / 8)] >> lcn % 8 & 1;
  };
  const auto start = static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(total));
  for (std::int64_t i = 0; i < total; ++i) {
    const std::int64_t lcn = (start + i) % total;
    if (used(lcn)) continue;
    std::int64_t count = 1;
    while (count < wanted && lcn + count < total && !used(lcn + count)) ++count;
    return {lcn, count};
  }
  return {0, 0};
}

class NtfsMoves : public testing::TestWithParam<Geometry> {};

TEST_P(NtfsMoves, ThousandsOfRandomMovesLeaveEverythingWhole) {
  const std::uint64_t seed = TestSeed();
  SCOPED_TRACE(SeedNote(seed));
  std::mt19937_64 random(seed);
  const ImageFile image("moves" + std::to_string(GetParam().cluster_size));
  MakeFilled(image, GetParam().size, GetParam().cluster_size, GetParam().files, seed);
  const auto before = LibraryVolume(image, LibraryVolume::Mode::ReadOnly).Snapshot();
  ASSERT_EQ(Complaint(image, before), "");

  auto volume = std::make_unique<MemoryVolume>(image.Content());
  const std::vector<NamedStream> streams = AllStreams(**volume);
  int moved = 0;
  int refused = 0;
  for (int i = 0; i < GetParam().moves; ++i) {
    const NamedStream& each = streams[random() % streams.size()];
    std::vector<Extent> extents;
    ASSERT_EQ((*volume)->Extents(each.stream, extents), error::kSuccess) << each.path;
    const std::int64_t clusters = Clusters(extents);
    if (clusters == 0) continue;
    const auto vcn = static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(clusters));
    const std::int64_t wanted =
        random() % 3 == 0 ? clusters : 1 + static_cast<std::int64_t>(random() % 5);
    const auto [lcn, count] = FreeRun(**volume, wanted, random);
    const ErrorCode code = (*volume)->Move(each.stream, vcn, lcn, count);
    if (each.path.starts_with("/$MFT") && code == error::kAccessDenied) {
      ++refused;
      continue;
    }
    ASSERT_EQ(code, error::kSuccess) << each.path << " " << vcn << " " << lcn << " " << count;
    ++moved;
    if (random() % 200 == 0) {
      ASSERT_EQ((*volume)->Commit(), error::kSuccess);
    }
    if (random() % 1000 == 0) {
      const std::int64_t free = (*volume)->FreeClusters();
      ASSERT_EQ(volume->Finish(image), error::kSuccess);
      ASSERT_EQ(Complaint(image, before), "") << "after " << i << " moves";
      volume = std::make_unique<MemoryVolume>(image.Content());
      ASSERT_EQ((*volume)->FreeClusters(), free);
    }
  }
  EXPECT_GT(moved, GetParam().moves / 2);
  ASSERT_EQ(volume->Finish(image), error::kSuccess);
  EXPECT_EQ(Complaint(image, before), "");
}

INSTANTIATE_TEST_SUITE_P(ClusterSizes, NtfsMoves,
                         testing::Values(Geometry{512, 24 << 20, 300, 3000},
                                         Geometry{4096, 48 << 20, 400, 3000},
                                         Geometry{16384, 96 << 20, 200, 1500},
                                         Geometry{65536, 192 << 20, 100, 1000}),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace vornalux::test
