// SPDX-License-Identifier: GPL-2.0-or-later
// Planning a million extents, beside sorting as many: compare within one run, never across runs.
// bytes_per_extent is the most that is held at a time beyond the volume that is planned.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <vector>

#include "engine/plan/plan.h"
#include "host/simulated/seeded_random.h"

namespace {

std::size_t held = 0;
std::size_t most_held = 0;

}  // namespace

// Out of line: where they are seen through, the compiler takes them for a mismatch.
[[gnu::noinline]] void* operator new(std::size_t bytes) {
  void* memory = std::malloc(bytes);
  if (memory == nullptr) throw std::bad_alloc();
  held += malloc_usable_size(memory);
  most_held = std::max(most_held, held);
  return memory;
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  held -= malloc_usable_size(memory);
  std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
  operator delete(memory);
}

namespace {

using namespace vornalux;

constexpr std::int32_t kExtents = 1'000'000;

// Half of the files in about ten pieces each, all pieces in random order, gaps between; here and
// there something that has to stay.
plan::Volume RandomVolume(std::uint64_t seed, double fill) {
  SeededRandom random(seed);
  plan::Volume volume;
  struct Piece {
    std::size_t file;
    std::int32_t length;
  };
  std::vector<Piece> pieces;
  std::int64_t used = 0;
  while (pieces.size() < kExtents) {
    const std::int64_t count = random.Chance(0.1) ? random.Between(2, 18) : 1;
    for (std::int64_t i = 0; i < count; ++i) {
      // Many small ones, few large ones.
      const auto length =
          static_cast<std::int32_t>(random.Between(1, std::int64_t{1} << random.Between(1, 8)));
      pieces.push_back({volume.files.size(), length});
      used += length;
    }
    volume.files.emplace_back();
  }
  volume.clusters = static_cast<std::int32_t>(static_cast<double>(used) / fill);
  random.Shuffle(pieces);
  std::int64_t left = volume.clusters - used;
  std::int32_t lcn = 0;
  for (const Piece& piece : pieces) {
    const std::int64_t mean = 4 * (volume.clusters - used) / kExtents + 1;
    const std::int64_t gap = random.Chance(0.5) ? std::min(left, random.Between(0, mean)) : 0;
    left -= gap;
    lcn += static_cast<std::int32_t>(gap);
    auto& runs = random.Chance(0.001) ? volume.blocked : volume.files[piece.file].runs;
    runs.push_back({lcn, piece.length});
    lcn += piece.length;
  }
  for (plan::FileRuns& file : volume.files) random.Shuffle(file.runs);
  return volume;
}

void SortExtents(benchmark::State& state) {
  SeededRandom random(1);
  std::vector<plan::Run> runs(kExtents);
  for (plan::Run& run : runs) run.lcn = static_cast<std::int32_t>(random.Below(1 << 30));
  for (auto _ : state) {
    std::vector<plan::Run> sorted = runs;
    std::ranges::sort(sorted, {}, &plan::Run::lcn);
    benchmark::DoNotOptimize(sorted.data());
  }
}
BENCHMARK(SortExtents)->Unit(benchmark::kSecond);

// Arguments: the volume's seed, percent in use.
void PlanDefrag(benchmark::State& state) {
  const plan::Volume volume = RandomVolume(static_cast<std::uint64_t>(state.range(0)),
                                           static_cast<double>(state.range(1)) / 100);
  const std::size_t before = held;
  for (auto _ : state) {
    most_held = held;
    const plan::Plan plan = plan::PlanDefrag(volume);
    state.counters["bytes_per_extent"] = static_cast<double>(most_held - before) / kExtents;
    state.counters["moves"] = static_cast<double>(plan.moves.size());
    state.counters["fragmented"] = plan.before.fragmented;
    state.counters["left"] = plan.after.fragmented;
    state.counters["clusters"] = static_cast<double>(plan.clusters_moved);
  }
}
BENCHMARK(PlanDefrag)->ArgsProduct({{1, 2}, {60, 80, 95}})->Unit(benchmark::kSecond)->Iterations(1);

}  // namespace
