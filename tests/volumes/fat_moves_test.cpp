// SPDX-License-Identifier: GPL-2.0-or-later
#include <gtest/gtest.h>

#include "host/image/refused.h"
#include "support/seed.h"
#include "volumes/contract.h"
#include "volumes/fat_image.h"

namespace vornalux::test {
namespace {

using contract::FindFree;
using contract::KnownStream;

class FatSubject {
 public:
  FatSubject(const FatRecipe& recipe, std::uint64_t seed)
      : population_(recipe, seed), volume_(population_.World().Open()) {}

  MountedVolume& Volume() { return *volume_; }
  ErrorCode CloseAndReopen() {
    const ErrorCode error = volume_->Close();
    volume_ = population_.World().Open();
    return error;
  }
  std::vector<std::string> CloseAndJudge() {
    if (volume_->Close() != error::kSuccess) return {"it does not close"};
    return population_.Judge();
  }
  FatWorld& World() { return population_.World(); }

 private:
  FatPopulation population_;
  std::unique_ptr<ImageVolume> volume_;
};

// A piece of one cluster up to the whole, to some free place.
void MoveSomething(MountedVolume& volume, const std::vector<KnownStream>& streams, Random& random) {
  const KnownStream& stream = streams[Below(random, streams.size())];
  std::vector<Extent> extents;
  ASSERT_EQ(volume.Extents(stream.ref, extents), error::kSuccess);
  const auto size = static_cast<std::uint64_t>(contract::VcnCount(extents));
  if (size == 0) return;
  const auto vcn = static_cast<std::int64_t>(Below(random, 3) == 0 ? 0 : Below(random, size));
  const auto left = static_cast<std::int64_t>(size) - vcn;
  const std::int64_t count = Below(random, 2) == 0 ? left : std::min<std::int64_t>(left, 3);
  const std::int64_t total = volume.Facts().total_clusters;
  const auto from = static_cast<std::int64_t>(Below(random, static_cast<std::uint64_t>(total)));
  const std::int64_t lcn = FindFree(contract::WholeBitmap(volume), total, count, from);
  if (lcn < 0) return;
  ASSERT_EQ(volume.Move(stream.ref, vcn, lcn, count),
            stream.path.empty() ? error::kAccessDenied : error::kSuccess)
      << stream.path << " vcn " << vcn << " lcn " << lcn << " count " << count;
}

class FatMoves : public testing::TestWithParam<FatRecipe> {};

TEST_P(FatMoves, LeaveEveryFileWhole) {
  const std::uint64_t seed = TestSeed();
  SCOPED_TRACE(SeedNote(seed));
  Random random(seed);
  FatSubject subject(GetParam(), seed);
  EXPECT_EQ(subject.Volume().Facts().file_system, GetParam().bits == 32 ? "FAT32" : "FAT");
  EXPECT_EQ(subject.Volume().Facts().label, "VORNALUX");
  EXPECT_EQ(subject.Volume().Facts().serial, 0x1234ABCDu);
  for (int round = 0; round < 3; ++round) {
    const std::vector<KnownStream> streams = contract::Walk(subject.Volume());
    ASSERT_GT(streams.size(), 200u);
    for (int move = 0; move < 1000; ++move) {
      MoveSomething(subject.Volume(), streams, random);
      if (HasFatalFailure()) return;
    }
    // Whoever finds it now has to know that somebody is at work.
    ASSERT_EQ(subject.Volume().Commit(), error::kSuccess);
    EXPECT_NE(subject.World().Refusal().find("dirty"), std::string::npos);
    ASSERT_EQ(subject.CloseAndJudge(), std::vector<std::string>{});
    ASSERT_EQ(subject.CloseAndReopen(), error::kSuccess);
  }
}

INSTANTIATE_TEST_SUITE_P(Fat, FatMoves,
                         testing::Values(FatRecipe{"fat12", 12, 1900},
                                         FatRecipe{"fat12OneCopy", 12, 4000, 512, 4, 1},
                                         FatRecipe{"fat16", 16, 9000, 512, 2},
                                         FatRecipe{"fat16Sector4096", 16, 18000, 4096},
                                         FatRecipe{"fat32", 32, 34000},
                                         FatRecipe{"fat32Sector1024", 32, 68000, 1024},
                                         FatRecipe{"fat32Unmirrored", 32, 34000, 512, 1, 2, false}),
                         [](const auto& test) { return test.param.label; });

// Every access that a move makes fails in its turn: then nothing has moved, and all goes on.
TEST(FatFaults, DropTheMoveWhole) {
  for (const int bits : {12, 32}) {
    FatWorld world(SmallFat(bits));
    FailingDevice failing(world.device, FailingDevice::kReads | FailingDevice::kWrites);
    const auto volume = world.Open(false, &failing);
    const std::vector<KnownStream> streams = contract::Walk(*volume);
    std::int64_t lcn = volume->Facts().total_clusters;
    // The start of the work is another matter.
    ASSERT_EQ(volume->Move({1, ""}, 0, lcn - 1, 1), error::kSuccess);
    ASSERT_EQ(volume->Commit(), error::kSuccess);
    for (const KnownStream& stream : streams) {
      if (stream.path.empty() || stream.extents.empty()) continue;
      const auto before = contract::Take(*volume, streams);
      lcn -= 4;
      for (int nth = 0;; ++nth) {
        ASSERT_LT(nth, 100) << stream.path;
        // A failing commit ends everything; a failing move must not.
        ASSERT_EQ(volume->Commit(), error::kSuccess);
        failing.FailAt(nth, false);
        const ErrorCode result = volume->Move(stream.ref, 0, lcn, 3);
        failing.FailAt(-1, false);
        if (result == error::kSuccess) break;
        EXPECT_EQ(contract::Take(*volume, streams), before) << stream.path << " access " << nth;
      }
    }
    ASSERT_EQ(volume->Close(), error::kSuccess);
    EXPECT_EQ(world.FsckComplaint(), "");
  }
}

}  // namespace
}  // namespace vornalux::test
