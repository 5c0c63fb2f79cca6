// SPDX-License-Identifier: GPL-2.0-or-later
// A full redraw of the cluster map, from the question for the bitmap to the painted strip, beside a
// plain read of the same memory: compare bytes_per_second within one run, never across runs.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "app/program.h"
#include "host/image/volume/allocation_map.h"
#include "host/mounted/mounted_platform.h"
#include "host/simulated/scripted_desktop.h"
#include "host/simulated/seeded_random.h"

namespace vornalux {
namespace {

// 1 TiB in clusters of 4 KiB.
constexpr std::int64_t kClusters = std::int64_t{1} << 28;
constexpr std::int64_t kBytes = kClusters / 8;

// A volume with nothing on it but clusters in use, kept as volumes in images keep them.
class BareVolume final : public MountedVolume {
 public:
  BareVolume() : map_(kClusters) {
    facts_.file_system = "NTFS";
    facts_.sectors_per_cluster = 8;
    facts_.total_clusters = kClusters;
    SeededRandom random(1);
    const auto length = [&random] { return random.Between(1, 1023); };
    for (std::int64_t lcn = length(); lcn < kClusters; lcn += length()) {
      const std::int64_t count = std::min(length(), kClusters - lcn);
      map_.Use(lcn, count);
      lcn += count;
    }
  }

  const VolumeFacts& Facts() const override { return facts_; }
  std::int64_t FreeClusters() const override { return map_.FreeClusters(); }
  std::optional<NtfsVolumeData> NtfsData() const override { return std::nullopt; }
  void CopyBitmap(std::int64_t first_lcn, std::span<std::uint8_t> out) const override {
    map_.Copy(first_lcn, out);
  }
  ItemId Root() const override { return 0; }
  ErrorCode List(ItemId, FolderListing&) override { return error::kSuccess; }
  std::string FoldName(std::string_view name) const override { return std::string(name); }
  std::optional<FolderItem> HiddenItem(ItemId, std::string_view) override { return std::nullopt; }
  ErrorCode Extents(const StreamRef&, std::vector<Extent>&) override { return error::kSuccess; }
  ErrorCode StreamNames(ItemId, std::vector<std::string>&) override { return error::kSuccess; }
  ErrorCode Read(const StreamRef&, std::uint64_t, std::span<std::uint8_t>, std::size_t&) override {
    return error::kNotReady;
  }
  ErrorCode Move(const StreamRef&, std::int64_t, std::int64_t, std::int64_t,
                 const MoveCheckpoint&) override {
    return error::kNotReady;
  }
  ErrorCode Commit() override { return error::kSuccess; }
  ErrorCode Close() override { return error::kSuccess; }
  bool Dirty() const override { return false; }

 private:
  VolumeFacts facts_;
  AllocationMap map_;
};

BareVolume& Volume() {
  static BareVolume volume;
  return volume;
}

void MemoryRead(benchmark::State& state) {
  std::vector<std::uint64_t> words(kBytes / 8);
  Volume().CopyBitmap(0, {reinterpret_cast<std::uint8_t*>(words.data()), kBytes});
  for (auto _ : state) {
    benchmark::DoNotOptimize(std::accumulate(words.begin(), words.end(), std::uint64_t{0}));
  }
  state.SetBytesProcessed(kBytes * state.iterations());
}
BENCHMARK(MemoryRead);

// A click on the map, in a window as it opens and in one that fills a large screen. The host makes
// pixels of the columns whenever it is to show them.
void Redraw(benchmark::State& state) {
  MountedPlatform machine;
  machine.Mount('C', Volume());
  ScriptedDesktop user;
  Program program(machine.With(user));
  program.launcher.SelectDrive("C:\\");
  program.main_window.OpenMenu();
  PictureBox& picture = program.main_window.Picdepartvolume;
  picture.Resize(static_cast<std::int32_t>(state.range(0)));
  std::vector<std::uint32_t> pixels;
  picture.refreshed = [&](std::span<const ColumnRange>) {
    pixels.clear();
    for (const Colour c : picture.columns())
      pixels.push_back((c & 0xFF) << 16 | (c & 0xFF00) | (c >> 16 & 0xFF));
    benchmark::DoNotOptimize(pixels.data());
  };
  for (auto _ : state) program.main_window.RedrawMap(MapLayers::Candidates);
  state.SetBytesProcessed(kBytes * state.iterations());
}
BENCHMARK(Redraw)->Arg(394)->Arg(3840);

}  // namespace
}  // namespace vornalux
