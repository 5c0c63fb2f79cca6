// SPDX-License-Identifier: GPL-2.0-or-later
// A dry run's device must read like a real one that is written to, and leave its base alone.
#include <gtest/gtest.h>

#include "host/image/device/scratch_device.h"
#include "host/image/device/window_device.h"
#include "host/image/journal/journal.h"
#include "host/image/journal/transaction.h"
#include "host/image/opening/image_file.h"
#include "host/image/opening/image_source.h"
#include "support/image_folder.h"
#include "support/seed.h"

namespace vornalux::test {
namespace {

constexpr std::size_t kSector = 512;

Bytes RandomBytes(Random& random, std::size_t size) {
  Bytes bytes(size);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return bytes;
}

ByteRange RandomRange(Random& random, std::uint64_t size, std::uint64_t longest) {
  const std::uint64_t offset = Below(random, size + 1);
  return {offset, Below(random, std::min(size - offset, longest) + 1)};
}

// Through a window, as volumes see it. Ranges meet, overlap, and are copied back to where they
// were.
TEST(ScratchDevice, ReadsLikeAPlainArray) {
  const std::uint64_t seed = TestSeed();
  Random random(seed);
  constexpr std::size_t kBase = 40'000;
  constexpr std::size_t kOffset = 1000;
  const auto base = std::make_shared<MemoryDevice>(RandomBytes(random, kBase));
  const Bytes before = base->Content();
  const auto scratch = std::make_shared<ScratchDevice>(base);
  WindowDevice device(scratch, kOffset, kBase);
  Bytes now(before.begin() + kOffset, before.end());
  ASSERT_EQ(device.Size(), now.size());
  const auto place = [&](std::uint64_t at) {
    return now.begin() + static_cast<std::ptrdiff_t>(at);
  };
  for (int round = 0; round < 30'000; ++round) {
    SCOPED_TRACE(SeedNote(seed) + ", round " + std::to_string(round));
    const ByteRange range = RandomRange(random, now.size(), 9000);
    if (Below(random, 2) == 0) {
      const Bytes data = RandomBytes(random, std::min<std::uint64_t>(range.length, 700));
      ASSERT_FALSE(device.Write(range.offset, data));
      std::copy(data.begin(), data.end(), place(range.offset));
    } else {
      const std::uint64_t to = Below(random, now.size() - range.length + 1);
      ASSERT_FALSE(device.Copy(range.offset, to, range.length));
      const Bytes data(place(range.offset), place(range.offset + range.length));
      std::copy(data.begin(), data.end(), place(to));
    }
    const ByteRange look = RandomRange(random, now.size(), now.size());
    Bytes read(look.length);
    ASSERT_FALSE(device.Read(look.offset, read));
    ASSERT_TRUE(std::equal(read.begin(), read.end(), place(look.offset)));
  }
  EXPECT_EQ(base->Content(), before);
  Bytes two(2);
  EXPECT_EQ(device.Read(now.size() - 1, two), std::errc::invalid_argument);
  EXPECT_EQ(scratch->Write(kBase - 1, two), std::errc::invalid_argument);
  EXPECT_EQ(device.Copy(0, now.size() - 1, 2), std::errc::invalid_argument);
  EXPECT_EQ(device.Copy(now.size() - 1, 0, 2), std::errc::invalid_argument);
}

TEST(ScratchDevice, ACopyReadsNothing) {
  const auto memory = std::make_shared<MemoryDevice>(std::size_t{1} << 20);
  const auto base = std::make_shared<FailingDevice>(*memory, FailingDevice::kAll);
  base->FailAt(0, true);
  ScratchDevice device(base);
  MemoryDevice store(0, true);
  RedoJournal journal(store, device);
  Transaction transaction(device, &journal);
  const std::vector<ByteRange> pieces = {{0, 100 * kSector}, {300 * kSector, 200 * kSector}};
  EXPECT_FALSE(transaction.GatherData(pieces, 1000 * kSector));
  EXPECT_FALSE(transaction.Commit());
  EXPECT_FALSE(base->HasFailed());
  Bytes sector(kSector);
  EXPECT_TRUE(transaction.Read(1000 * kSector, sector)) << "now somebody asks";
}

// A volume's worth of layers above a device.
struct Layers {
  explicit Layers(BlockDevice& base) : device(base), journal(store, base), transaction(base) {
    transaction.AttachJournal(&journal);
  }
  Bytes All(BlockDevice& from) const {
    Bytes bytes(device.Size());
    EXPECT_FALSE(from.Read(0, bytes));
    return bytes;
  }

  BlockDevice& device;
  MemoryDevice store{0, true};
  RedoJournal journal;
  Transaction transaction;
};

// Whatever is gathered, copied, dropped and committed: a transaction over a scratch device and one
// over a real device of the same content say the same, and leave the same underneath.
TEST(ScratchDevice, ATransactionCannotTellTheDifference) {
  const std::uint64_t seed = TestSeed();
  Random random(seed);
  constexpr std::uint64_t kSectors = 64;
  const auto base = std::make_shared<MemoryDevice>(RandomBytes(random, kSectors * kSector));
  const Bytes before = base->Content();
  MemoryDevice real_device(before);
  ScratchDevice scratch_device(base);
  Layers real(real_device);
  Layers scratch(scratch_device);
  bool in_move = false;
  for (int round = 0; round < 10'000; ++round) {
    SCOPED_TRACE(SeedNote(seed) + ", round " + std::to_string(round));
    const std::uint64_t choice = Below(random, 15);
    const bool commit = choice == 13 && !in_move;
    const ByteRange range = RandomRange(random, kSectors * kSector, 3 * kSector);
    const Bytes data = RandomBytes(random, range.length);
    // From one half to the other. What lies in guarded places is no business of a move that is
    // dropped.
    const std::uint64_t half = kSectors / 2;
    const std::uint64_t from = half * Below(random, 2);
    std::vector<ByteRange> pieces;
    std::vector<ByteRange> guarded;
    std::uint64_t length = 0;
    for (std::uint64_t left = 1 + Below(random, 4); left > 0; --left) {
      const std::uint64_t sectors = 1 + Below(random, half / 4);
      pieces.push_back({(from + Below(random, half - sectors + 1)) * kSector, sectors * kSector});
      length += sectors;
    }
    const std::uint64_t to = half - from + Below(random, half - length + 1);
    for (std::uint64_t at = to + Below(random, 7); at < to + length && !in_move; at += 7) {
      guarded.push_back({at * kSector, (1 + Below(random, 6)) * kSector});
    }
    for (Layers* layers : {&real, &scratch}) {
      Transaction& transaction = layers->transaction;
      if (choice < 6) {
        ASSERT_FALSE(transaction.Write(range.offset, data));
      } else if (choice < 11) {
        ASSERT_FALSE(transaction.GatherData(pieces, to * kSector, guarded));
      } else if (choice < 13 && in_move) {
        choice == 11 ? transaction.KeepMove() : transaction.DropMove();
      } else if (choice < 13) {
        transaction.BeginMove();
      } else if (commit) {
        ASSERT_FALSE(transaction.Commit());
      }
    }
    if (choice == 11 || choice == 12) in_move = !in_move;
    ASSERT_EQ(scratch.All(scratch.transaction), real.All(real.transaction));
    if (commit) {
      ASSERT_EQ(scratch.All(scratch.device), real.All(real.device));
    }
  }
  EXPECT_EQ(base->Content(), before);
}

// A journal that breaks off inside a commit is finished for the dry run's eyes only.
class DryOpenTest : public ImageFolder {};

TEST_F(DryOpenTest, FinishesACommitInMemory) {
  Put("a.txt", Bytes(3000, 'a'));
  Bytes before = Fat();
  Put("image", before);
  Run("mcopy -i image a.txt ::");
  Bytes after = Get("image");
  constexpr std::size_t kState = 0x25;
  MemoryDevice device(before);
  MemoryDevice store(0, true);
  RedoJournal journal(store, device);
  Put("image", before);
  ASSERT_FALSE(journal.Begin(LocateVolume(Path("image"), {}, false).identity));
  before[kState] = after[kState] = 1;
  ASSERT_FALSE(journal.Record({{0, Bytes(before.begin(), before.begin() + kSector)}}));
  ASSERT_FALSE(journal.Settle());
  device.Content() = before;
  Put("image", before);
  ASSERT_FALSE(journal.Record({{0, after}}));
  Put("image.vornalux-journal", store.Content());

  OpenOptions options;
  options.writable = options.dry_run = true;
  OpenReport report;
  const auto volume = OpenImage(Path("image"), options, report);
  EXPECT_TRUE(report.recovered);
  std::vector<FolderItem> items;
  EXPECT_EQ(volume->ListFolder(volume->Root(), items), error::kSuccess);
  EXPECT_EQ(items.size(), 1u);
  EXPECT_EQ(volume->Close(), error::kSuccess);
  EXPECT_EQ(Get("image"), before);
  EXPECT_EQ(Get("image.vornalux-journal"), store.Content());
}

}  // namespace
}  // namespace vornalux::test
