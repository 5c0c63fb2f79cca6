// SPDX-License-Identifier: GPL-2.0-or-later
// What the engine spends on each file that it moves, by the size of the volume and the number of
// its files: Defrag on volumes that are nothing but a bitmap and runs, once as in an image, once as
// on a system where others may write. Compare files_per_second within one run.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "app/program.h"
#include "host/image/volume/allocation_map.h"
#include "host/mounted/mounted_platform.h"
#include "host/simulated/scripted_desktop.h"
#include "host/simulated/seeded_random.h"

namespace vornalux {
namespace {

constexpr std::int64_t kClustersPerGiB = std::int64_t{1} << 18;

// Files of four pieces each, all in one folder, spread over the volume.
class BareVolume final : public MountedVolume {
 public:
  BareVolume(std::int64_t clusters, std::int64_t files, bool others_write)
      : map_(clusters), others_write_(others_write) {
    facts_.file_system = "NTFS";
    facts_.sectors_per_cluster = 8;
    facts_.total_clusters = clusters;
    SeededRandom random(1);
    const std::int64_t room = clusters / (4 * files);
    for (std::int64_t lcn = 0; lcn < 4 * files * room; lcn += room) {
      pieces_.push_back({lcn + random.Below(room - 3), 1 + random.Below(3)});
      map_.Use(pieces_.back().lcn, pieces_.back().count);
    }
    std::shuffle(pieces_.begin(), pieces_.end(), random);
  }

  mutable std::int64_t bitmaps = 0;  // times that a piece was read

  const VolumeFacts& Facts() const override { return facts_; }
  std::int64_t FreeClusters() const override { return map_.FreeClusters(); }
  std::optional<NtfsVolumeData> NtfsData() const override { return std::nullopt; }
  void CopyBitmap(std::int64_t first_lcn, std::span<std::uint8_t> out) const override {
    ++bitmaps;
    map_.Copy(first_lcn, out);
  }
  bool BitmapChanges(std::uint64_t& mark, std::vector<std::int64_t>& lcns) override {
    return others_write_ ? MountedVolume::BitmapChanges(mark, lcns)
                         : map_.Changes().Since(mark, lcns);
  }
  ItemId Root() const override { return 0; }
  ErrorCode List(ItemId folder, FolderListing& out) override {
    for (ItemId item = 1; folder == 0 && item <= pieces_.size() / 4; ++item) {
      out.Add("file" + std::to_string(item), attribute::kArchive, item);
    }
    return error::kSuccess;
  }
  std::string FoldName(std::string_view name) const override { return std::string(name); }
  std::optional<FolderItem> HiddenItem(ItemId, std::string_view) override { return std::nullopt; }
  ErrorCode Extents(const StreamRef& stream, std::vector<Extent>& out) override {
    out.clear();
    if (stream.item == 0 || !stream.stream.empty()) return error::kFileNotFound;
    std::int64_t vcn = 0;
    for (const Run& run : RunsOf(stream.item)) {
      if (run.count > 0) out.push_back({.NextVcn = vcn += run.count, .Lcn = run.lcn});
    }
    return error::kSuccess;
  }
  ErrorCode StreamNames(ItemId, std::vector<std::string>&) override { return error::kSuccess; }
  ErrorCode Read(const StreamRef&, std::uint64_t, std::span<std::uint8_t>, std::size_t&) override {
    return error::kNotReady;
  }
  // Whole files only.
  ErrorCode Move(const StreamRef& stream, std::int64_t vcn, std::int64_t lcn, std::int64_t count,
                 const MoveCheckpoint&) override {
    if (vcn != 0 || !map_.RangeFree(lcn, count)) return error::kAccessDenied;
    for (Run& run : RunsOf(stream.item)) map_.Free(run.lcn, std::exchange(run.count, 0));
    RunsOf(stream.item)[0] = {lcn, count};
    map_.Use(lcn, count);
    map_.ReleaseHeld();
    return error::kSuccess;
  }
  ErrorCode Commit() override { return error::kSuccess; }
  ErrorCode Close() override { return error::kSuccess; }
  bool Dirty() const override { return false; }

 private:
  struct Run {
    std::int64_t lcn = 0;
    std::int64_t count = 0;
  };
  std::span<Run, 4> RunsOf(ItemId item) {
    return std::span(pieces_).subspan((static_cast<std::size_t>(item) - 1) * 4).first<4>();
  }

  VolumeFacts facts_;
  AllocationMap map_;
  bool others_write_;
  std::vector<Run> pieces_;  // four of each file
};

// range(0): GiB, range(1): files, range(2): others may write.
void Defrag(benchmark::State& state) {
  for (auto _ : state) {
    state.PauseTiming();
    BareVolume volume(state.range(0) * kClustersPerGiB, state.range(1), state.range(2) != 0);
    MountedPlatform machine;
    ScriptedDesktop nobody;
    machine.Mount('C', volume);
    Program program(machine.With(nobody));
    program.launcher.SelectDrive("C:\\");
    program.main_window.OpenMenu();
    program.main_window.Picdepartvolume.Resize(24);
    program.main_window.cmdanalysemore.Click();
    state.ResumeTiming();
    program.main_window.PassItem(Pass::Defrag).Click();
    const auto of_each = [files = static_cast<double>(state.range(1))](std::int64_t count) {
      return static_cast<double>(count) / files;
    };
    state.counters["moves"] = of_each(program.main_window.engine.movers.statistics.moves);
    state.counters["bitmaps"] = of_each(volume.bitmaps);
  }
  state.counters["files_per_second"] = benchmark::Counter(
      static_cast<double>(state.range(1) * state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(Defrag)
    ->ArgsProduct({{8, 1024}, {20'000, 100'000}, {0, 1}})
    ->ArgNames({"GiB", "files", "others_write"})
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace vornalux
