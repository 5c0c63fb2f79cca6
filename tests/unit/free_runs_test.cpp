// SPDX-License-Identifier: GPL-2.0-or-later
// Gaps and bit counts against the definition, one bit at a time.
#include <algorithm>
#include <limits>

#include "host/simulated/seeded_random.h"
#include "unit/plain_model.h"
#include "unit/rig.h"
#include "volume/bit_count.h"
#include "volume/gap_index.h"

namespace vornalux::testing {
namespace {

// What is left when nothing is known from `end` on: a gap that is open there may go on.
FreeRunList PlainRunsUntil(const Bits& bits, std::int64_t end) {
  FreeRunList runs = PlainRuns(bits, end);
  if (!runs.empty() && runs.back().start + runs.back().length == end) runs.pop_back();
  return runs;
}

class RandomBits {
 public:
  RandomBits(SeededRandom& random, std::int64_t clusters)
      : bits(static_cast<std::size_t>((clusters + 7) / 8)), random_(random), clusters_(clusters) {
    for (auto& byte : bits) {
      byte = random.Chance(0.7) ? 0xFF : static_cast<std::uint8_t>(random.Below(256));
    }
  }

  struct Change {
    std::int64_t lcn;
    std::int64_t count;
    bool used;
  };
  // Uses or frees some clusters, with a liking for chunk boundaries and whole chunks.
  Change Edit() {
    std::int64_t from = random_.Below(clusters_);
    if (random_.Chance(0.3)) from = from / kBitmapChunkClusters * kBitmapChunkClusters;
    if (random_.Chance(0.3)) from = std::max<std::int64_t>(0, from - random_.Below(3));
    const std::int64_t length =
        random_.Chance(0.1) ? kBitmapChunkClusters : std::int64_t{1} << random_.Below(12);
    const bool used = random_.Chance(0.5);
    for (std::int64_t lcn = from; lcn < std::min(clusters_, from + length); ++lcn) {
      if (Used(bits, lcn) != used) {
        bits[static_cast<std::size_t>(lcn / 8)] ^= static_cast<std::uint8_t>(1U << (lcn % 8));
      }
    }
    return {from, length, used};
  }

  // The padding bits past the last cluster say anything.
  Bits bits;

 private:
  SeededRandom& random_;
  std::int64_t clusters_;
};

// Every answer of the index is the one that the plain list gives.
void ExpectSameGaps(const GapIndex& index, const FreeRunList& plain, SeededRandom& random) {
  const std::int64_t total = index.Clusters();
  ASSERT_EQ(index.List(), plain);
  const auto largest = std::ranges::max_element(plain, {}, &FreeRun::length);
  EXPECT_EQ(index.LargestGap(), largest == plain.end() ? FreeRun{} : *largest);
  for (int i = 0; i < 30; ++i) {
    std::int64_t from = random.Below(total + 2);
    std::int64_t least = std::int64_t{1} << random.Below(random.Chance(0.1) ? 18 : 6);
    if (!plain.empty() && random.Chance(0.7)) {  // just so, or one off
      const auto any = [&] {
        return plain[static_cast<std::size_t>(random.Below(std::ssize(plain)))];
      };
      from = any().start + random.Below(3) - 1;
      least = any().length + random.Below(2);
    }
    const auto lowest = std::ranges::find_if(
        plain, [&](const FreeRun& gap) { return gap.start >= from && gap.length >= least; });
    EXPECT_EQ(index.LowestGap(from, least), lowest == plain.end() ? FreeRun{} : *lowest)
        << least << " from " << from;
    const bool free = std::ranges::any_of(plain, [&](const FreeRun& gap) {
      return gap.start <= from && from + least <= gap.start + gap.length;
    });
    EXPECT_EQ(index.IsFree(from, least), free) << least << " at " << from;
  }
}

TEST(GapIndex, AnswersAsThePlainList) {
  ForSeeds(100, [](std::uint64_t seed) {
    SeededRandom random(seed);
    GapIndex index;
    for (int volume = 0; volume < 3; ++volume) {
      const std::int64_t sizes[] = {
          1,    7,     8,     63,    64,    65,    2048,   2049,
          6143, 32767, 32768, 32769, 65536, 98309, 131072, random.Between(2, 200000)};
      const std::int64_t total = sizes[random.Below(std::ssize(sizes))];
      RandomBits now(random, total);
      index.Reset(total);
      ExpectSameGaps(index, {}, random);
      for (int reading = 0; reading < 10; ++reading) {
        for (std::int64_t edits = random.Below(4); edits > 0; --edits) now.Edit();
        for (std::int64_t lcn = 0; lcn < total; lcn += kBitmapChunkClusters) {
          const auto first = static_cast<std::size_t>(lcn / 8);
          const auto bytes = std::min(kBitmapChunkBytes, now.bits.size() - first);
          index.Take(lcn, std::span(now.bits).subspan(first, bytes));
          EXPECT_FALSE(index.Take(lcn, std::span(now.bits).subspan(first, bytes)));
        }
        ExpectSameGaps(index, PlainRuns(now.bits, total), random);
        const auto [lcn, count, used] = now.Edit();
        index.Set(lcn, count, used);
        ExpectSameGaps(index, PlainRuns(now.bits, total), random);
        if (random.Chance(0.8)) continue;
        const std::int64_t end = random.Below(total + 1);
        const FreeRunList left = PlainRunsUntil(now.bits, end);
        EXPECT_LE(index.CutOff(end), end);
        ExpectSameGaps(index, left, random);
      }
      if (::testing::Test::HasFailure()) return;
    }
  });
}

// The largest volume that there can be: numbers up to the last.
TEST(GapIndex, OfTheLargestVolume) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
  GapIndex index;
  index.Reset(kMost);
  index.Set(0, kMost, false);
  EXPECT_EQ(index.LargestGap(), (FreeRun{0, 0, kMost}));
  index.Set(kMost / 2, 1, true);
  EXPECT_EQ(index.LowestGap(1, 1), (FreeRun{kMost / 2 + 1, 0, kMost / 2}));
  EXPECT_EQ(index.LargestGap(), (FreeRun{0, 0, kMost / 2}));
  EXPECT_TRUE(index.IsFree(kMost - 1, 1));
  EXPECT_FALSE(index.IsFree(kMost - 1, 2));
  index.Set(kMost - 1, kMost, true);
  EXPECT_EQ(index.LowestGap(1, kMost / 2), FreeRun{});
  EXPECT_EQ(index.List().size(), 2U);
}

TEST(BitCount, EqualsDefinition) {
  SeededRandom random(1);
  Bits bytes(700);
  for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random.Below(256));
  for (std::size_t first = 0; first < 9; ++first) {
    std::uint64_t plain = 0;
    for (std::size_t size = 0; first + size < bytes.size(); ++size) {
      ASSERT_EQ(CountSetBits(std::span(bytes).subspan(first, size)), plain);
      for (int bit = 0; bit < 8; ++bit) plain += (bytes[first + size] >> bit & 1) != 0;
    }
  }
}

// Others use and free clusters, and the bitmap cannot be relied on: what is found is free all the
// same, and when it is quiet again everything is known after as many looks as there are pieces.
TEST(KnownBitmap, FollowsWhatOthersDo) {
  ForSeeds(60, [](std::uint64_t seed) {
    SeededRandom random(seed);
    const std::int64_t pieces = random.Between(1, 6);
    const std::int64_t total = pieces * kBitmapChunkClusters - random.Below(kBitmapChunkClusters);
    SimulatedVolume volume({.total_clusters = total});
    if (random.Chance(0.3)) volume.TellChanges();
    Rig rig(volume);
    VolumeGeometry& geometry = rig.engine.geometry;
    const auto others = [&] {
      const std::int64_t lcn = random.Below(total);
      const std::int64_t count = std::int64_t{1} << random.Below(16);
      random.Chance(0.6) ? volume.TakeClusters(lcn, count) : volume.ReleaseClusters(lcn, count);
    };
    const auto expect_free = [&](const FreeRun& gap, std::int64_t clusters) {
      const Bits bits = BitmapOf(volume);
      for (std::int64_t i = 0; i < clusters; ++i) ASSERT_FALSE(Used(bits, gap.start + i));
    };
    for (int i = 0; i < 40; ++i) {
      for (std::int64_t count = random.Below(4); count > 0; --count) others();
      const When when = {.nth = static_cast<int>(random.Between(1, 4))};
      if (random.Chance(0.1)) rig.faults.FailBitmap(when, error::kReadFault);
      if (random.Chance(0.1)) {
        rig.faults.LieInBitmap(when, static_cast<BitmapLie>(random.Below(5)));
      }
      if (random.Chance(0.1)) geometry.bitmap.Distrust();
      geometry.LookAtGaps();
      const std::int64_t least = std::int64_t{1} << random.Below(12);
      const FreeRun gap = geometry.FindGap(random.Below(total), total, least);
      if (gap.length > 0) expect_free(gap, least);
      const FreeRun largest = geometry.FindLargestGap(least);
      expect_free(largest, std::min<std::int64_t>(largest.length, least));
    }
    for (std::int64_t i = 0; i < 2 * pieces + 8; ++i) {  // until no fault is left
      geometry.bitmap.Forget();
      geometry.LookAtGaps();
    }
    const std::size_t calls = rig.machine->Log().Count(CallKind::VolumeBitmap);
    for (std::int64_t i = 0; i < pieces; ++i) geometry.LookAtGaps();
    EXPECT_LE(rig.machine->Log().Count(CallKind::VolumeBitmap) - calls,
              static_cast<std::size_t>(pieces));
    EXPECT_EQ(geometry.bitmap.Gaps().List(), PlainRuns(BitmapOf(volume), total));
    EXPECT_TRUE(geometry.bitmap.Whole());
    // At once, when a phase begins, and when somebody was quicker at a target.
    const FreeRun target = geometry.bitmap.Gaps().LargestGap();
    others();
    others();
    if (target.length == 0 || random.Chance(0.5)) {
      geometry.bitmap.Distrust();
      geometry.LookAtGaps();
    } else {
      volume.TakeClusters(target.start, 1);
      geometry.bitmap.EnterRefusal(target.start, 1);
    }
    EXPECT_EQ(geometry.bitmap.Gaps().List(), PlainRuns(BitmapOf(volume), total));
  });
}

// What is left of a bitmap of three chunks, used but for a gap over each boundary, when the
// answers cannot be relied on.
TEST(FreeRuns, UnreliableBitmaps) {
  constexpr std::int64_t kTotal = 3 * kBitmapChunkClusters;
  const FreeRunList all = {{10, 0, 5}, {32760, 0, 16}, {65530, 0, 12}, {kTotal - 4, 0, 4}};
  const auto expect = [&](const FreeRunList& expected, std::size_t most_calls, auto fault) {
    SCOPED_TRACE(::testing::PrintToString(expected.size()) + " by " + std::to_string(most_calls));
    SimulatedVolume volume({.total_clusters = kTotal});
    std::int64_t used = 0;
    for (const FreeRun& gap : all) {
      volume.TakeClusters(used, gap.start - used);
      used = gap.start + gap.length;
    }
    Rig rig(volume);
    VolumeGeometry& geometry = rig.engine.geometry;
    CallLog& log = rig.machine->Log();
    EXPECT_EQ(geometry.LookAtAllGaps().List(), all);
    log.Clear();
    fault(rig.faults);
    EXPECT_EQ(geometry.LookAtAllGaps().List(), expected);
    EXPECT_EQ(geometry.bitmap.TotalClusters(), expected.empty() ? 0 : kTotal);
    EXPECT_LE(log.Count(CallKind::VolumeBitmap), most_calls);
    if (most_calls > 3) return;  // an endless fault
    EXPECT_EQ(geometry.LookAtAllGaps().List(), all);
    for (const FreeRun& gap : all) volume.TakeClusters(gap.start, gap.length);
    EXPECT_EQ(geometry.LookAtAllGaps().List(), FreeRunList());
    EXPECT_EQ(geometry.bitmap.TotalClusters(), kTotal);
    geometry.CloseVolume(geometry.VolumeHandle);
    log.Clear();
    EXPECT_EQ(geometry.LookAtAllGaps().List(), FreeRunList());
    EXPECT_EQ(geometry.bitmap.TotalClusters(), 0);
    EXPECT_TRUE(log.Calls().empty()) << "there is no volume";
  };
  const auto lies = [&](const FreeRunList& expected, std::size_t most_calls, int nth,
                        BitmapLie lie) {
    SCOPED_TRACE("lie " + std::to_string(static_cast<int>(lie)));
    expect(expected, most_calls, [&](FaultPlan& f) { f.LieInBitmap({.nth = nth}, lie); });
  };
  lies({}, 1, 1, BitmapLie::NegativeSize);
  lies({}, 1, 1, BitmapLie::HugeSize);
  lies({}, 1, 1, BitmapLie::WrongStart);
  lies({{10, 0, 5}, {32760, 0, 8}, {65536, 0, 6}, {kTotal - 4, 0, 4}}, 3, 2, BitmapLie::NoBits);
  lies({{10, 0, 5}, {32760, 0, 16}, {65536, 0, 6}, {kTotal - 4, 0, 4}}, 3, 2, BitmapLie::ShortBits);
  lies(all, 3, 2, BitmapLie::HugeSize);
  lies({{10, 0, 5}, {32760, 0, 16}}, 3, 3, BitmapLie::WrongStart);
  expect(all, 3, [](FaultPlan&) {});
  expect({}, 1, [](FaultPlan& f) { f.FailBitmap({}, error::kReadFault); });
  expect({{10, 0, 5}}, 2, [](FaultPlan& f) { f.FailBitmap({.nth = 2}, error::kReadFault); });
  expect(all, 4, [](FaultPlan& f) { f.FailBitmap({.times = kForEver}, error::kMoreData); });
}

}  // namespace
}  // namespace vornalux::testing
