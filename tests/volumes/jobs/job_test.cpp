// SPDX-License-Identifier: GPL-2.0-or-later
// Whole runs on made volumes: content and structure by the checkers, and analysis and final layout
// against the same run on a simulated copy of the volume.
#include <map>
#include <memory>

#include "app/program.h"
#include "host/image/opening/image_file.h"
#include "host/simulated/simulated_platform.h"
#include "support/made_volume.h"

namespace vornalux::test {
namespace {

// A machine with one volume on C: and its program.
struct Machine {
  explicit Machine(MountedVolume& volume) : platform({.windows_folder = "C:\\Windows"}) {
    platform.Mount('C', volume);
    program = std::make_unique<Program>(platform.All());
    program->launcher.SelectDrive("C:\\");
    program->main_window.OpenMenu();
  }

  SimulatedPlatform platform;
  std::unique_ptr<Program> program;
};

std::unique_ptr<MountedVolume> OpenForWork(const std::string& path) {
  OpenOptions options;
  options.writable = true;
  OpenReport report;
  return OpenImage(path, options, report);
}

// By "path" or "path:stream", of everything there is.
using Layout = std::map<std::string, std::vector<Extent>>;

Layout LayoutOf(const CheckReport& report) {
  Layout layout;
  for (const CheckedItem& item : report.items) {
    std::string name = item.path;
    if (!item.stream.empty()) name += ":" + item.stream;
    std::vector<Extent>& extents = layout[name];
    for (const CheckedExtent& run : item.extents) extents.push_back({run.vcn + run.count, run.lcn});
  }
  return layout;
}

// A simulated volume whose items have the order, names and clusters of a real one.
class Replica {
 public:
  explicit Replica(MountedVolume& original)
      : original_(original),
        volume_({.total_clusters = original.Facts().total_clusters,
                 .sectors_per_cluster = original.Facts().sectors_per_cluster,
                 .bytes_per_sector = original.Facts().bytes_per_sector,
                 .file_system = original.Facts().file_system,
                 .label = original.Facts().label,
                 .mft_zone = original.NtfsData().value_or(NtfsVolumeData{})}) {
    Copy(original.Root(), volume_.Root(), "");
    if (const auto mft = original.HiddenItem(original.Root(), "$MFT")) {
      volume_.MakeImmovable(volume_.AddMft(Runs({mft->id, ""})), 16);
    }
    TakeTheRest();
  }

  SimulatedVolume& Volume() { return volume_; }

  Layout Now() {
    Layout layout;
    for (const auto& [name, id] : items_) {
      std::vector<Extent> extents;
      volume_.Extents(id, extents);
      layout[name] = extents;
    }
    return layout;
  }

 private:
  std::vector<SimulatedRun> Runs(const StreamRef& stream) {
    std::vector<Extent> extents;
    original_.Extents(stream, extents);
    std::vector<SimulatedRun> runs;
    std::int64_t vcn = 0;
    for (const Extent& extent : extents) {
      runs.push_back({extent.Lcn, extent.NextVcn - vcn});
      vcn = extent.NextVcn;
    }
    return runs;
  }

  std::string Content(ItemId file) {
    std::vector<std::uint8_t> bytes(std::size_t{1} << 20);
    std::size_t done = 0;
    EXPECT_EQ(original_.Read({file, ""}, 0, bytes, done), error::kSuccess);
    return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(done)};
  }

  void Copy(ItemId from, ItemId to, const std::string& path) {
    std::vector<FolderItem> children;
    ASSERT_EQ(original_.ListFolder(from, children), error::kSuccess) << path;
    for (const FolderItem& child : children) {
      const std::string name = path + "/" + child.name;
      const ItemId copy = volume_.AddItem(to, child.name, Runs({child.id, ""}), child.attributes);
      items_[name] = {copy, ""};
      if (child.name == "layout.ini") volume_.SetContent(copy, Content(child.id));
      if (child.attributes & attribute::kDirectory) {
        Copy(child.id, copy, name);
        continue;
      }
      std::vector<std::string> streams;
      original_.StreamNames(child.id, streams);
      for (const std::string& stream : streams) {
        if (stream == "::$DATA") continue;
        const std::string bare = stream.substr(1, stream.rfind(':') - 1);
        volume_.AddStream(copy, bare, Runs({child.id, stream}));
        items_[name + ":" + bare] = {copy, stream};
      }
    }
  }

  // What belongs to the file system itself.
  void TakeTheRest() {
    const std::int64_t total = original_.Facts().total_clusters;
    std::vector<std::uint8_t> theirs(static_cast<std::size_t>(total / 8 + 1));
    std::vector<std::uint8_t> ours(theirs.size());
    original_.CopyBitmap(0, theirs);
    volume_.CopyBitmap(0, ours);
    for (std::int64_t lcn = 0; lcn < total; ++lcn) {
      const auto at = static_cast<std::size_t>(lcn / 8);
      if ((theirs[at] & ~ours[at]) >> (lcn % 8) & 1) volume_.TakeClusters(lcn, 1);
    }
  }

  MountedVolume& original_;
  SimulatedVolume volume_;
  std::map<std::string, StreamRef> items_;
};

class JobTest : public MadeVolume, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override { Make(GetParam(), TestSeed(23)); }

  CheckReport Judge(bool content) const {
    CheckReport report = CheckVolume(image_, {.hash = content});
    EXPECT_TRUE(report.Clean()) << report.ProblemText();
    EXPECT_FALSE(report.dirty);
    if (content) {
      EXPECT_EQ(CompareContent(report.items, manifest_), std::vector<std::string>());
    }
    return report;
  }
};

TEST_P(JobTest, RunsLeaveTheLayoutThatTheSimulationPredicts) {
  for (const char* line :
       {"/drv C: /d", "/drv C: /o /vssafe", "/drv C: /o", "/drv C: /c /vssafe", "/drv C: /c"}) {
    SCOPED_TRACE(recipe_ + " " + line);
    std::unique_ptr<MountedVolume> volume = OpenForWork(image_);
    Replica replica(*volume);
    ASSERT_EQ(replica.Now(), LayoutOf(Judge(false)));

    Machine real(*volume);
    ASSERT_EQ(real.program->launcher.process_cmd_line(line), JobOutcome::Done);
    // Small clusters leave nothing that could move and stay aligned.
    if (!std::string(line).ends_with("/vssafe")) {
      EXPECT_GT(real.program->main_window.engine.movers.statistics.moves, 0);
    }
    real.program.reset();
    ASSERT_EQ(volume->Close(), error::kSuccess);
    volume.reset();

    Machine simulated(replica.Volume());
    simulated.program->launcher.process_cmd_line(line);
    EXPECT_TRUE(replica.Volume().ContentIntact());
    EXPECT_TRUE(replica.Now() == LayoutOf(Judge(true)));
    if (HasFailure()) return;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Recipes, JobTest,
    testing::Values(
        "ntfs size=64M files=400 fragmented=80% pieces=5 fill=60% windows=1",
        "ntfs size=64M cluster=512 files=600 fragmented=90% pieces=4 streams=20% "
        "sparse=15% fill=55% fragmented-folders=50%",
        "fat12 size=4M files=120 fragmented=90% fill=70%",
        "fat16 size=32M cluster=1K files=300 fragmented=90% pieces=8 fill=75% windows=1",
        "fat32 size=64M cluster=512 files=500 fragmented=80% fill=60% bad=40"),
    [](const auto& param) {
      const std::string recipe = param.param;
      return recipe.substr(0, recipe.find(' ')) + "_" + std::to_string(param.index);
    });

}  // namespace
}  // namespace vornalux::test
