// SPDX-License-Identifier: GPL-2.0-or-later
// Gap lists and bit counts against the definition, one bit at a time.
#include "volume/free_runs.h"

#include <algorithm>

#include "host/simulated/seeded_random.h"
#include "unit/plain_model.h"
#include "unit/rig.h"
#include "volume/bit_count.h"

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

  // Uses or frees some clusters, with a liking for chunk boundaries and whole chunks.
  void Edit() {
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
  }

  // The padding bits past the last cluster say anything.
  Bits bits;

 private:
  SeededRandom& random_;
  std::int64_t clusters_;
};

const FreeRunList& Read(FreeRunIndex& index, const Bits& bits, std::int64_t total,
                        std::int64_t end) {
  index.Begin(total);
  for (std::int64_t lcn = 0; lcn < end; lcn += kBitmapChunkClusters) {
    const auto first = static_cast<std::size_t>(lcn / 8);
    index.Take(lcn,
               std::span(bits).subspan(first, std::min(kBitmapChunkBytes, bits.size() - first)));
  }
  return index.Finish(end);
}

TEST(FreeRuns, IncrementalListEqualsDefinition) {
  ForSeeds(60, [](std::uint64_t seed) {
    SeededRandom random(seed);
    FreeRunIndex index;  // outlives changes of the volume's size
    for (int volume = 0; volume < 3; ++volume) {
      const std::int64_t sizes[] = {1,     7,     8,     63,    64,    65,
                                    32767, 32768, 32769, 65536, 98309, random.Between(2, 200000)};
      const std::int64_t total = sizes[random.Below(std::ssize(sizes))];
      RandomBits volume_bits(random, total);
      for (int reading = 0; reading < 12; ++reading) {
        for (std::int64_t edits = random.Below(4); edits > 0; --edits) volume_bits.Edit();
        const std::int64_t chunks = (total - 1) / kBitmapChunkClusters;
        if (chunks > 0 && random.Chance(0.2)) {
          const std::int64_t end = random.Below(chunks + 1) * kBitmapChunkClusters;
          ASSERT_EQ(Read(index, volume_bits.bits, total, end),
                    PlainRunsUntil(volume_bits.bits, end));
        }
        ASSERT_EQ(Read(index, volume_bits.bits, total, total), PlainRuns(volume_bits.bits, total));
      }
    }
  });
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
    std::int32_t total = 0;
    EXPECT_EQ(geometry.GetFreeRuns(total), all);
    log.Clear();
    fault(rig.faults);
    EXPECT_EQ(geometry.GetFreeRuns(total), expected);
    EXPECT_EQ(total, expected.empty() ? 0 : kTotal);
    EXPECT_LE(log.Count(CallKind::VolumeBitmap), most_calls);
    if (most_calls > 3) return;  // an endless fault
    EXPECT_EQ(geometry.GetFreeRuns(total), all);
    for (const FreeRun& gap : all) volume.TakeClusters(gap.start, gap.length);
    EXPECT_EQ(geometry.GetFreeRuns(total), FreeRunList());
    EXPECT_EQ(total, kTotal);
    geometry.CloseVolume(geometry.VolumeHandle);
    log.Clear();
    EXPECT_EQ(geometry.GetFreeRuns(total), FreeRunList());
    EXPECT_EQ(total, 0);
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
