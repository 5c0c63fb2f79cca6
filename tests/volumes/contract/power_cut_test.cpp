// SPDX-License-Identifier: GPL-2.0-or-later
// Real file systems in memory: the power goes anywhere in a run of random moves, with writes lost
// and out of order, and perhaps again while the next run makes the volume whole.
#include <gtest/gtest.h>

#include "check/content.h"
#include "check/volume_check.h"
#include "host/image/fat/fat_volume.h"
#include "host/image/ntfs/open_ntfs.h"
#include "mkvolume/maker.h"
#include "support/devices.h"
#include "support/image_folder.h"
#include "support/seed.h"
#include "volumes/contract/contract.h"

namespace vornalux::test {
namespace {

const VolumeIdentity kIdentity{{'T', 'E', 'S', 'T'}, 1, 0, 0, {}, "here"};

struct World {
  MemoryDevice volume;
  MemoryJournal journal;
};

std::unique_ptr<ImageVolume> Open(World& world, DeviceLog& log, bool recovering) {
  VolumeStore store;
  store.device = std::make_unique<RecordingDevice>(world.volume, log, 0);
  store.journal_home = std::make_unique<MemoryJournalHome>(world.journal);
  store.identity = kIdentity;
  store.recovering = recovering;
  world.journal.log = &log;
  const bool ntfs = world.volume.Content()[3] == 'N';
  return ntfs ? OpenNtfsVolume(std::move(store)) : OpenFatVolume(std::move(store));
}

void MoveAbout(ImageVolume& volume, Random& random, int count) {
  const auto streams = contract::Walk(volume, true);
  const auto clusters = static_cast<std::uint64_t>(volume.Facts().total_clusters);
  ASSERT_FALSE(streams.empty());
  std::vector<std::int64_t> left;  // where files were: held until the commit
  for (int tries = 0; tries < count; ++tries) {
    const StreamRef& stream = streams[Below(random, streams.size())].ref;
    std::vector<Extent> extents;
    if (volume.Extents(stream, extents) != error::kSuccess || extents.empty()) continue;
    const auto end = static_cast<std::uint64_t>(extents.back().NextVcn);
    std::int64_t to = static_cast<std::int64_t>(Below(random, clusters));
    if (!left.empty() && Below(random, 2) == 0) to = left[Below(random, left.size())];
    const ErrorCode code = volume.Move(stream, static_cast<std::int64_t>(Below(random, end)), to,
                                       1 + static_cast<std::int64_t>(Below(random, end)));
    if (code == error::kSuccess) left.push_back(extents.front().Lcn);
    if (Below(random, 30) == 0) {
      ASSERT_EQ(volume.Commit(), error::kSuccess);
    }
  }
}

// What a power cut leaves after so many events.
World Cut(const World& start, const DeviceLog& log, std::size_t events, Random& random) {
  World left{start};
  left.journal.log = nullptr;
  PowerCutDevice volume(left.volume.Content());
  PowerCutDevice store(left.journal.store.Content(), true);
  for (std::size_t i = 0; i < events; ++i) {
    using Kind = DeviceEvent::Kind;
    (log[i].device == 0 ? volume : store).Apply(log[i]);
    if (log[i].kind == Kind::Create || log[i].kind == Kind::Remove) {
      left.journal.exists = log[i].kind == Kind::Create;
    }
  }
  const bool in_order = Below(random, 4) == 0;
  left.volume.Content() = in_order ? volume.InOrder() : volume.Reordered(random);
  left.journal.store.Content() = in_order ? store.InOrder() : store.Reordered(random);
  return left;
}

// What a program does that finds the journal. Says what went wrong.
std::string Recover(World& world, DeviceLog& log) {
  if (!world.journal.exists) return "";
  RecordingDevice volume(world.volume, log, 0);
  RecordingDevice store(world.journal.store, log, 1);
  const JournalFinding finding = RedoJournal(store, volume).Recover(kIdentity);
  if (finding.error) return finding.error.message();
  if (finding.state == JournalState::Empty) return "";
  if (finding.state != JournalState::Idle && finding.state != JournalState::Replayed) {
    return finding.detail;
  }
  const ErrorCode code = Open(world, log, true)->Recover();
  return code ? "error " + std::to_string(code) : "";
}

class PowerCutTest : public testing::TestWithParam<const char*> {};

TEST_P(PowerCutTest, LeavesEveryFileWholeAndIsRecoveredFrom) {
  const std::uint64_t seed = TestSeed();
  Random random(seed);
  const ScratchFolder folder;
  const Manifest manifest =
      MakeVolume(GetParam() + (" seed=" + std::to_string(seed)), folder.Path("image"));
  const World start{MemoryDevice(folder.Get("image")), {}};
  World world = start;
  DeviceLog log;
  {
    const auto volume = Open(world, log, false);
    MoveAbout(*volume, random, 400);
    ASSERT_EQ(volume->Close(), error::kSuccess);
  }
  ASSERT_GT(log.size(), 40U);
  const int rounds = start.volume.Size() < (std::size_t{16} << 20) ? 40 : 5;
  for (int round = 0; round < rounds; ++round) {
    const std::size_t events = Below(random, log.size() + 1);
    SCOPED_TRACE(SeedNote(seed) + ", round " + std::to_string(round) + ", cut after event " +
                 std::to_string(events) + " of " + std::to_string(log.size()));
    World left = Cut(start, log, events, random);
    for (std::uint64_t again = Below(random, 3); again > 0; --again) {
      World tried = left;
      DeviceLog recovery;
      ASSERT_EQ(Recover(tried, recovery), "");
      left = Cut(left, recovery, Below(random, recovery.size() + 1), random);
    }
    DeviceLog last;
    ASSERT_EQ(Recover(left, last), "");
    const CheckReport report = CheckVolume(MemorySource(left.volume.Content()), {.hash = true});
    ASSERT_TRUE(report.Clean()) << report.ProblemText();
    ASSERT_FALSE(report.dirty);
    ASSERT_EQ(CompareContent(report.items, manifest), std::vector<std::string>());
  }
}

INSTANTIATE_TEST_SUITE_P(
    Volumes, PowerCutTest,
    testing::Values("ntfs size=6M files=40 fragmented=80% fragmented-folders=50% pieces=4 fill=60%",
                    "ntfs size=4M cluster=512 files=40 fragmented=80% pieces=8 fill=50%",
                    "fat12 size=1M cluster=512 files=30 fragmented=80% pieces=4 fill=50%",
                    "fat16 size=4M cluster=512 files=40 fragmented=80% pieces=4 fill=50%",
                    "fat32 size=34M cluster=512 files=40 fragmented=80% pieces=4 fill=5%"),
    [](const auto& param) {
      const std::string recipe = param.param;
      return std::to_string(param.index) + recipe.substr(0, recipe.find(' '));
    });

}  // namespace
}  // namespace vornalux::test
