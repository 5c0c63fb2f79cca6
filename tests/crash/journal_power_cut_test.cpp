// SPDX-License-Identifier: GPL-2.0-or-later
// Whole moves, from the first to Close(): the power goes, or a call fails, at every point.
#include <gtest/gtest.h>

#include <algorithm>

#include "host/image/journal/journal.h"
#include "support/seed.h"
#include "support/tiny_volume.h"

namespace vornalux::test {
namespace {

constexpr std::int64_t kClusters = 96;

// Random moves, most of them possible; a commit here and there, which is told.
template <typename Committed>
ErrorCode RandomMoves(TinyVolume& volume, Random& random, int count, Committed committed) {
  for (int i = 0; i < count; ++i) {
    const ErrorCode code =
        volume.Move(TinyVolume::File(static_cast<int>(Below(random, TinyVolume::kFiles))),
                    static_cast<std::int64_t>(Below(random, 4)),
                    static_cast<std::int64_t>(Below(random, kClusters)),
                    1 + static_cast<std::int64_t>(Below(random, 4)));
    if (code == error::kGenFailure || code == error::kWriteFault) return code;
    if (Below(random, 12) != 0) continue;
    if (const ErrorCode commit = volume.Commit()) return commit;
    committed();
    // Metadata without a move, in sectors that no file needs.
    const Bytes note(2000, static_cast<std::uint8_t>(random()));
    const std::uint64_t at = TinyVolume::kFirstCluster - 4096 + Below(random, 2000);
    if (Below(random, 4) != 0 || volume.Device().Write(at, note)) continue;
    if (const ErrorCode commit = volume.Commit()) return commit;
    committed();
  }
  return volume.Close();
}

// All metadata but the dirty flag. What it says about content the volume's judge knows.
Bytes Metadata(const Bytes& volume) {
  Bytes metadata(volume.begin(), volume.begin() + TinyVolume::kFirstCluster);
  metadata[0] = 0;
  return metadata;
}

// What was done to volume (0) and journal (1), and the committed states on the way.
struct History {
  struct State {
    std::size_t events = 0;  // of the log, until the commit returned
    Bytes metadata;
  };
  Bytes start;
  DeviceLog log;
  std::vector<State> states;
};

History RandomHistory(Random& random, int moves) {
  TinyWorld world(TinyVolume::Format(random, kClusters));
  History history{world.device.Content(), {}, {}};
  const auto committed = [&] {
    history.states.push_back({history.log.size(), Metadata(world.device.Content())});
  };
  committed();
  EXPECT_EQ(TinyVolume::Judge(history.start), "");
  EXPECT_EQ(RandomMoves(*world.Open(&history.log), random, moves, committed), error::kSuccess);
  committed();
  EXPECT_EQ(TinyVolume::Judge(world.device.Content()), "");
  EXPECT_GT(history.log.size(), 100U);
  return history;
}

struct Cut {
  explicit Cut(const Bytes& start, const Bytes& journal = {})
      : volume(start), store(journal, true) {}

  void Apply(const DeviceEvent& event) {
    (event.device == 0 ? volume : store).Apply(event);
    if (event.kind == DeviceEvent::Kind::Create) exists = true;
    if (event.kind == DeviceEvent::Kind::Remove) exists = false;
  }

  // The power goes; it may go again while somebody recovers what is left.
  TinyWorld Left(Random& random, bool in_order) {
    TinyWorld world(in_order ? volume.InOrder() : volume.Reordered(random));
    world.journal.exists = exists;
    world.journal.store.Content() = in_order ? store.InOrder() : store.Reordered(random);
    if (!exists || Below(random, 8) != 0) return world;
    Cut again(world.device.Content(), world.journal.store.Content());
    again.exists = true;
    DeviceLog log;
    RecordingDevice recorded_volume(world.device, log, 0);
    RecordingDevice recorded_store(world.journal.store, log, 1);
    RedoJournal(recorded_store, recorded_volume).Recover(TinyVolume::Identity());
    const std::size_t done = Below(random, log.size() + 1);
    for (std::size_t i = 0; i < done; ++i) again.Apply(log[i]);
    return again.Left(random, false);
  }

  PowerCutDevice volume;
  PowerCutDevice store;
  bool exists = false;
};

// Cuts the power after every event of the log: each time the volume must be in the state before or
// after the commit in progress, with all earlier commits. What went wrong first, or nothing.
std::string FirstViolation(const History& history, Random& random, int reorderings) {
  Cut cut(history.start);
  std::size_t done = 0;
  for (std::size_t i = 0; i < history.log.size(); ++i) {
    cut.Apply(history.log[i]);
    while (done + 1 < history.states.size() && history.states[done + 1].events <= i + 1) ++done;
    for (int variant = 0; variant <= reorderings; ++variant) {
      TinyWorld world = cut.Left(random, variant == 0);
      std::string trouble = world.Recover();
      if (trouble.empty()) trouble = TinyVolume::Judge(world.device.Content());
      const Bytes found = Metadata(world.device.Content());
      const std::size_t next = std::min(done + 1, history.states.size() - 1);
      if (found != history.states[done].metadata && found != history.states[next].metadata) {
        trouble += " in no committed state";
      }
      if (trouble.empty()) continue;
      return "cut after event " + std::to_string(i) + " of " + std::to_string(history.log.size()) +
             ", variant " + std::to_string(variant) + ": " + trouble;
    }
  }
  return "";
}

TEST(JournalPowerCut, FilesAreWholeAfterAPowerCutAtAnyWrite) {
  const std::uint64_t first_seed = TestSeed();
  for (std::uint64_t seed = first_seed; seed < first_seed + 12; ++seed) {
    Random random(seed);
    const History history = RandomHistory(random, 250);
    ASSERT_EQ(FirstViolation(history, random, 6), "") << SeedNote(seed);
  }
}

// Each call of the volume's device fails in turn, once or for ever. The program goes on as long as
// it is let; then it is as if the power had gone.
TEST(JournalPowerCut, FilesAreWholeAfterAnIoErrorAtAnyCall) {
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
        RandomMoves(*volume, random, 25, [] {});
      }
      reached_the_end = !failing.HasFailed();
      ASSERT_EQ(world.Recover(), "");
      ASSERT_EQ(TinyVolume::Judge(world.device.Content()), "");
    }
  }
}

}  // namespace
}  // namespace vornalux::test
