// SPDX-License-Identifier: GPL-2.0-or-later
#include <gtest/gtest.h>

#include "check/content.h"
#include "check/fat_check.h"
#include "host/image/device/little_endian.h"
#include "host/image/volume/refused.h"
#include "mkvolume/maker.h"
#include "support/image_folder.h"
#include "volumes/contract/contract.h"
#include "volumes/fat/fat_image.h"

namespace vornalux::test {
namespace {

using contract::KnownStream;

constexpr std::uint32_t kPlanted = 3;
constexpr std::uint8_t kPlantedByte = 0x77;

// What the volume maker does not make.
enum class Tables { Two, One, LastOnly };

struct FatKind {
  const char* label;
  const char* recipe;
  Tables tables = Tables::Two;
};

// A made volume with lost and bad clusters besides, and what it should hold.
class FatSubject {
 public:
  FatSubject(const FatKind& kind, std::uint64_t seed)
      : manifest_(
            MakeVolume(kind.recipe + (" seed=" + std::to_string(seed)), folder_.Path("image"))),
        world_(Reshaped(folder_.Get("image"), kind.tables)),
        last_only_(kind.tables == Tables::LastOnly) {
    Plant();
    before_ = world_.Image();
    volume_ = world_.Open();
  }

  MountedVolume& Volume() { return *volume_; }
  FatWorld& World() { return world_; }
  void Reopen() { volume_ = world_.Open(); }
  // Closes the volume; everything wrong with it.
  std::vector<std::string> CloseAndJudge() {
    if (volume_->Close() != error::kSuccess) return {"it does not close"};
    std::vector<std::string> faults = {JudgeOutside()};
    FatWorld found(world_.Image());
    const FatGeometry& geometry = found.geometry;
    for (std::uint32_t i = 0; i < kPlanted; ++i) {
      const bool entry = found.Entry(planted_ + i) == world_.Entry(planted_ + i);
      const bool byte = found.Image()[geometry.ClusterOffset(planted_ + i)] == kPlantedByte;
      if (!entry || !byte) faults.push_back("lost or bad clusters changed");
      found.SetEntry(planted_ + i, 0);
    }
    if (last_only_) {
      // Checkers look at the first table only.
      found.Image()[0x28] = 0;
      std::copy_n(&found.Image()[geometry.CopyOffset(0)], geometry.fat_size,
                  &found.Image()[geometry.fat_offset]);
    }
    faults.push_back(found.FsckComplaint());
    const CheckReport report = CheckFat(MemorySource(found.Image()), {.hash = true});
    faults.insert(faults.end(), report.problems.begin(), report.problems.end());
    for (const std::string& line : CompareContent(report.items, manifest_)) faults.push_back(line);
    std::erase(faults, "");
    return faults;
  }

 private:
  static Bytes Reshaped(Bytes image, Tables tables) {
    const FatGeometry geometry = FatWorld(image).geometry;
    if (tables == Tables::One) {
      // The first becomes a part of the reserved area.
      image[0x10] = 1;
      StoreLittle(image, 0x0E,
                  static_cast<std::uint16_t>((geometry.fat_offset + geometry.fat_size) /
                                             geometry.bytes_per_sector));
    }
    if (tables == Tables::LastOnly) {
      image[0x28] = 0x81;
      std::fill_n(&image[geometry.fat_offset], geometry.fat_size, std::uint8_t{0x5A});
    }
    return image;
  }

  void Plant() {
    const FatGeometry& geometry = world_.geometry;
    planted_ = geometry.clusters / 2;
    while (world_.Entry(planted_) + world_.Entry(planted_ + 1) + world_.Entry(planted_ + 2) != 0) {
      ++planted_;
    }
    world_.SetEntry(planted_, planted_ + 1);
    world_.SetEntry(planted_ + 1, world_.table.Bad() + 8);
    world_.SetEntry(planted_ + 2, world_.table.Bad());
    for (std::uint32_t i = 0; i < kPlanted; ++i) {
      world_.Image()[geometry.ClusterOffset(planted_ + i)] = kPlantedByte;
    }
    if (geometry.type != FatType::Fat32) return;
    // The upper four bits belong to nobody.
    for (std::uint32_t copy = 0; copy < geometry.copies; ++copy) {
      for (std::uint64_t at = geometry.EntryBytes(3) - 1; at < geometry.fat_size; at += 4) {
        world_.Image()[geometry.CopyOffset(copy) + at] |= 0x50;
      }
    }
  }

  // The first difference in what no move has any business with.
  std::string JudgeOutside() {
    const FatGeometry& geometry = world_.geometry;
    const std::uint64_t tables = geometry.CopyOffset(0);
    const std::uint64_t tables_end = geometry.CopyOffset(geometry.copies);
    for (std::uint64_t at = 0; at < geometry.data_offset; ++at) {
      const std::uint8_t change = world_.Image()[at] ^ before_[at];
      if (change == 0) continue;
      const bool in_table = at >= tables && at < tables_end;
      const std::uint64_t in_copy = (at - tables) % geometry.fat_size;
      const bool upper_bits = geometry.type == FatType::Fat32 && at % 4 == 3 && change >> 4 != 0;
      const bool entry = !upper_bits && in_copy >= geometry.EntryBytes(2) &&
                         in_copy < geometry.EntryBytes(geometry.EndCluster());
      const bool start = at >= geometry.root_offset && (at % 32 == 26 || at % 32 == 27);
      const bool may_change = in_table ? entry : start;
      if (!may_change) return "byte " + std::to_string(at) + " before the data area changed";
    }
    return "";
  }

  ScratchFolder folder_;
  Manifest manifest_;
  FatWorld world_;
  bool last_only_;  // FAT32: only the last table is in use, and the first is rubbish
  Bytes before_;
  std::uint32_t planted_ = 0;  // two lost clusters in a chain, and a bad one
  std::unique_ptr<ImageVolume> volume_;
};

class FatMoves : public testing::TestWithParam<FatKind> {};

TEST_P(FatMoves, LeaveEveryFileWhole) {
  const std::uint64_t seed = TestSeed();
  SCOPED_TRACE(SeedNote(seed));
  SeededRandom random(seed);
  FatSubject subject(GetParam(), seed);
  for (int round = 0; round < 3; ++round) {
    const std::vector<KnownStream> streams = contract::Walk(subject.Volume());
    ASSERT_GT(streams.size(), 100u);
    for (int i = 0; i < 1000; ++i) {
      const KnownStream& stream =
          streams[static_cast<std::size_t>(random.Below(std::ssize(streams)))];
      const auto move = contract::SomeMove(subject.Volume(), stream.ref, random);
      if (!move) continue;
      ASSERT_EQ(subject.Volume().Move(stream.ref, move->vcn, move->lcn, move->count),
                stream.path.empty() ? error::kAccessDenied : error::kSuccess)
          << stream.path << move->Text();
    }
    // Whoever finds it now has to know that somebody is at work.
    ASSERT_EQ(subject.Volume().Commit(), error::kSuccess);
    EXPECT_NE(subject.World().Refusal().find("dirty"), std::string::npos);
    ASSERT_EQ(subject.CloseAndJudge(), std::vector<std::string>{});
    subject.Reopen();
  }
}

constexpr const char* kFat32 = "fat32 size=34M cluster=512 files=200 fragmented=60% fill=50%";

INSTANTIATE_TEST_SUITE_P(
    Fat, FatMoves,
    testing::Values(
        FatKind{"fat12", "fat12 size=1900K cluster=512 files=150 fragmented=60% fill=60%"},
        FatKind{"fat12OneTable", "fat12 size=4000K cluster=2K files=150 fragmented=60%",
                Tables::One},
        FatKind{"fat16", "fat16 size=9000K cluster=1K files=200 fragmented=60% fill=50%"},
        FatKind{"fat16Sector4096", "fat16 size=18000K sector=4096 cluster=4096 files=150 fill=50%"},
        FatKind{"fat32", kFat32},
        FatKind{"fat32Sector1024", "fat32 size=68M sector=1024 cluster=1024 files=200 fill=50%"},
        FatKind{"fat32LastTable", kFat32, Tables::LastOnly}),
    [](const auto& test) { return test.param.label; });

// Every access that a move makes fails in its turn: then nothing has moved, and all goes on.
TEST(FatFaults, DropTheMoveWhole) {
  for (const int bits : {12, 32}) {
    FatWorld world(SmallFat(bits));
    FailingDevice failing(world.device, FailingDevice::kReads | FailingDevice::kWrites);
    const auto volume = world.Open(&failing);
    const std::vector<KnownStream> streams = contract::Walk(*volume);
    std::int64_t lcn = volume->Facts().total_clusters;
    // The start of the work is another matter.
    ASSERT_EQ(volume->Move({1, ""}, 0, lcn - 1, 1), error::kSuccess);
    ASSERT_EQ(volume->Commit(), error::kSuccess);
    for (const KnownStream& stream : streams) {
      if (stream.path.empty() || stream.extents.empty()) continue;
      const auto before = contract::Take(*volume, streams);
      lcn -= 4;
      for (int nth = 0;; ++nth) {
        ASSERT_LT(nth, 100) << stream.path;
        // A failing commit ends everything; a failing move must not.
        ASSERT_EQ(volume->Commit(), error::kSuccess);
        failing.FailAt(nth, false);
        const ErrorCode result = volume->Move(stream.ref, 0, lcn, 3);
        failing.FailAt(-1, false);
        if (result == error::kSuccess) break;
        EXPECT_EQ(contract::Take(*volume, streams), before) << stream.path << " access " << nth;
      }
    }
    ASSERT_EQ(volume->Close(), error::kSuccess);
    EXPECT_EQ(world.FsckComplaint(), "");
  }
}

}  // namespace
}  // namespace vornalux::test
