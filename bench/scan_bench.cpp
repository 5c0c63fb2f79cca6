// SPDX-License-Identifier: GPL-2.0-or-later
// The loops that see every cluster, beside a plain read of the same memory: compare
// bytes_per_second within one run, never across runs.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <numeric>
#include <vector>

#include "host/simulated/seeded_random.h"
#include "volume/bit_count.h"
#include "volume/free_runs.h"
#include "volume/gap_index.h"

namespace {

// The bitmap of 1 TiB in clusters of 4 KiB.
constexpr std::int64_t kClusters = std::int64_t{1} << 28;
constexpr std::size_t kBytes = kClusters / 8;

// Runs of used and free clusters, some hundreds long on average, as on a volume in use.
const std::vector<std::uint64_t>& Bitmap() {
  static const std::vector<std::uint64_t> bitmap = [] {
    std::vector<std::uint64_t> words(kBytes / 8);
    vornalux::SeededRandom random(1);
    std::uint64_t state = 0;
    for (std::size_t i = 0; i < words.size();) {
      for (bool more = true; more && i < words.size(); more = !random.Chance(1.0 / 8)) {
        words[i++] = state;
      }
      state = ~state;
    }
    return words;
  }();
  return bitmap;
}

std::span<const std::uint8_t> Bytes() {
  return {reinterpret_cast<const std::uint8_t*>(Bitmap().data()), kBytes};
}

void MemoryRead(benchmark::State& state) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(std::accumulate(Bitmap().begin(), Bitmap().end(), std::uint64_t{0}));
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(kBytes) * state.iterations());
}
BENCHMARK(MemoryRead);

void CountSetBits(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(vornalux::CountSetBits(Bytes()));
  state.SetBytesProcessed(static_cast<std::int64_t>(kBytes) * state.iterations());
}
BENCHMARK(CountSetBits);

void ScanFreeRuns(benchmark::State& state) {
  for (auto _ : state) {
    vornalux::FreeRunList runs;
    vornalux::AppendFreeRuns(Bitmap(), 0, kClusters, runs);
    benchmark::DoNotOptimize(runs.data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(kBytes) * state.iterations());
}
BENCHMARK(ScanFreeRuns);

// What a mover pays where all may have changed: the whole bitmap again, hardly anything of it
// changed.
void RereadGaps(benchmark::State& state) {
  vornalux::GapIndex index;
  index.Reset(kClusters);
  std::vector<std::uint8_t> bitmap(Bytes().begin(), Bytes().end());
  std::size_t at = 0;
  for (auto _ : state) {
    at = (at + 7919) % bitmap.size();
    bitmap[at] = static_cast<std::uint8_t>(~bitmap[at]);
    for (std::int64_t lcn = 0; lcn < kClusters; lcn += vornalux::kBitmapChunkClusters) {
      index.Take(lcn, std::span(bitmap).subspan(static_cast<std::size_t>(lcn / 8),
                                                vornalux::kBitmapChunkBytes));
    }
    benchmark::DoNotOptimize(index.LargestGap());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(kBytes) * state.iterations());
}
BENCHMARK(RereadGaps);

}  // namespace
