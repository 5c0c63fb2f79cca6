// SPDX-License-Identifier: GPL-2.0-or-later
#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <array>

#include "host/image/device/scratch_device.h"
#include "host/image/device/window_device.h"
#include "host/image/journal/journal.h"
#include "host/image/journal/journal_format.h"
#include "host/image/journal/transaction.h"
#include "support/devices.h"
#include "support/seed.h"

namespace vornalux::test {
namespace {

constexpr std::size_t kSector = 512;
const VolumeIdentity kIdentity{{'T', 'E', 'S', 'T'}, 1, 0, 0, {}, "here"};

struct Stack {
  explicit Stack(std::size_t size)
      : volume(size),
        recorded_volume(volume, log, 0),
        recorded_store(store, log, 1),
        journal(recorded_store, recorded_volume),
        transaction(recorded_volume) {
    EXPECT_FALSE(journal.Begin(kIdentity));
    transaction.AttachJournal(&journal);
    log.clear();
  }

  // "vw" a write to the volume, "jf" a flush of the journal; the same again counts once.
  std::string Calls() const {
    std::string calls;
    for (const DeviceEvent& event : log) {
      std::string call = event.device == 0 ? "v" : "j";
      call += event.kind == DeviceEvent::Kind::Write ? "w " : "f ";
      if (!calls.ends_with(call)) calls += call;
    }
    return calls;
  }

  MemoryDevice volume;
  MemoryDevice store{0, true};
  DeviceLog log;
  RecordingDevice recorded_volume;
  RecordingDevice recorded_store;
  RedoJournal journal;
  Transaction transaction;
};

TEST(Transaction, CommitsInTheOnlySafeOrder) {
  Stack stack(64 * kSector);
  EXPECT_FALSE(stack.transaction.Write(700, Bytes(20, 0xAA)));
  EXPECT_EQ(stack.Calls(), "") << "metadata waits for the commit";
  EXPECT_FALSE(stack.transaction.WriteData(40 * kSector, Bytes(kSector, 0xBB)));
  EXPECT_EQ(stack.Calls(), "vw ");
  EXPECT_FALSE(stack.transaction.Commit());
  EXPECT_EQ(stack.Calls(), "vw vf jw jf vw ");
  EXPECT_FALSE(stack.transaction.Settle());
  EXPECT_EQ(stack.Calls(), "vw vf jw jf vw vf jw jf ");

  stack.log.clear();
  EXPECT_FALSE(stack.transaction.Settle());
  EXPECT_FALSE(stack.transaction.Commit());
  EXPECT_EQ(stack.Calls(), "") << "nothing to commit";
  EXPECT_FALSE(stack.transaction.Write(700, Bytes(20, 0xAA)));
  EXPECT_FALSE(stack.transaction.Commit());
  EXPECT_EQ(stack.Calls(), "") << "what is there already needs no commit";
  EXPECT_FALSE(stack.transaction.Write(700, Bytes(20, 0xCC)));
  EXPECT_FALSE(stack.transaction.Commit());
  EXPECT_EQ(stack.Calls(), "jw jf vw ") << "no data, no flush for it";
  stack.log.clear();
  EXPECT_FALSE(stack.transaction.Write(700, Bytes(20, 0xDD)));
  EXPECT_FALSE(stack.transaction.Commit());
  EXPECT_EQ(stack.Calls(), "vf jw jf vw ") << "the last one is done before it is forgotten";
}

TEST(Transaction, NeighboursAreWrittenAsOneRun) {
  Stack stack(64 * kSector);
  for (const std::uint64_t sector : {9U, 7U, 30U, 8U, 10U}) {
    EXPECT_FALSE(stack.transaction.Write(sector * kSector, Bytes(kSector, 0xAA)));
  }
  EXPECT_FALSE(stack.transaction.Commit());
  std::vector<std::pair<std::uint64_t, std::size_t>> writes;
  for (const DeviceEvent& event : stack.log) {
    if (event.device == 0 && event.kind == DeviceEvent::Kind::Write) {
      writes.emplace_back(event.offset / kSector, event.data.size() / kSector);
    }
  }
  EXPECT_EQ(writes, (std::vector<std::pair<std::uint64_t, std::size_t>>{{7, 4}, {30, 1}}));
}

struct Layers {
  explicit Layers(BlockDevice& base) : device(base), journal(store, base), transaction(base) {
    transaction.AttachJournal(&journal);
  }

  BlockDevice& device;
  MemoryDevice store{0, true};
  RedoJournal journal;
  Transaction transaction;
};

// Any mixture of calls reads back as from a plain array that can be set back to a move's start, on
// a device that is written to and on that of a dry run.
TEST(Transaction, ReadsWhatWasWrittenThroughAllLevels) {
  const std::uint64_t seed = TestSeed();
  Random random(seed);
  constexpr std::uint64_t kHalf = 32;  // sectors
  Bytes now(2 * kHalf * kSector);
  for (std::uint8_t& byte : now) byte = static_cast<std::uint8_t>(random());
  Bytes at_move = now;
  Bytes at_commit = now;
  const Bytes before = now;
  MemoryDevice real_device(now);
  const auto base = std::make_shared<MemoryDevice>(now);
  ScratchDevice scratch_device(base);
  Layers real(real_device);
  Layers scratch(scratch_device);
  const auto put = [](Bytes& bytes, std::uint64_t at, std::span<const std::uint8_t> data) {
    std::copy(data.begin(), data.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at));
  };
  bool in_move = false;
  bool guards = false;  // since the last commit
  for (int round = 0; round < 20000; ++round) {
    SCOPED_TRACE(SeedNote(seed) + ", round " + std::to_string(round));
    const std::uint64_t choice = Below(random, 40);
    const std::uint64_t at = Below(random, now.size());
    const Bytes data(Below(random, std::min<std::uint64_t>(now.size() - at, 1800) + 1),
                     static_cast<std::uint8_t>(random()));
    const std::uint64_t sector = Below(random, 2 * kHalf - 4);
    const Bytes sectors(4 * kSector, static_cast<std::uint8_t>(random()));
    // From one half to the other, in part to guarded places. A dry run's device takes nothing back
    // from these, so that nothing may be given up until the commit.
    const std::uint64_t from = kHalf * Below(random, 2);
    std::vector<ByteRange> pieces;
    std::vector<ByteRange> guarded;
    Bytes gathered;
    for (std::uint64_t left = 1 + Below(random, 4); left > 0; --left) {
      const std::uint64_t count = 1 + Below(random, kHalf / 4);
      pieces.push_back({(from + Below(random, kHalf - count + 1)) * kSector, count * kSector});
      const auto piece = std::span(now).subspan(pieces.back().offset, pieces.back().length);
      gathered.insert(gathered.end(), piece.begin(), piece.end());
    }
    const std::uint64_t length = gathered.size() / kSector;
    const std::uint64_t to = kHalf - from + Below(random, kHalf - length + 1);
    for (std::uint64_t guard = to + Below(random, 7); guard < to + length && !in_move; guard += 7) {
      guarded.push_back({guard * kSector, (1 + Below(random, 6)) * kSector});
    }
    const bool keep = Below(random, 2) == 0;
    for (Layers* layers : {&real, &scratch}) {
      Transaction& transaction = layers->transaction;
      if (choice < 16) {
        ASSERT_FALSE(transaction.Write(at, data));
      } else if (choice < 19) {
        ASSERT_FALSE(transaction.WriteData(sector * kSector, sectors));
      } else if (choice < 24) {
        ASSERT_FALSE(transaction.GatherData(pieces, to * kSector, guarded));
      } else if (choice < 28) {
        !in_move ? transaction.BeginMove() : keep ? transaction.KeepMove() : transaction.DropMove();
      } else if (choice == 28 && !in_move) {
        ASSERT_FALSE(transaction.Commit());
      } else if (choice == 29 && !in_move && !guards) {
        transaction.Discard();
      }
    }
    if (choice < 16) {
      put(now, at, data);
    } else if (choice < 24) {
      // Data is not taken back.
      const bool one = choice < 19;
      guards = guards || (!one && !guarded.empty());
      for (Bytes* bytes : {&now, &at_move, &at_commit}) {
        put(*bytes, (one ? sector : to) * kSector, one ? sectors : gathered);
      }
    } else if (choice < 28) {
      if (!in_move) at_move = now;
      if (in_move && !keep) now = at_move;
      in_move = !in_move;
    } else if (choice == 28 && !in_move) {
      at_commit = now;
      guards = false;
    } else if (choice == 29 && !in_move && !guards) {
      now = at_commit;
    }
    for (Layers* layers : {&real, &scratch}) {
      Bytes read(now.size() - at);
      ASSERT_FALSE(layers->transaction.Read(at, read));
      ASSERT_TRUE(std::equal(read.begin(), read.end(), now.end() - std::ssize(read)));
      if (choice != 28 || in_move) continue;
      ASSERT_FALSE(layers->device.Read(at, read));
      ASSERT_TRUE(std::equal(read.begin(), read.end(), now.end() - std::ssize(read)));
    }
  }
  EXPECT_EQ(base->Content(), before);
}

TEST(Transaction, GathersPiecesOfAnySizeInOrder) {
  constexpr std::size_t kSize = std::size_t{24} << 20;
  Stack stack(kSize);
  Random random(TestSeed());
  for (std::uint8_t& byte : stack.volume.Content()) byte = static_cast<std::uint8_t>(random());
  // A change that only the overlay knows must be copied too.
  ASSERT_FALSE(stack.transaction.Write(kSector + 3, Bytes(5, 0x77)));
  const std::vector<ByteRange> pieces = {
      {kSector, kSector}, {8 * kSector, 3}, {std::uint64_t{1} << 20, std::uint64_t{5} << 20}};
  std::vector<ByteRange> whole = pieces;
  whole[1].length = 2 * kSector;
  Bytes wanted;
  for (const ByteRange& piece : whole) {
    Bytes part(piece.length);
    ASSERT_FALSE(stack.transaction.Read(piece.offset, part));
    wanted.insert(wanted.end(), part.begin(), part.end());
  }
  constexpr std::uint64_t kTo = std::uint64_t{12} << 20;
  ASSERT_FALSE(stack.transaction.GatherData(whole, kTo));
  Bytes copied(wanted.size());
  ASSERT_FALSE(stack.transaction.Read(kTo, copied));
  EXPECT_EQ(copied, wanted);
  EXPECT_TRUE(stack.transaction.GatherData(pieces, kTo)) << "half a sector is refused";

  // Given up in a move that has already put something into clusters that are still referred to.
  const std::uint64_t waiting = stack.transaction.WaitingBytes();
  for (const std::size_t end : {1U, 2U, 3U}) {
    std::vector<std::uint64_t> heard;
    stack.transaction.BeginMove();
    const std::error_code error = stack.transaction.GatherData(
        whole, kTo, std::vector<ByteRange>{{kTo + kSector, kSector}}, [&](std::uint64_t bytes) {
          EXPECT_EQ(stack.transaction.WaitingBytes(), waiting + kSector);
          heard.push_back(bytes);
          return heard.size() == end;
        });
    stack.transaction.DropMove();
    EXPECT_EQ(error == std::errc::operation_canceled, end < 3) << end;
    EXPECT_EQ(heard.size(), std::min<std::size_t>(end, 2));
    EXPECT_EQ(heard.back(), heard.size() * (2 << 20));
    EXPECT_EQ(stack.transaction.WaitingBytes(), waiting);
  }
}

// Files that move about as an allocation map lets them, with metadata inside and outside of them.
class MovingFiles {
 public:
  static constexpr std::uint64_t kMetadata = 8;  // sectors in front
  static constexpr std::uint64_t kSectors = 128;

  explicit MovingFiles(Random& random) : random_(random), volume_(kSectors * kSector) {
    for (std::uint8_t& byte : volume_.Content()) byte = static_cast<std::uint8_t>(random_());
    EXPECT_FALSE(journal_.Begin(kIdentity, {{0, kMetadata}}));
    transaction_.AttachJournal(&journal_);
    for (int file = 0; file < 6; ++file) Place(FindFree(1 + Below(random_, 10)));
    EXPECT_FALSE(transaction_.Write(0, Bytes(kSector, 0xDD)));
    EXPECT_FALSE(transaction_.Commit());
  }

  void Move() {
    const std::size_t file = Below(random_, files_.size());
    const SectorRange from = files_[file];
    const SectorRange to = FindFree(from.count);
    if (to.count == 0) return;
    std::vector<ByteRange> guarded;
    for (std::uint64_t i = to.first; i < to.first + to.count; ++i) {
      if (held_[i] > 0) guarded.push_back({i * kSector, kSector});
    }
    transaction_.BeginMove();
    ASSERT_FALSE(transaction_.GatherData(
        std::vector<ByteRange>{{from.first * kSector, from.count * kSector}}, to.first * kSector,
        guarded));
    Scribble({Below(random_, kMetadata), 1});
    if (Below(random_, 3) == 0) Scribble({to.first + Below(random_, to.count), 1});
    if (Below(random_, 5) == 0) return transaction_.DropMove();
    transaction_.KeepMove();
    for (std::uint64_t i = from.first; i < from.first + from.count; ++i) {
      used_[i] = false;
      held_[i] = 2;
    }
    std::fill_n(used_.begin() + static_cast<std::ptrdiff_t>(to.first), to.count, true);
    files_[file] = to;
    if (Below(random_, 4) == 0) Scribble({to.first + Below(random_, to.count), 1});
  }

  // The power goes when the record is durable: what then counts as changed?
  void CommitAndJudge() {
    Bytes volume = volume_.Content();
    MemoryDevice store(store_.Content(), true);
    log_.clear();
    ASSERT_FALSE(transaction_.Commit());
    for (const DeviceEvent& event : log_) {
      if (event.kind == DeviceEvent::Kind::Flush) break;
      ASSERT_FALSE(store.Write(event.offset, event.data));
    }
    const auto judge = [&] {
      MemoryDevice device(volume);
      return RedoJournal(store, device).Judge(kIdentity).state;
    };
    if (!log_.empty()) {
      ASSERT_EQ(judge(), JournalState::Pending);
    }
    for (std::size_t file = 0; file < files_.size(); ++file) {
      const SectorRange places[] = {durable_[file], files_[file]};
      if (places[0].first == places[1].first) continue;
      for (const SectorRange& place : places) {
        for (std::uint64_t i = place.first; i < place.first + place.count; ++i) {
          std::uint8_t& byte = volume[i * kSector + Below(random_, kSector)];
          byte ^= 1;
          ASSERT_EQ(judge(), JournalState::Conflict) << "sector " << i << " of file " << file;
          byte ^= 1;
        }
      }
    }
    durable_ = files_;
    for (int& commits : held_) commits -= !log_.empty() && commits > 0;
  }

 private:
  // Nothing when no place was found in a few attempts.
  SectorRange FindFree(std::uint64_t count) {
    for (int attempt = 0; attempt < 20; ++attempt) {
      const std::uint64_t first = kMetadata + Below(random_, kSectors - kMetadata - count + 1);
      const auto at = used_.begin() + static_cast<std::ptrdiff_t>(first);
      if (std::find(at, at + static_cast<std::ptrdiff_t>(count), true) ==
          at + static_cast<std::ptrdiff_t>(count)) {
        return {first, count};
      }
    }
    return {};
  }
  void Place(SectorRange range) {
    std::fill_n(used_.begin() + static_cast<std::ptrdiff_t>(range.first), range.count, true);
    if (range.count > 0) files_.push_back(range);
    durable_ = files_;
  }
  void Scribble(SectorRange range) {
    const Bytes note(100, static_cast<std::uint8_t>(random_()));
    ASSERT_FALSE(transaction_.Write(range.first * kSector + Below(random_, 400), note));
  }

  Random& random_;
  MemoryDevice volume_;
  MemoryDevice store_{0, true};
  DeviceLog log_;
  RecordingDevice recorded_store_{store_, log_, 1};
  RedoJournal journal_{recorded_store_, volume_};
  Transaction transaction_{volume_};
  std::array<bool, kSectors> used_{};
  std::array<int, kSectors> held_{};  // for so many commits
  std::vector<SectorRange> files_;
  std::vector<SectorRange> durable_;
};

TEST(Transaction, WhateverIsChangedWhereFilesLayOrComeToLieIsSeen) {
  for (std::uint64_t seed = TestSeed(), last = seed + 40; seed < last; ++seed) {
    SCOPED_TRACE(SeedNote(seed));
    Random random(seed);
    MovingFiles files(random);
    for (int commit = 0; commit < 30; ++commit) {
      for (std::uint64_t moves = Below(random, 12); moves > 0; --moves) files.Move();
      files.CommitAndJudge();
      if (testing::Test::HasFatalFailure()) return;
    }
  }
}

TEST(Transaction, RefusesWhatItMustNotDo) {
  MemoryDevice volume(8 * kSector);
  Transaction transaction(volume);
  const Bytes sector(kSector, 1);
  EXPECT_EQ(transaction.Write(0, sector), std::errc::read_only_file_system);
  EXPECT_EQ(transaction.WriteData(0, sector), std::errc::read_only_file_system);
  MemoryDevice store(0, true);
  RedoJournal journal(store, volume);
  transaction.AttachJournal(&journal);
  EXPECT_EQ(transaction.Write(8 * kSector - 1, Bytes(2)), std::errc::invalid_argument);
  EXPECT_EQ(transaction.Write(~std::uint64_t{0}, Bytes(2)), std::errc::invalid_argument);
  EXPECT_EQ(transaction.WriteData(1, sector), std::errc::invalid_argument);
  EXPECT_EQ(transaction.WriteData(0, Bytes(10)), std::errc::invalid_argument);
  EXPECT_FALSE(transaction.HasPending());
}

TEST(Transaction, RefusesAllWorkAfterAFailedCommit) {
  MemoryDevice volume(8 * kSector);
  FailingDevice failing(volume, FailingDevice::kFlushes);
  MemoryDevice store(0, true);
  RedoJournal journal(store, failing);
  Transaction transaction(failing, &journal);
  EXPECT_FALSE(transaction.WriteData(kSector, Bytes(kSector, 1)));
  failing.FailAt(0, false);
  EXPECT_EQ(transaction.Commit(), std::errc::io_error);
  EXPECT_TRUE(transaction.Failed());
  EXPECT_EQ(transaction.Commit(), std::errc::io_error);
  EXPECT_EQ(transaction.Write(0, Bytes(1)), std::errc::io_error);
  EXPECT_EQ(transaction.WriteData(0, Bytes(kSector)), std::errc::io_error);
}

TEST(JournalChecksum, IsThatOfZlibInPiecesOfAnyLength) {
  TestRandom random;
  Bytes bytes(3000);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  for (int round = 0; round < 3000; ++round) {
    const std::size_t first = Below(random, 100);
    const auto part = std::span(bytes).subspan(first, Below(random, round < 400 ? 200 : 2900));
    const auto before = static_cast<std::uint32_t>(random());
    ASSERT_EQ(journal_format::Checksum(part, before), ::crc32_z(before, part.data(), part.size()));
  }
}

TEST(WindowDevice, ReachesNothingOutside) {
  const auto base = std::make_shared<MemoryDevice>(10 * kSector);
  WindowDevice window(base, 2 * kSector, 3 * kSector);
  EXPECT_EQ(window.Size(), 3 * kSector);
  EXPECT_FALSE(window.Write(3 * kSector - 1, Bytes(1, 9)));
  EXPECT_EQ(base->Content()[5 * kSector - 1], 9);
  Bytes two(2);
  EXPECT_TRUE(window.Write(3 * kSector - 1, two));
  EXPECT_TRUE(window.Read(3 * kSector - 1, two));
  EXPECT_TRUE(window.Read(~std::uint64_t{0} - 1, two));
}

}  // namespace
}  // namespace vornalux::test
