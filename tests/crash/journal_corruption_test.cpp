// SPDX-License-Identifier: GPL-2.0-or-later
// Journals from strangers: damaged, cut short, or forged with checksums that fit.
#include <gtest/gtest.h>

#include "host/image/journal.h"
#include "host/image/journal_format.h"
#include "host/image/little_endian.h"
#include "support/devices.h"
#include "support/seed.h"

namespace vornalux::test {
namespace {

using namespace journal_format;

constexpr std::size_t kVolume = 64 * kSector;
const VolumeIdentity kIdentity{{'T', 'E', 'S', 'T'}, 42, kVolume, 4096};

// A run that was interrupted inside a commit, before anything of it was applied.
struct Interrupted {
  Bytes before = Bytes(kVolume, 0x11);
  Bytes after = before;
  Bytes store;

  Interrupted() {
    std::vector<SectorRun> runs = {{3, Bytes(2 * kSector, 0x22)}, {40, Bytes(kSector, 0x33)}};
    for (const SectorRun& run : runs) {
      std::copy(run.content.begin(), run.content.end(),
                after.begin() + static_cast<std::ptrdiff_t>(run.first_sector * kSector));
    }
    MemoryDevice volume(before);
    MemoryDevice device(0, true);
    RedoJournal journal(device, volume);
    EXPECT_FALSE(journal.Begin(kIdentity));
    EXPECT_FALSE(journal.Record(runs));
    store = device.Content();
  }
};

// Recovers, and checks what must hold whatever the store says: only Replayed writes to the volume.
JournalState RecoverSafely(const Bytes& store_content, Bytes& volume_content,
                           const VolumeIdentity& identity = kIdentity) {
  MemoryDevice volume(volume_content);
  MemoryDevice store(store_content, true);
  DeviceLog log;
  RecordingDevice recorded(volume, log, 0);
  const JournalFinding finding = RedoJournal(store, recorded).Recover(identity);
  EXPECT_FALSE(finding.error) << finding.error.message();
  EXPECT_FALSE(finding.detail.empty());
  if (finding.state != JournalState::Replayed) {
    EXPECT_TRUE(log.empty()) << "wrote without replaying";
  } else {
    EXPECT_EQ(RedoJournal(store, volume).Recover(identity).state, JournalState::Idle)
        << "the record is still there";
  }
  volume_content = volume.Content();
  return finding.state;
}

// Makes the checksums fit again after the record was changed.
void Reseal(Bytes& store) {
  const auto header = std::span(store).subspan(kRecordOffset, kSector);
  const std::uint64_t body = LoadLittle<std::uint64_t>(header, 16) * kRunBytes +
                             LoadLittle<std::uint64_t>(header, 24) * (kChecksumBytes + kSector);
  if (body <= store.size() - kBodyOffset) {
    StoreLittle<std::uint32_t>(header, 32, Checksum(std::span(store).subspan(kBodyOffset, body)));
  }
  StoreLittle<std::uint32_t>(header, kSector - 4, Checksum(header.first(kSector - 4)));
}

TEST(JournalCorruption, RandomDamageIsNeverReplayed) {
  const std::uint64_t seed = TestSeed();
  Random random(seed);
  const Interrupted good;
  for (int round = 0; round < 4000; ++round) {
    SCOPED_TRACE(SeedNote(seed) + ", round " + std::to_string(round));
    Bytes store = good.store;
    for (std::uint64_t i = 1 + Below(random, 3); i > 0; --i) {
      store[Below(random, store.size())] = static_cast<std::uint8_t>(random());
    }
    if (Below(random, 4) == 0) store.resize(Below(random, store.size()));
    Bytes volume = good.before;
    const JournalState state = RecoverSafely(store, volume);
    EXPECT_EQ(volume, state == JournalState::Replayed ? good.after : good.before);
  }
}

TEST(JournalCorruption, ForgedNumbersAreRefused) {
  struct Forgery {
    const char* what;
    std::uint64_t offset;  // of a 64-bit number in the store
    std::uint64_t value;
    JournalState expected;
  };
  constexpr std::uint64_t kRuns = kRecordOffset + 16;
  constexpr std::uint64_t kSectors = kRecordOffset + 24;
  constexpr std::uint64_t kFirst = kBodyOffset;
  constexpr std::uint64_t kCount = kBodyOffset + 8;
  constexpr std::uint64_t kSecondFirst = kBodyOffset + 16;
  constexpr std::uint64_t kMax = ~std::uint64_t{0};
  const Forgery forgeries[] = {
      {"no runs", kRuns, 0, JournalState::Conflict},
      {"more runs than the store holds", kRuns, kMax, JournalState::Idle},
      {"runs times their size overflows", kRuns, std::uint64_t{1} << 60, JournalState::Idle},
      {"no sectors", kSectors, 0, JournalState::Conflict},
      {"more sectors than the store holds", kSectors, kMax, JournalState::Idle},
      {"sectors times their size overflows", kSectors, (kMax / 520) + 2, JournalState::Idle},
      {"a run without sectors", kCount, 0, JournalState::Conflict},
      {"a run longer than the record", kCount, 4, JournalState::Conflict},
      {"runs shorter than the record", kCount, 1, JournalState::Conflict},
      {"a run of endless length", kCount, kMax, JournalState::Conflict},
      {"a run past the end of the volume", kSecondFirst, 64, JournalState::Conflict},
      {"a run whose end overflows", kSecondFirst, kMax, JournalState::Conflict},
      {"runs that overlap", kSecondFirst, 4, JournalState::Conflict},
      {"runs out of order", kFirst, 50, JournalState::Conflict},
      {"a place whose content fits neither checksum", kFirst, 5, JournalState::Replayed},
  };
  const Interrupted good;
  for (const Forgery& forgery : forgeries) {
    SCOPED_TRACE(forgery.what);
    Bytes store = good.store;
    StoreLittle<std::uint64_t>(store, forgery.offset, forgery.value);
    Reseal(store);
    Bytes volume = good.before;
    EXPECT_EQ(RecoverSafely(store, volume), forgery.expected);
  }
}

TEST(JournalCorruption, ForgedRecordsOfRandomNumbersStayInside) {
  const std::uint64_t seed = TestSeed();
  Random random(seed);
  const Interrupted good;
  for (int round = 0; round < 4000; ++round) {
    SCOPED_TRACE(SeedNote(seed) + ", round " + std::to_string(round));
    Bytes store = good.store;
    const std::uint64_t at = kRecordOffset + 8 * Below(random, 80);
    StoreLittle<std::uint64_t>(store, at, random() >> Below(random, 64));
    Reseal(store);
    Bytes volume = good.before;
    RecoverSafely(store, volume);
    EXPECT_EQ(volume.size(), good.before.size());
  }
}

TEST(JournalCorruption, StatesOfAnHonestStore) {
  const Interrupted good;
  Bytes volume = good.before;
  EXPECT_EQ(RecoverSafely(good.store, volume), JournalState::Replayed);
  EXPECT_EQ(volume, good.after);
  EXPECT_EQ(RecoverSafely(good.store, volume), JournalState::Replayed) << "applied already";

  Bytes half = good.before;
  std::copy_n(good.after.begin() + 4 * kSector, kSector, half.begin() + 4 * kSector);
  EXPECT_EQ(RecoverSafely(good.store, half), JournalState::Replayed) << "applied in part";
  EXPECT_EQ(half, good.after);

  Bytes changed = good.before;
  changed[40 * kSector + 7] ^= 1;
  const Bytes as_changed = changed;
  EXPECT_EQ(RecoverSafely(good.store, changed), JournalState::Conflict);
  EXPECT_EQ(changed, as_changed);

  volume = good.before;
  EXPECT_EQ(RecoverSafely({}, volume), JournalState::Empty);
  EXPECT_EQ(RecoverSafely(Bytes(10000), volume), JournalState::Empty);
  EXPECT_EQ(RecoverSafely(Bytes(100, 'x'), volume), JournalState::Foreign);
  EXPECT_EQ(RecoverSafely(Bytes(good.store.begin(), good.store.begin() + 512), volume),
            JournalState::Idle);
  for (int field = 0; field < 4; ++field) {
    VolumeIdentity other = kIdentity;
    if (field == 0) other.file_system[0] = 'X';
    if (field == 1) other.serial ^= 1;
    if (field == 2) other.volume_size += 512;
    if (field == 3) other.volume_offset = 0;
    EXPECT_EQ(RecoverSafely(good.store, volume, other), JournalState::Foreign) << field;
  }
  EXPECT_EQ(volume, good.before);
}

// A store that grew without its content, which file systems may leave after a power cut.
TEST(JournalCorruption, RecordWithoutIdentityIsNotOurs) {
  Interrupted good;
  std::fill_n(good.store.begin(), kSector, std::uint8_t{0});
  Bytes volume = good.before;
  EXPECT_EQ(RecoverSafely(good.store, volume), JournalState::Foreign);
}

TEST(JournalCorruption, BeginForgetsTheRecordOfAnotherVolume) {
  const Interrupted good;
  MemoryDevice store(good.store, true);
  Bytes volume = good.before;
  MemoryDevice device(volume);
  VolumeIdentity other = kIdentity;
  other.serial = 43;
  EXPECT_FALSE(RedoJournal(store, device).Begin(other));
  EXPECT_EQ(RecoverSafely(store.Content(), volume, other), JournalState::Idle);
}

}  // namespace
}  // namespace vornalux::test
