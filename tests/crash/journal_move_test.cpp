// SPDX-License-Identifier: GPL-2.0-or-later
// Whole moves, from the first to Close(): the power goes, or a call fails, at every point.
#include <gtest/gtest.h>

#include "support/seed.h"
#include "support/tiny_volume.h"

namespace vornalux::test {
namespace {

constexpr std::int64_t kClusters = 96;

// Random moves, most of them possible; a commit here and there.
ErrorCode RandomMoves(TinyVolume& volume, Random& random, int count) {
  for (int i = 0; i < count; ++i) {
    const ErrorCode code =
        volume.Move(TinyVolume::File(static_cast<int>(Below(random, TinyVolume::kFiles))),
                    static_cast<std::int64_t>(Below(random, 4)),
                    static_cast<std::int64_t>(Below(random, kClusters)),
                    1 + static_cast<std::int64_t>(Below(random, 4)));
    if (code == error::kGenFailure || code == error::kWriteFault) return code;
    if (Below(random, 12) == 0) {
      if (const ErrorCode commit = volume.Commit()) return commit;
    }
  }
  return volume.Close();
}

struct Cut {
  Cut(const Bytes& start) : volume(start), store({}, true) {}

  void Apply(const DeviceEvent& event) {
    (event.device == 0 ? volume : store).Apply(event);
    if (event.kind == DeviceEvent::Kind::Create) exists = true;
    if (event.kind == DeviceEvent::Kind::Remove) exists = false;
  }

  // Recovers what is left and judges it; empty when all is well.
  std::string Verdict(Random& random, bool in_order) {
    TinyWorld world(in_order ? volume.InOrder() : volume.Reordered(random));
    world.journal.exists = exists;
    world.journal.store.Content() = in_order ? store.InOrder() : store.Reordered(random);
    const std::string trouble = world.Recover();
    return trouble.empty() ? TinyVolume::Judge(world.device.Content()) : trouble;
  }

  PowerCutDevice volume;
  PowerCutDevice store;
  bool exists = false;
};

TEST(JournalMove, FilesAreWholeAfterAPowerCutAtAnyWrite) {
  const std::uint64_t first_seed = TestSeed();
  for (std::uint64_t seed = first_seed; seed < first_seed + 8; ++seed) {
    SCOPED_TRACE(SeedNote(seed));
    Random random(seed);
    TinyWorld world(TinyVolume::Format(random, kClusters));
    const Bytes start = world.device.Content();
    ASSERT_EQ(TinyVolume::Judge(start), "");
    DeviceLog log;
    ASSERT_EQ(RandomMoves(*world.Open(&log), random, 250), error::kSuccess);
    ASSERT_EQ(TinyVolume::Judge(world.device.Content()), "");
    ASSERT_GT(log.size(), 100U);

    Cut cut(start);
    for (std::size_t i = 0; i < log.size(); ++i) {
      cut.Apply(log[i]);
      for (int variant = 0; variant < 4; ++variant) {
        ASSERT_EQ(cut.Verdict(random, variant == 0), "") << "cut after event " << i;
      }
    }
  }
}

// Each call of the volume's device fails in turn, once or for ever. The program goes on as long as
// it is let; then it is as if the power had gone.
TEST(JournalMove, FilesAreWholeAfterAnIoErrorAtAnyCall) {
  const std::uint64_t seed = TestSeed();
  for (const bool for_ever : {false, true}) {
    bool reached_the_end = false;
    for (std::int64_t nth = 0; !reached_the_end; ++nth) {
      SCOPED_TRACE(SeedNote(seed) + ", call " + std::to_string(nth));
      Random random(seed);
      TinyWorld world(TinyVolume::Format(random, kClusters));
      FailingDevice failing(world.device, FailingDevice::kAll);
      {
        const std::unique_ptr<TinyVolume> volume = world.Open(nullptr, &failing);
        failing.FailAt(nth, for_ever);
        RandomMoves(*volume, random, 25);
      }
      reached_the_end = !failing.HasFailed();
      ASSERT_EQ(world.Recover(), "");
      ASSERT_EQ(TinyVolume::Judge(world.device.Content()), "");
    }
  }
}

TEST(JournalMove, NothingIsDoneAfterAFailedCommit) {
  Random random(TestSeed());
  TinyWorld world(TinyVolume::Format(random, kClusters));
  FailingDevice failing(world.device, FailingDevice::kFlushes);
  const std::unique_ptr<TinyVolume> volume = world.Open(nullptr, &failing);
  std::int64_t free_lcn = 0;
  while (!volume->Clusters().RangeFree(free_lcn, 1)) ++free_lcn;
  ASSERT_EQ(volume->Move(TinyVolume::File(1), 0, free_lcn, 1), error::kSuccess);
  failing.FailAt(0, false);
  EXPECT_NE(volume->Commit(), error::kSuccess);
  const Bytes after_failure = world.device.Content();
  EXPECT_EQ(volume->Move(TinyVolume::File(2), 0, free_lcn + 1, 1), error::kWriteFault);
  EXPECT_EQ(volume->Commit(), error::kWriteFault);
  EXPECT_EQ(volume->Close(), error::kWriteFault);
  EXPECT_EQ(world.device.Content(), after_failure);
  EXPECT_TRUE(world.journal.exists);
}

}  // namespace
}  // namespace vornalux::test
