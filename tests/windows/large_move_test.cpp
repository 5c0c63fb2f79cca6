// SPDX-License-Identifier: GPL-2.0-or-later
// Large files, moved in several requests: what that leaves, and which requests they are.
#include "host/windows/large_move.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <limits>

#include "host/simulated/seeded_random.h"
#include "host/simulated/simulated_volume.h"
#include "host/windows/system_headers.h"
#include "host/windows/windows_volumes.h"
#include "play/import_patch.h"
#include "support/seed.h"

namespace vornalux {
namespace {

constexpr std::int64_t kTarget = 5000;

// A file in a few pieces somewhere below the target, and two ways to move it.
struct World {
  explicit World(const std::vector<SimulatedRun>& runs) : volume({.total_clusters = 10000}) {
    file.item = volume.AddFile("file", runs);
  }
  std::vector<Extent> Extents() {
    std::vector<Extent> extents;
    EXPECT_EQ(volume.Extents(file, extents), error::kSuccess);
    return extents;
  }
  void ExpectSound() const {
    EXPECT_EQ(volume.DamagedContent(), std::vector<std::string>());
    EXPECT_EQ(volume.ConsistencyProblems(), std::vector<std::string>());
  }
  SimulatedVolume volume;
  StreamRef file;
};

TEST(LargeMove, LeavesWhatOneRequestLeavesOrWhatWasThere) {
  const std::uint64_t seed = test::TestSeed();
  SeededRandom random(seed);
  const auto below = [&](std::int64_t limit) { return random.Below(limit); };
  for (int round = 0; round < 3000; ++round) {
    SCOPED_TRACE(test::SeedNote(seed) + ", round " + std::to_string(round));
    std::vector<SimulatedRun> runs;
    std::int64_t size = 0;
    for (std::int64_t i = below(6), lcn = 0; i >= 0; --i) {
      runs.push_back({lcn += 1 + below(100), 1 + below(300)});
      size += runs.back().count;
      lcn += runs.back().count;
    }
    World cut(runs);
    World whole(runs);
    const std::vector<Extent> before = cut.Extents();
    // A part of it, as a file that no gap holds is moved.
    const std::int64_t vcn = below(3) == 0 ? below(size) : 0;
    const std::int64_t count = below(3) == 0 ? 1 + below(size - vcn) : size - vcn;
    std::vector<FilePart> parts;
    std::int64_t start = 0;
    for (const Extent& extent : before) {
      const std::int64_t from = std::max(start, vcn);
      const std::int64_t to = std::min(extent.NextVcn, vcn + count);
      if (from < to) parts.push_back({from, extent.Lcn + from - start, to - from});
      start = extent.NextVcn;
    }

    const MoveCheckpoint checkpoint = {.every = 16 * (1 + below(4)),
                                       .reached = [](std::int64_t) { return true; }};
    const std::int64_t needed = (count + checkpoint.every - 1) / checkpoint.every;
    const std::int64_t refused = below(needed + 2);  // none, then
    const bool stays_refused = below(2) == 0;
    std::int64_t requests = 0;
    const ErrorCode result =
        MoveInRequests(parts, kTarget, checkpoint, [&](const FilePart& part) -> ErrorCode {
          const std::int64_t now = requests++;
          if (now == refused || (stays_refused && now > refused)) return error::kDiskFull;
          EXPECT_LE(part.count, checkpoint.every);
          return cut.volume.Move(cut.file, part.vcn, part.lcn, part.count);
        });
    cut.ExpectSound();
    if (refused >= needed) {
      EXPECT_EQ(result, error::kSuccess);
      EXPECT_EQ(requests, needed);
      EXPECT_EQ(whole.volume.Move(whole.file, vcn, kTarget, count), error::kSuccess);
      EXPECT_EQ(cut.Extents(), whole.Extents());
    } else {
      EXPECT_EQ(result, error::kDiskFull);
      if (stays_refused && refused > 0) {
        EXPECT_LE(cut.Extents().size(), before.size() + 2);
      } else {
        EXPECT_EQ(cut.Extents(), before);
      }
    }
    if (testing::Test::HasFailure()) return;
  }
}

// --- Which requests the file system gets.

struct Answer {
  NTSTATUS status = 0;
  std::int64_t vcn = 0;
  std::vector<Extent> extents;
};
using Requests = std::vector<std::array<std::int64_t, 3>>;  // VCN, LCN, count

std::vector<Answer> pointers;  // one after the other
Requests moves;
std::size_t asked = 0;

NTSTATUS NTAPI Control(HANDLE, HANDLE, PIO_APC_ROUTINE, void*, IO_STATUS_BLOCK* block, ULONG code,
                       void* in, ULONG, void* out, ULONG) {
  const auto number = [in](std::size_t at) {
    std::int64_t value = 0;
    std::memcpy(&value, static_cast<std::uint8_t*>(in) + at, sizeof value);
    return value;
  };
  block->Information = 0;
  if (code == FSCTL_MOVE_FILE) {
    moves.push_back({number(8), number(16), number(24)});
    return 0;
  }
  const Answer& answer = pointers.at(asked++);
  std::vector<std::int64_t> numbers = {static_cast<std::int64_t>(answer.extents.size()),
                                       answer.vcn};
  for (const Extent& extent : answer.extents) {
    numbers.insert(numbers.end(), {extent.NextVcn, extent.Lcn});
  }
  block->Information = numbers.size() * sizeof(std::int64_t);
  std::memcpy(out, numbers.data(), block->Information);
  return answer.status;
}

TEST(LargeMove, IsCutOnlyWhereItIsSureWhatLiesThere) {
  constexpr auto kMore = static_cast<NTSTATUS>(0x80000005);
  constexpr auto kEndOfFile = static_cast<NTSTATUS>(0xC0000011);
  constexpr std::int64_t kHuge = std::numeric_limits<std::int64_t>::max();
  struct Case {
    const char* what;
    std::int64_t vcn;
    std::uint32_t count;
    std::vector<Answer> pointers;
    Requests moves;
  };
  const Requests whole = {{0, 900, 40}};
  const Requests cut = {{0, 900, 16}, {16, 916, 16}, {32, 932, 8}};
  const Case cases[] = {
      {"small enough", 0, 16, {}, {{0, 900, 16}}},
      {"large", 0, 40, {{0, 0, {{40, 100}}}}, cut},
      {"in pieces", 0, 40, {{0, 0, {{7, 100}, {39, 300}, {80, 200}}}}, cut},
      {"told in two answers", 0, 40, {{kMore, 0, {{7, 100}}}, {0, 7, {{40, 20}}}}, cut},
      {"from its middle", 20, 20, {{0, 8, {{60, 100}}}}, {{20, 900, 16}, {36, 916, 4}}},
      {"shorter", 0, 1 << 30, {{0, 0, {{18, 100}}}}, {{0, 900, 16}, {16, 916, 2}}},
      {"much shorter", 0, 40, {{0, 0, {{16, 100}}}}, whole},
      {"with a hole", 0, 40, {{0, 0, {{7, 100}, {9, -1}, {40, 200}}}}, whole},
      {"a hole behind it", 0, 40, {{0, 0, {{40, 100}, {90, -1}}}}, cut},
      {"below the first cluster", 0, 40, {{0, 0, {{40, -8}}}}, whole},
      {"no answer", 0, 40, {{kEndOfFile, 0, {}}}, whole},
      {"an empty answer", 0, 40, {{kMore, 0, {}}}, whole},
      {"an answer that begins too late", 0, 40, {{0, 8, {{60, 100}}}}, whole},
      {"numbers that fall", 0, 40, {{0, 0, {{7, 100}, {7, 200}, {60, 300}}}}, whole},
      {"numbers that overflow", 0, 40, {{0, 0, {{kHuge, kHuge}}}}, whole},
      {"the same answer again", 0, 40, {{kMore, 0, {{7, 1}}}, {kMore, 0, {{7, 1}}}}, whole},
  };
  const play::ImportPatch control("NtFsControlFile", Control);
  const MoveCheckpoint checkpoint = {.every = 16, .reached = [](std::int64_t) { return false; }};
  WindowsVolumes volumes;
  for (const Case& c : cases) {
    pointers = c.pointers;
    moves.clear();
    asked = 0;
    EXPECT_EQ(volumes.MoveClusters(1, 2, c.vcn, 900, c.count, checkpoint), error::kSuccess);
    EXPECT_EQ(moves, c.moves) << c.what;
    EXPECT_EQ(asked, c.pointers.size()) << c.what;
    moves.clear();
    EXPECT_EQ(volumes.MoveClusters(1, 2, c.vcn, 900, c.count), error::kSuccess);
    EXPECT_EQ(moves, (Requests{{c.vcn, 900, c.count}})) << c.what << ", with nobody to be heard";
  }
}

}  // namespace
}  // namespace vornalux
