// SPDX-License-Identifier: GPL-2.0-or-later
// The strip of the volume, column by column.
#include "ui/cluster_map.h"

#include <limits>
#include <span>

#include "host/simulated/random_volume.h"
#include "host/simulated/seeded_random.h"
#include "unit/plain_model.h"
#include "unit/rig.h"

namespace vornalux::testing {
namespace {

const std::vector<Colour>& Strip(const Rig& rig) { return rig.window.Picdepartvolume.columns(); }

// The nearest whole number, the even one of two.
std::int64_t Nearest(std::int64_t value, std::int64_t unit) {
  const std::int64_t whole = value / unit;
  const std::int64_t twice = value % unit * 2;
  return whole + (twice > unit || (twice == unit && whole % 2 == 1) ? 1 : 0);
}

// What the strip must show after a redraw with class lists, painted the long way round.
class PlainStrip {
 public:
  PlainStrip(Rig& rig, std::int32_t width) : strip_(static_cast<std::size_t>(width)) {
    const Bits bits = BitmapOf(rig.volume);
    const auto bytes = std::ssize(bits);
    const std::int64_t step = std::max<std::int64_t>(1, bytes / width);
    unit_ = step * 8;
    for (std::int64_t x = 0; x < width; ++x) {
      std::int64_t used = 0;
      for (std::int64_t lcn = x * unit_; lcn < (x + 1) * unit_; ++lcn) {
        used += lcn / 8 < bytes && Used(bits, lcn);
      }
      const std::int64_t green = 64 * unit_ + 191 * used;
      strip_[static_cast<std::size_t>(x)] = static_cast<Colour>(Nearest(green, unit_)) << 8;
    }
    const VolumeConstants& constants = rig.engine.geometry.constants;
    for (std::int64_t c = constants.MftZoneStart; c <= constants.MftZoneEnd; c += step) {
      Paint(c, 0xC0FFFF);
    }
    if (rig.volume.Facts().file_system == "NTFS") {
      for (const SimulatedRun& run : rig.volume.RunsOf("$MFT")) {
        for (std::int64_t c = run.lcn; c <= run.lcn + run.count; c += unit_) Paint(c, 0x00C0C0);
      }
    }
  }

  // All slots of a list but the last. An empty one repeats the place before it, if there is one.
  void Candidates(const std::vector<std::string>& paths, Rig& rig, Colour colour) {
    std::string place;
    for (std::size_t i = 0; i + 1 < paths.size(); ++i) {
      if (!paths[i].empty()) place = paths[i];
      if (!place.empty()) Paint(rig.engine.extents.FirstAllocatedLcn(place), colour);
    }
  }

  // The files piece by piece, a column at a time.
  void Pieces(const std::vector<std::string>& paths, Rig& rig, Colour colour) {
    for (const std::string& path : paths) {
      std::int64_t vcn = 0;
      for (const Extent& extent : rig.engine.extents.ReadExtents(path, false, false).extents) {
        for (std::int64_t c = 0; extent.Lcn >= 0 && c <= extent.NextVcn - vcn; c += unit_) {
          Paint(extent.Lcn + c, colour);
        }
        vcn = extent.NextVcn;
      }
    }
  }

  const std::vector<Colour>& strip() const { return strip_; }

 private:
  void Paint(std::int64_t lcn, Colour colour) {
    const auto column = static_cast<std::size_t>(Nearest(std::max<std::int64_t>(lcn, 0), unit_));
    if (column < strip_.size()) strip_[column] = colour;
  }

  std::vector<Colour> strip_;
  std::int64_t unit_ = 1;
};

TEST(ClusterMap, ShowsTheVolumeAndItsCandidates) {
  ForSeeds(60, [](std::uint64_t seed) {
    SeededRandom random(seed);
    RandomVolumeOptions options;
    options.geometry.total_clusters = random.Between(100, 30000);
    options.geometry.file_system = random.Chance(0.7) ? "NTFS" : "FAT";
    options.files = 20;
    const auto volume = MakeRandomVolume(options, seed);
    Rig rig(*volume);
    const auto width = static_cast<std::int32_t>(random.Between(1, 500));
    PictureBox& picture = rig.window.Picdepartvolume;
    picture.Resize(width);
    rig.Run(kAnalyze);
    const std::vector<std::string>& fragmented = rig.engine.analysis.lists.FragNames;
    PlainStrip analysed(rig, width);
    analysed.Pieces(fragmented, rig, 0x0000FF);
    EXPECT_EQ(Strip(rig), analysed.strip());

    rig.program.flags.OptimizeMode = True;
    ASSERT_TRUE(rig.engine.analysis.Analyze_This());
    rig.window.RedrawMap(MapLayers::Candidates);
    PlainStrip plain(rig, width);
    plain.Candidates(rig.engine.table.PrefetchFiles.paths, rig, 0xFFC0C0);
    plain.Candidates(rig.engine.table.DirsToMove.paths, rig, 0xFFC0C0);
    plain.Candidates(rig.engine.table.OptimizeFiles.paths, rig, 0xFF0000);
    plain.Candidates(fragmented, rig, 0x0000FF);
    EXPECT_EQ(Strip(rig), plain.strip());

    // Without valid class lists only the fragmented files are shown.
    rig.program.flags.ClassListsValid = False;
    rig.window.RedrawMap(MapLayers::Candidates);
    PlainStrip bare(rig, width);
    bare.Candidates(fragmented, rig, 0x0000FF);
    EXPECT_EQ(Strip(rig), bare.strip());
    // Another redraw inside, another width, or both, wherever it comes: the picture of the last
    // width is whole.
    const auto last_width = static_cast<std::int32_t>(random.Between(1, 500));
    const bool again = random.Chance(0.7);
    const std::size_t now = rig.machine->User().DoEventsCount();
    const auto nth = static_cast<std::size_t>(random.Between(1, 40));
    rig.machine->User().AtDoEvents(now + nth, [&] {
      picture.ResizeAtNextClear(last_width);
      if (again) picture.click();
    });
    rig.window.RedrawMap(MapLayers::Candidates);
    if (rig.machine->User().DoEventsCount() < now + nth) return;
    PlainStrip last(rig, last_width);
    last.Candidates(fragmented, rig, 0x0000FF);
    EXPECT_EQ(Strip(rig), last.strip());
    EXPECT_EQ(rig.window.LblRedraw.fore_colour.get(), activity_colour::kResting);
  });
}

// A host that takes over the columns it is told of, and no others, shows what was refreshed.
TEST(PictureBox, TellsWhichColumnsLookOtherwise) {
  ForSeeds(30, [](std::uint64_t seed) {
    SeededRandom random(seed);
    PictureBox picture(60, 1);
    std::vector<Colour> screen = picture.columns();
    std::int64_t told = 0;
    picture.refreshed = [&](std::span<const ColumnRange> changed) {
      screen.resize(picture.shown().size());
      std::int32_t last = -1;
      for (const ColumnRange& range : changed) {
        ASSERT_LT(last, range.first);
        last = range.end;
        told += range.end - range.first;
        std::copy_n(picture.shown().begin() + range.first, range.end - range.first,
                    screen.begin() + range.first);
      }
    };
    for (int step = 0; step < 200; ++step) {
      if (random.Chance(0.05)) picture.ResizeAtNextClear(picture.width() + 1);
      if (random.Chance(0.1)) picture.Clear();
      const std::vector<Colour> before = picture.shown();
      for (int i = 0; i < 3; ++i) {
        picture.DrawColumn(random.Between(-2, picture.width()),
                           static_cast<Colour>(random.Between(1, 3)));
      }
      EXPECT_EQ(picture.shown(), before);
      told = 0;
      picture.Refresh();
      EXPECT_EQ(screen, picture.columns());
      if (before.size() != screen.size()) continue;
      std::int64_t other = 0;
      for (std::size_t i = 0; i < screen.size(); ++i) other += screen[i] != before[i] ? 1 : 0;
      EXPECT_EQ(told, other);
    }
  });
}

TEST(ClusterMap, HostileZonesAndTinyVolumes) {
  constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
  constexpr std::int32_t kLeast = std::numeric_limits<std::int32_t>::min();
  for (const std::int64_t total : {1, 8, 9, 5000}) {
    for (const auto& [start, end, paints] : {std::tuple{0, 0, true},
                                             {kLeast, kMost, true},
                                             {kLeast, -9999, false},
                                             {kMost, kMost, false},
                                             {kMost, kLeast, false},
                                             {50, 10, false},
                                             {-1, 3, true}}) {
      SCOPED_TRACE(std::to_string(total) + ": " + std::to_string(start));
      SimulatedVolume volume({.total_clusters = total, .file_system = "FAT"});
      Rig rig(volume);
      rig.engine.geometry.constants.MftZoneStart = start;
      rig.engine.geometry.constants.MftZoneEnd = end;
      rig.window.RedrawMap(MapLayers::Candidates);
      EXPECT_EQ(Strip(rig)[0], paints ? map_colour::kMftZone : map_colour::kFree);
      EXPECT_LT(rig.machine->User().DoEventsCount(), 60U) << "for 24 columns";
    }
  }
  // Nothing can be painted before the first redraw; after it, what is off the strip takes no time.
  SimulatedVolume volume;
  Rig rig(volume);
  for (const Colour colour : {map_colour::kFree, map_colour::kDefrag}) {
    rig.window.PaintExtent(0, std::int64_t{1} << 60, map_colour::kDefrag);
    EXPECT_EQ(Strip(rig), std::vector<Colour>(24, colour));
    rig.window.RedrawMap(MapLayers::Volume);
  }
}

}  // namespace
}  // namespace vornalux::testing
