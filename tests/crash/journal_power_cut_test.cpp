// SPDX-License-Identifier: GPL-2.0-or-later
// The power goes at every write of random transactions. Afterwards the volume must be as it was
// before or after the commit in progress, with all earlier commits.
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>

#include "host/image/journal.h"
#include "host/image/transaction.h"
#include "support/devices.h"
#include "support/seed.h"

namespace vornalux::test {
namespace {

constexpr std::size_t kSector = 512;
constexpr std::size_t kMetadata = 12 * kSector;
constexpr std::size_t kSlots = 10;
constexpr std::size_t kSlotSize = 6 * kSector;
constexpr std::size_t kVolume = kMetadata + kSlots * kSlotSize;
constexpr int kVolumeDevice = 0;
constexpr int kJournalDevice = 1;
const VolumeIdentity kIdentity{{'T', 'E', 'S', 'T'}, 42, kVolume, 0};

// What counts of a volume: the metadata, and the content of the slots in use.
struct State {
  Bytes volume;
  std::array<bool, kSlots> live{};

  bool Matches(const Bytes& other) const {
    if (!std::equal(volume.begin(), volume.begin() + kMetadata, other.begin())) return false;
    for (std::size_t slot = 0; slot < kSlots; ++slot) {
      const auto at = static_cast<std::ptrdiff_t>(kMetadata + slot * kSlotSize);
      const auto end = at + static_cast<std::ptrdiff_t>(kSlotSize);
      if (!live[slot]) continue;
      if (!std::equal(volume.begin() + at, volume.begin() + end, other.begin() + at)) return false;
    }
    return true;
  }
};

struct CommitMark {
  std::size_t begin = 0;  // events before the commit
  std::size_t end = 0;    // events when it returned
};

struct History {
  Bytes start;
  DeviceLog log;
  std::vector<CommitMark> commits;
  std::vector<State> states;  // states[n]: after n commits
};

Bytes RandomBytes(Random& random, std::size_t count) {
  Bytes bytes(count);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return bytes;
}

// Does random work in transactions: file data goes to slots that no committed state uses; metadata
// goes anywhere, into slots in use as well.
class Worker {
 public:
  Worker(History& history, Random& random)
      : history_(history),
        random_(random),
        volume_(RandomBytes(random, kVolume)),
        recorded_volume_(volume_, history.log, kVolumeDevice),
        recorded_store_(store_, history.log, kJournalDevice),
        journal_(recorded_store_, recorded_volume_),
        transaction_(recorded_volume_) {
    history_.start = volume_.Content();
    state_.volume = history_.start;
    history_.states.push_back(state_);
  }

  void Run(int batches) {
    ASSERT_FALSE(journal_.Begin(kIdentity));
    transaction_.AttachJournal(&journal_);
    for (int batch = 0; batch < batches; ++batch) {
      committed_live_ = state_.live;
      const std::uint64_t moves = 1 + Below(random_, 4);
      for (std::uint64_t move = 0; move < moves; ++move) OneMove();
      CommitMark mark{history_.log.size(), 0};
      ASSERT_FALSE(transaction_.Commit());
      mark.end = history_.log.size();
      history_.commits.push_back(mark);
      history_.states.push_back(state_);
    }
  }

 private:
  void OneMove() {
    const State before = state_;
    transaction_.BeginMove();
    MoveSlot();
    const std::uint64_t writes = 1 + Below(random_, 3);
    for (std::uint64_t i = 0; i < writes; ++i) {
      WriteMetadata(Below(random_, kMetadata - 700), 1 + Below(random_, 700));
    }
    if (Below(random_, 4) == 0) {
      transaction_.DropMove();
      state_ = before;
    } else {
      transaction_.KeepMove();
    }
  }

  void MoveSlot() {
    const std::size_t to = Below(random_, kSlots);
    const std::size_t from = Below(random_, kSlots);
    if (state_.live[to] || committed_live_[to]) return;
    const Bytes content = RandomBytes(random_, kSlotSize);
    ASSERT_FALSE(transaction_.WriteData(SlotAt(to), content));
    std::copy(content.begin(), content.end(),
              state_.volume.begin() + static_cast<std::ptrdiff_t>(SlotAt(to)));
    state_.live[to] = true;
    WriteMetadata(SlotAt(to) + Below(random_, kSlotSize - 40), 40);
    state_.live[from] = false;
  }

  void WriteMetadata(std::uint64_t offset, std::size_t length) {
    const Bytes content = RandomBytes(random_, length);
    ASSERT_FALSE(transaction_.Write(offset, content));
    std::copy(content.begin(), content.end(),
              state_.volume.begin() + static_cast<std::ptrdiff_t>(offset));
  }

  static std::uint64_t SlotAt(std::size_t slot) { return kMetadata + slot * kSlotSize; }

  History& history_;
  Random& random_;
  MemoryDevice volume_;
  MemoryDevice store_{0, true};
  RecordingDevice recorded_volume_;
  RecordingDevice recorded_store_;
  RedoJournal journal_;
  Transaction transaction_;
  State state_;
  std::array<bool, kSlots> committed_live_{};
};

// Recovers what a power cut left. Cut again and again while it recovers, it must come to the same.
std::optional<Bytes> Recovered(const Bytes& volume_left, const Bytes& store_left, Random& random,
                               std::string& why) {
  PowerCutDevice volume(volume_left);
  PowerCutDevice store(store_left, true);
  DeviceLog log;
  RecordingDevice recorded_volume(volume, log, kVolumeDevice);
  RecordingDevice recorded_store(store, log, kJournalDevice);
  const JournalFinding finding = RedoJournal(recorded_store, recorded_volume).Recover(kIdentity);
  why = finding.error ? finding.error.message() : finding.detail;
  if (finding.error || finding.state == JournalState::Conflict ||
      finding.state == JournalState::Foreign) {
    return std::nullopt;
  }
  if (!log.empty() && Below(random, 8) == 0) {
    PowerCutDevice volume_again(volume_left);
    PowerCutDevice store_again(store_left, true);
    const std::size_t cut = Below(random, log.size());
    for (std::size_t i = 0; i < cut; ++i) {
      (log[i].device == kVolumeDevice ? volume_again : store_again).Apply(log[i]);
    }
    return Recovered(volume_again.Reordered(random), store_again.Reordered(random), random, why);
  }
  return volume.InOrder();
}

// Cuts the power after every event of the log; returns what went wrong first, or nothing.
std::string FirstViolation(const History& history, Random& random, int reorderings) {
  PowerCutDevice volume(history.start);
  PowerCutDevice store({}, true);
  for (std::size_t cut = 0; cut <= history.log.size(); ++cut) {
    const auto done = static_cast<std::size_t>(
        std::count_if(history.commits.begin(), history.commits.end(),
                      [&](const CommitMark& mark) { return mark.end <= cut; }));
    const bool in_commit = done < history.commits.size() && history.commits[done].begin < cut;
    for (int variant = 0; variant <= reorderings; ++variant) {
      std::string why;
      const auto left =
          variant == 0 ? Recovered(volume.InOrder(), store.InOrder(), random, why)
                       : Recovered(volume.Reordered(random), store.Reordered(random), random, why);
      const bool good = left && (history.states[done].Matches(*left) ||
                                 (in_commit && history.states[done + 1].Matches(*left)));
      if (good) continue;
      return "cut " + std::to_string(cut) + " of " + std::to_string(history.log.size()) +
             ", variant " + std::to_string(variant) + ", after " + std::to_string(done) +
             " commits: " + (left ? "the volume is in no committed state" : why);
    }
    if (cut == history.log.size()) break;
    const DeviceEvent& event = history.log[cut];
    (event.device == kVolumeDevice ? volume : store).Apply(event);
  }
  return "";
}

History RandomHistory(Random& random, int batches) {
  History history;
  Worker(history, random).Run(batches);
  return history;
}

TEST(JournalPowerCut, VolumeIsAlwaysBeforeOrAfterTheCommit) {
  const std::uint64_t first_seed = TestSeed();
  for (std::uint64_t seed = first_seed; seed < first_seed + 20; ++seed) {
    Random random(seed);
    const History history = RandomHistory(random, 25);
    ASSERT_EQ(history.commits.size(), 25U);
    EXPECT_EQ(FirstViolation(history, random, 6), "") << SeedNote(seed);
  }
}

// The flushes: one when work begins, and those of a commit in their order.
enum class Phase { Begin, Data, Record, Apply, Drop };

// The same log from a machine that takes no notice of one kind of flush.
History Without(Phase phase, const History& history) {
  History out = history;
  out.log.clear();
  Phase last_journal_phase = Phase::Begin;
  for (std::size_t i = 0; i < history.log.size(); ++i) {
    const DeviceEvent& event = history.log[i];
    if (event.kind == DeviceEvent::Kind::Flush) {
      const bool recorded = last_journal_phase == Phase::Record;
      Phase now = recorded ? Phase::Apply : Phase::Data;
      if (event.device == kJournalDevice) {
        const bool begins = i < history.commits.front().begin;
        now = begins ? Phase::Begin : recorded ? Phase::Drop : Phase::Record;
        last_journal_phase = now;
      }
      if (now == phase) {
        for (std::size_t mark = 0; mark < out.commits.size(); ++mark) {
          if (history.commits[mark].begin > i) --out.commits[mark].begin;
          if (history.commits[mark].end > i) --out.commits[mark].end;
        }
        continue;
      }
    }
    out.log.push_back(event);
  }
  return out;
}

TEST(JournalPowerCut, EveryFlushIsNeeded) {
  for (const Phase phase : {Phase::Begin, Phase::Data, Phase::Record, Phase::Apply, Phase::Drop}) {
    bool noticed = false;
    const std::uint64_t first_seed = TestSeed();
    for (std::uint64_t seed = first_seed; seed < first_seed + 10 && !noticed; ++seed) {
      Random random(seed);
      const History history = Without(phase, RandomHistory(random, 25));
      noticed = !FirstViolation(history, random, 6).empty();
    }
    EXPECT_TRUE(noticed) << "flush " << static_cast<int>(phase) << " " << SeedNote(first_seed);
  }
}

}  // namespace
}  // namespace vornalux::test
