// SPDX-License-Identifier: GPL-2.0-or-later
#include <gtest/gtest.h>

#include "support/seed.h"
#include "volumes/ntfs/ntfs_image.h"

namespace vornalux::test {
namespace {

struct Geometry {
  std::size_t cluster_size;
  const char* words;
  int moves;
};

void PrintTo(const Geometry& geometry, std::ostream* out) { *out << geometry.cluster_size; }

class NtfsMoves : public testing::TestWithParam<Geometry> {};

TEST_P(NtfsMoves, ThousandsOfRandomMovesLeaveEverythingWhole) {
  const std::uint64_t seed = TestSeed();
  SCOPED_TRACE(SeedNote(seed));
  SeededRandom random(seed);
  Bytes image = MakeStrange(GetParam().cluster_size, GetParam().words, seed);
  const std::set<std::string> before = Snapshot(image);
  ASSERT_EQ(Complaint(image, before), "");

  auto volume = std::make_unique<MemoryVolume>(image);
  const std::vector<KnownStream> streams = AllStreams(**volume);
  int moved = 0;
  for (int i = 0; i < GetParam().moves; ++i) {
    const KnownStream& each = streams[static_cast<std::size_t>(random.Below(std::ssize(streams)))];
    const auto move = contract::SomeMove(**volume, each.ref, random);
    if (!move) continue;
    const ErrorCode code = (*volume)->Move(each.ref, move->vcn, move->lcn, move->count);
    if (each.path.starts_with("$MFT") && code == error::kAccessDenied) continue;
    ASSERT_EQ(code, error::kSuccess) << each.path << move->Text();
    ++moved;
    if (random.Chance(0.005)) {
      ASSERT_EQ((*volume)->Commit(), error::kSuccess);
    }
    if (random.Chance(0.001)) {
      const std::int64_t free = (*volume)->FreeClusters();
      ASSERT_EQ(volume->Finish(image), error::kSuccess);
      ASSERT_EQ(Complaint(image, before), "") << "after " << i << " moves";
      volume = std::make_unique<MemoryVolume>(image);
      ASSERT_EQ((*volume)->FreeClusters(), free);
    }
  }
  EXPECT_GT(moved, GetParam().moves / 3);
  ASSERT_EQ(volume->Finish(image), error::kSuccess);
  EXPECT_EQ(Complaint(image, before), "");
}

INSTANTIATE_TEST_SUITE_P(
    ClusterSizes, NtfsMoves,
    testing::Values(Geometry{512, "size=24M files=300 folders=20 compressed=15%", 3000},
                    Geometry{4096, "size=48M files=400 folders=26 compressed=15%", 3000},
                    Geometry{16384, "size=96M files=200 folders=13", 1500},
                    Geometry{65536, "size=192M files=100 folders=6", 1000}),
    testing::PrintToStringParamName());

}  // namespace
}  // namespace vornalux::test
