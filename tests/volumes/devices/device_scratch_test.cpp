// SPDX-License-Identifier: GPL-2.0-or-later
// A dry run's device must read like a real one that is written to, and leave its base alone.
#include <gtest/gtest.h>

#include "host/image/device/scratch_device.h"
#include "host/image/device/window_device.h"
#include "host/image/journal/journal.h"
#include "host/image/journal/transaction.h"
#include "support/devices.h"
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

}  // namespace
}  // namespace vornalux::test
