// SPDX-License-Identifier: GPL-2.0-or-later
// Whole moves, from the first to Close(): the power goes, or a call fails, at every point.
#include <gtest/gtest.h>

#include <algorithm>

#include "host/image/journal/journal.h"
#include "host/image/journal/journal_format.h"
#include "support/seed.h"
#include "support/tiny_volume.h"

namespace vornalux::test {
namespace {

constexpr std::int64_t kClusters = 96;

// Random moves, most of them possible; some are committed by the clock, some on demand.
ErrorCode RandomMoves(TinyVolume& volume, Random& random, int count) {
  for (int i = 0; i < count; ++i) {
    const ErrorCode code =
        volume.Move(TinyVolume::File(static_cast<int>(Below(random, TinyVolume::kFiles))),
                    static_cast<std::int64_t>(Below(random, 4)),
                    static_cast<std::int64_t>(Below(random, kClusters)),
                    1 + static_cast<std::int64_t>(Below(random, 4)));
    if (code == error::kGenFailure || code == error::kWriteFault) return code;
    if (Below(random, 30) != 0) continue;
    if (const ErrorCode commit = volume.Commit()) return commit;
    // Metadata without a move, in sectors that no file needs.
    const Bytes note(2000, static_cast<std::uint8_t>(random()));
    const std::uint64_t at = TinyVolume::kFirstCluster - 4096 + Below(random, 2000);
    if (Below(random, 4) != 0 || volume.Device().Write(at, note)) continue;
    if (const ErrorCode commit = volume.Commit()) return commit;
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
    std::size_t events = 0;  // of the log, until nothing could undo the commit any more
    Bytes metadata;
  };
  Bytes start;
  DeviceLog log;
  std::vector<State> states;

  // A commit is there from the flush of its record on, and what it says follows in its place.
  void FindStates() {
    MemoryDevice volume(start);
    states = {{0, Metadata(start)}};
    bool recorded = false;
    for (std::size_t i = 0; i < log.size(); ++i) {
      const DeviceEvent& event = log[i];
      const bool write = event.kind == DeviceEvent::Kind::Write;
      if (event.device == 0 && write) {
        volume.Write(event.offset, event.data);
        states.back().metadata = Metadata(volume.Content());
      } else if (event.device == 1) {
        if (!write && recorded) states.push_back({i + 1, states.back().metadata});
        recorded = write && event.offset >= journal_format::kRecordOffset;
      }
    }
  }
};

// As of a run whose clock jumps, so that most commits are followed by others before they are
// settled, and to which two clusters are a large move.
CommitLimits Limits(Random& random) {
  return {.waiting_move = 2 * TinyVolume::kClusterSize,
          .clock = [&random, now = std::uint64_t{0}]() mutable {
            return now += Below(random, 12) == 0 ? 2000U : 0U;
          }};
}

History RandomHistory(Random& random, int moves) {
  TinyWorld world(TinyVolume::Format(random, kClusters));
  world.limits = Limits(random);
  History history{world.device.Content(), {}, {}};
  EXPECT_EQ(TinyVolume::Judge(history.start), "");
  EXPECT_EQ(RandomMoves(*world.Open(&history.log), random, moves), error::kSuccess);
  history.FindStates();
  EXPECT_EQ(TinyVolume::Judge(world.device.Content()), "");
  EXPECT_EQ(Metadata(world.device.Content()), history.states.back().metadata);
  EXPECT_GT(history.states.size(), 15U);
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
    if (!exists || Below(random, 4) != 0) return world;
    Cut again(world.device.Content(), world.journal.store.Content());
    again.exists = true;
    DeviceLog log;
    world.Recover(&log);
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
std::string FirstViolation(const History& history, Random& random, int reorderings,
                           bool any_state = false) {
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
      if (!any_state && found != history.states[done].metadata &&
          found != history.states[next].metadata) {
        trouble += " in no committed state";
      }
      if (trouble.empty()) continue;
      return "cut after event " + std::to_string(i) + " of " + std::to_string(history.log.size()) +
             ", variant " + std::to_string(variant) + ": " + trouble;
    }
  }
  return "";
}

// Each flush is there for a reason: without it some power cut does damage.
TEST(JournalPowerCut, NoFlushCanBeLeftOut) {
  struct Case {
    const char* what;
    int device;
    bool settles;  // or else is a part of a commit
  };
  for (const Case& c : {Case{"data before the record", 0, false}, Case{"the record", 1, false},
                        Case{"what is applied, before it is settled", 0, true},
                        Case{"that it is settled", 1, true}}) {
    const std::uint64_t first_seed = TestSeed();
    std::string violation;
    for (std::uint64_t seed = first_seed; seed < first_seed + 20 && violation.empty(); ++seed) {
      Random random(seed);
      History history = RandomHistory(random, 250);
      // A flush of the volume is for what is written to the journal next.
      std::uint64_t offset = 0;
      for (std::size_t i = 0; i < history.log.size(); ++i) {
        DeviceEvent& event = history.log[i];
        const auto is_note = [](const DeviceEvent& other) {
          return other.device == 1 && other.kind == DeviceEvent::Kind::Write;
        };
        if (is_note(event)) offset = event.offset;
        if (event.device != c.device || event.kind != DeviceEvent::Kind::Flush) continue;
        const auto next = std::find_if(history.log.begin() + static_cast<std::ptrdiff_t>(i),
                                       history.log.end(), is_note);
        if (c.device == 0 && next == history.log.end()) continue;
        const std::uint64_t place = c.device == 0 ? next->offset : offset;
        if (place == 0 || (place == journal_format::kProofOffset) != c.settles) continue;
        event.kind = DeviceEvent::Kind::Write;  // of nothing
      }
      violation = FirstViolation(history, random, 6, true);
    }
    EXPECT_NE(violation, "") << c.what;
  }
}

// Each call of the volume's device, or of the journal's, fails in turn, once or for ever. The
// program goes on as long as it is let; then it is as if the power had gone.
TEST(JournalPowerCut, FilesAreWholeAfterAnIoErrorAtAnyCall) {
  const std::uint64_t seed = TestSeed();
  for (const int which : {0, 1, 2, 3}) {
    const bool for_ever = which % 2 != 0;
    const bool of_journal = which / 2 != 0;
    bool reached_the_end = false;
    for (std::int64_t nth = 0; !reached_the_end; ++nth) {
      SCOPED_TRACE(SeedNote(seed) + ", call " + std::to_string(nth));
      Random random(seed);
      TinyWorld world(TinyVolume::Format(random, kClusters));
      world.limits = Limits(random);
      FailingDevice failing(of_journal ? world.journal.store : world.device, FailingDevice::kAll);
      {
        world.journal.through = of_journal ? &failing : nullptr;
        const std::unique_ptr<TinyVolume> volume =
            world.Open(nullptr, of_journal ? nullptr : &failing);
        failing.FailAt(nth, for_ever);
        RandomMoves(*volume, random, 25);
      }
      world.journal.through = nullptr;
      reached_the_end = !failing.HasFailed();
      ASSERT_EQ(world.Recover(), "");
      ASSERT_EQ(TinyVolume::Judge(world.device.Content()), "");
    }
  }
}

}  // namespace
}  // namespace vornalux::test
