// SPDX-License-Identifier: GPL-2.0-or-later
// Journals from strangers: damaged, cut short, or forged with checksums that fit.
#include <gtest/gtest.h>

#include "host/image/device/little_endian.h"
#include "host/image/journal/journal.h"
#include "host/image/journal/journal_format.h"
#include "support/devices.h"
#include "support/seed.h"

namespace vornalux::test {
namespace {

using namespace journal_format;

constexpr std::size_t kVolume = 64 * kSector;
const VolumeIdentity kIdentity{{'T', 'E', 'S', 'T'}, 42, kVolume, 4096, {}, "here"};

const Bytes kMarked(kSector, 0x44);
const Bytes kTwo(2 * kSector, 0x22);
const Bytes kOne(kSector, 0x33);
const Bytes kMoving(2 * kSector, 0x66);
constexpr std::size_t kFirstBody = kBodiesOffset;

// A run that was interrupted inside its second commit, before anything of it was applied. The
// commit relies on data that was copied from sector 20 to 30, and copies from sector 52 to 50.
struct Interrupted {
  Bytes unmarked = Bytes(kVolume, 0x11);
  Bytes before = unmarked;
  Bytes after;
  Bytes store;
  Bytes first_store;  // as it was in the first commit

  Interrupted() {
    const std::vector<SectorRun> runs = {{3, kTwo}, {40, kOne}, {50, kMoving, 52}};
    std::copy(kMoving.begin(), kMoving.end(), unmarked.begin() + 52 * kSector);
    before = unmarked;
    std::copy(kMarked.begin(), kMarked.end(), before.begin() + 60 * kSector);
    after = before;
    for (const SectorRun& run : runs) {
      std::copy(run.content.begin(), run.content.end(),
                after.begin() + static_cast<std::ptrdiff_t>(run.first_sector * kSector));
    }
    MemoryDevice volume(unmarked);
    MemoryDevice device(0, true);
    RedoJournal journal(device, volume);
    EXPECT_FALSE(journal.Begin(kIdentity, {{0, 48}, {56, 8}}));
    EXPECT_FALSE(journal.Record({{60, kMarked}}));
    first_store = device.Content();
    volume.Content() = before;
    EXPECT_FALSE(journal.Settle());
    const auto data = std::span(before).subspan(20 * kSector, 2 * kSector);
    EXPECT_FALSE(journal.Record(runs, {{20, 30, 2, Checksum(data)}}));
    store = device.Content();
  }

  // The same as the version before wrote it: one record in a fixed place, with all content.
  Bytes OneRecordStore() const {
    Bytes old(kRecordOffset + kSector);
    std::copy_n(store.begin(), kRecordOffset, old.begin());
    std::copy_n(store.begin() + kRecordOffset, 48, old.begin() + kRecordOffset);
    StoreLittle<std::uint32_t>(old, 8, kOneRecordVersion);
    StoreLittle<std::uint32_t>(old, kSector - 4, Checksum(std::span(old).first(kSector - 4)));
    const auto append = [&old](std::span<const std::uint8_t> bytes) {
      old.insert(old.end(), bytes.begin(), bytes.end());
    };
    const auto body = std::span(store).subspan(kFirstBody);
    for (std::size_t run = 0; run < 3; ++run) append(body.subspan(run * kRunBytes, 16));
    append(body.subspan(3 * kRunBytes, 5 * kChecksumBytes + 3 * kSector));
    append(kMoving);
    append(body.subspan(3 * kRunBytes + 5 * kChecksumBytes + 3 * kSector, kCopyBytes));
    append(std::span(store).last(kSector));
    Seal(old, kOneRecordVersion);
    return old;
  }

  // The same as the version wrote it that kept no sum of the tables.
  Bytes NoSumStore() const {
    Bytes old = store;
    HeaderSector sector;
    const auto at = [&](std::size_t offset) { return std::span(old).subspan(offset, kSector); };
    for (const std::size_t offset :
         {kProofOffset, old.size() - 2 * kSector, old.size() - kSector}) {
      std::ranges::copy(at(offset), sector.begin());
      Proof proof = DecodeProof(sector).value();
      EXPECT_TRUE(proof.still_sum);
      proof.still_sum.reset();
      std::ranges::copy(EncodeProof(proof), at(offset).begin());
    }
    std::ranges::fill(at(kStillOffset), std::uint8_t{0});
    StoreLittle<std::uint32_t>(old, 8, kNoSumVersion);
    StoreLittle<std::uint32_t>(old, kSector - 4, Checksum(at(0).first(kSector - 4)));
    std::ranges::copy(at(SlotOffset(2)), sector.begin());
    StoreLittle<std::uint32_t>(
        sector, 32,
        Checksum(std::span(old).subspan(DecodeRecordHeader(sector, kNoSumVersion)->body)));
    StoreLittle<std::uint32_t>(sector, 508, Checksum(std::span(sector).first(508)));
    std::ranges::copy(sector, at(SlotOffset(2)).begin());
    return old;
  }

  // Makes the checksums of a changed record fit, as long as the store holds as much as it says.
  static void Seal(Bytes& store, std::uint32_t version = kVersion) {
    const auto sector = std::span(store).subspan<kRecordOffset, kSector>();
    const auto seal = [&] { StoreLittle<std::uint32_t>(sector, 508, Checksum(sector.first(508))); };
    seal();
    HeaderSector copy;
    std::ranges::copy(sector, copy.begin());
    const RecordHeader header = DecodeRecordHeader(copy, version).value();
    if (header.body > header.BodyEnd() || header.BodyEnd() > store.size()) return;
    const auto body = std::span(store).subspan(header.body, header.BodyEnd() - header.body);
    StoreLittle<std::uint32_t>(sector, 32, Checksum(body));
    seal();
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
    // Idle, unless what was written, forged, is the mark itself.
    EXPECT_NE(RedoJournal(store, volume).Recover(identity).state, JournalState::Replayed)
        << "the record is still there";
  }
  volume_content = volume.Content();
  return finding.state;
}

// Damaged anywhere a record counts in full or not at all. With checksums that fit, what it says
// may happen, and nothing else.
TEST(JournalCorruption, RandomDamageIsNeverReplayed) {
  TestRandom random;
  const Interrupted good;
  for (int round = 0; round < 8000; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    const bool forged = round % 2 != 0;
    Bytes store = good.store;
    if (forged) {
      const std::uint64_t number = 1 + Below(random, 29);  // of the header, the tables
      StoreLittle<std::uint64_t>(
          store, number < 8 ? kRecordOffset + 8 * number : kFirstBody + 8 * (number - 8),
          random() >> Below(random, 64));
      Interrupted::Seal(store);
    } else {
      for (std::uint64_t i = 1 + Below(random, 3); i > 0; --i) {
        store[Below(random, store.size())] = static_cast<std::uint8_t>(random());
      }
      if (Below(random, 4) == 0) store.resize(Below(random, store.size()));
    }
    Bytes volume = good.before;
    const JournalState state = RecoverSafely(store, volume);
    if (forged) continue;
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
  constexpr std::uint64_t kCopies = kRecordOffset + 40;
  constexpr std::uint64_t kBody = kRecordOffset + 48;
  constexpr std::uint64_t kContents = kRecordOffset + 56;
  constexpr std::uint64_t kFirst = kFirstBody;
  constexpr std::uint64_t kCount = kFirst + 8;
  constexpr std::uint64_t kSource = kFirst + 16;
  constexpr std::uint64_t kSecondFirst = kFirst + kRunBytes;
  constexpr std::uint64_t kMovedFrom = kFirst + 2 * kRunBytes + 16;
  constexpr std::uint64_t kCopy = kFirst + 3 * kRunBytes + 5 * kChecksumBytes + 3 * kSector;
  constexpr std::uint64_t kMax = ~std::uint64_t{0};
  const Forgery forgeries[] = {
      {"no runs", kRuns, 0, JournalState::Conflict},
      {"more runs than the store holds", kRuns, kMax, JournalState::Idle},
      {"runs times their size overflows", kRuns, std::uint64_t{1} << 60, JournalState::Idle},
      {"no sectors", kSectors, 0, JournalState::Conflict},
      {"more sectors than the store holds", kSectors, kMax, JournalState::Idle},
      {"sectors times their size overflows", kSectors, (kMax / 8) + 2, JournalState::Idle},
      {"contents times their size overflow", kContents, (kMax / 512) + 2, JournalState::Idle},
      {"more contents than sectors", kContents, 6, JournalState::Idle},
      {"a body behind the store", kBody, kMax, JournalState::Idle},
      {"content that the record lacks", kMovedFrom, kMax, JournalState::Conflict},
      {"content twice", kSource, 10, JournalState::Conflict},
      {"content from past the end", kMovedFrom, 63, JournalState::Conflict},
      {"content from where other lies", kMovedFrom, 10, JournalState::Conflict},
      {"a run without sectors", kCount, 0, JournalState::Conflict},
      {"a run longer than the record", kCount, 4, JournalState::Conflict},
      {"runs shorter than the record", kCount, 1, JournalState::Conflict},
      {"a run of endless length", kCount, kMax, JournalState::Conflict},
      {"a run past the end of the volume", kSecondFirst, 64, JournalState::Conflict},
      {"a run whose end overflows", kSecondFirst, kMax, JournalState::Conflict},
      {"runs that overlap", kSecondFirst, 4, JournalState::Conflict},
      {"runs out of order", kFirst, 50, JournalState::Conflict},
      {"more copies than the store holds", kCopies, kMax, JournalState::Idle},
      {"a copy from past the end", kCopy, 63, JournalState::Conflict},
      {"a copy to past the end", kCopy + 8, 63, JournalState::Conflict},
      {"a copy whose end overflows", kCopy + 8, kMax, JournalState::Conflict},
      {"a copy of endless length", kCopy + 16, kMax, JournalState::Conflict},
      {"a place whose content fits neither checksum", kFirst, 5, JournalState::Replayed},
  };
  const Interrupted good;
  for (const Forgery& forgery : forgeries) {
    SCOPED_TRACE(forgery.what);
    Bytes store = good.store;
    StoreLittle<std::uint64_t>(store, forgery.offset, forgery.value);
    Interrupted::Seal(store);
    Bytes volume = good.before;
    EXPECT_EQ(RecoverSafely(store, volume), forgery.expected);
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

  // The journal fits; the volume was restored, is a copy, or was written to.
  struct Change {
    const char* what;
    std::size_t sector;
    JournalState expected;
  };
  for (const Change& change : {Change{"the mark is not there", 60, JournalState::Conflict},
                               Change{"neither old nor new", 40, JournalState::Conflict},
                               Change{"the copied data is not there", 31, JournalState::Conflict},
                               Change{"the file was written to", 21, JournalState::Conflict},
                               Change{"what is still to be copied too", 53, JournalState::Conflict},
                               Change{"what a sample tells of", 58, JournalState::Conflict},
                               Change{"a table, where no sample is", 56, JournalState::Conflict}}) {
    Bytes other = good.before;
    std::fill_n(other.begin() + static_cast<std::ptrdiff_t>(change.sector * kSector), kSector,
                std::uint8_t{0x55});
    const Bytes as_found = other;
    EXPECT_EQ(RecoverSafely(good.store, other), change.expected) << change.what;
    if (change.expected == JournalState::Conflict) {
      EXPECT_EQ(other, as_found);
    }
  }
  // A disk that has lost what was copied in time.
  struct LostSector final : PassingDevice {
    using PassingDevice::PassingDevice;
    std::error_code Read(std::uint64_t offset, std::span<std::uint8_t> out) override {
      const bool lost = offset < 21 * kSector && offset + out.size() > 20 * kSector;
      return lost ? std::make_error_code(std::errc::io_error) : PassingDevice::Read(offset, out);
    }
  };
  MemoryDevice disk(good.before);
  LostSector dying(disk);
  MemoryDevice its_store(good.store, true);
  EXPECT_EQ(RedoJournal(its_store, dying).Recover(kIdentity).state, JournalState::Replayed);
  EXPECT_EQ(disk.Content(), good.after);

  // What the versions before left is finished, and gone on with as today.
  for (const Bytes& store : {good.OneRecordStore(), good.NoSumStore()}) {
    MemoryDevice old_store(store, true);
    MemoryDevice old_volume(good.before);
    RedoJournal old(old_store, old_volume);
    EXPECT_EQ(old.Recover(kIdentity).state, JournalState::Replayed);
    EXPECT_EQ(old_volume.Content(), good.after);
    EXPECT_FALSE(old.Continue());
    EXPECT_EQ(old.Judge(kIdentity).state, JournalState::Idle);
    EXPECT_FALSE(old.Record({{7, kOne}}));
    EXPECT_EQ(RedoJournal(old_store, old_volume).Recover(kIdentity).state, JournalState::Replayed);
    EXPECT_EQ(old_volume.Content()[7 * kSector], 0x33);
    // Without a sum it is the marks and samples alone that tell of another volume.
    for (const std::size_t sector : {std::size_t{58}, std::size_t{60}}) {
      Bytes other = good.before;
      other[sector * kSector] ^= 0x55;
      EXPECT_EQ(RecoverSafely(store, other), JournalState::Conflict) << sector;
    }
  }

  Bytes unmarked = good.unmarked;
  EXPECT_EQ(RecoverSafely(good.first_store, unmarked), JournalState::Empty);
  EXPECT_EQ(unmarked, good.unmarked);
  Bytes marked = good.before;
  EXPECT_EQ(RecoverSafely(good.first_store, marked), JournalState::Replayed);

  volume = good.before;
  EXPECT_EQ(RecoverSafely({}, volume), JournalState::Empty);
  EXPECT_EQ(RecoverSafely(Bytes(10000), volume), JournalState::Empty);
  EXPECT_EQ(RecoverSafely(Bytes(100, 'x'), volume), JournalState::Foreign);
  EXPECT_EQ(RecoverSafely(Bytes(good.store.begin(), good.store.begin() + 512), volume),
            JournalState::Empty);
  for (int field = 0; field < 5; ++field) {
    VolumeIdentity other = kIdentity;
    if (field == 0) other.file_system[0] = 'X';
    if (field == 1) other.serial ^= 1;
    if (field == 2) other.volume_size += 512;
    if (field == 3) other.volume_offset = 0;
    if (field == 4) other.device = "another stick";
    EXPECT_EQ(RecoverSafely(good.store, volume, other), JournalState::Foreign) << field;
  }
  // Grown without its content, as file systems may leave it after a power cut.
  Bytes headless = good.store;
  std::fill_n(headless.begin(), kSector, std::uint8_t{0});
  EXPECT_EQ(RecoverSafely(headless, volume), JournalState::Foreign);
  EXPECT_EQ(volume, good.before);
}

TEST(JournalCorruption, BeginForgetsTheRecordOfAnotherVolume) {
  const Interrupted good;
  MemoryDevice store(good.store, true);
  Bytes volume = good.before;
  MemoryDevice device(volume);
  VolumeIdentity other = kIdentity;
  other.serial = 43;
  EXPECT_FALSE(RedoJournal(store, device).Begin(other));
  EXPECT_EQ(RecoverSafely(store.Content(), volume, other), JournalState::Empty);
}

}  // namespace
}  // namespace vornalux::test
