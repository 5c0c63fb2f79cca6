// SPDX-License-Identifier: GPL-2.0-or-later
// Whatever stands in an image, a check ends, and without touching what is not its own. Run with the
// sanitizers this finds what plain runs survive.
#include <gtest/gtest.h>

#include <iostream>

#include "check/volume_check.h"
#include "host/simulated/seeded_random.h"
#include "mkvolume/maker.h"
#include "support/image_folder.h"
#include "support/seed.h"

namespace vornalux {
namespace {

class GarbageTest : public test::ImageFolder, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    MakeVolume(GetParam(), Path("v.img"));
    image_ = Get("v.img");
    report_ = CheckVolume(MemorySource(image_));
  }

  // Clusters with structures, where damage does most harm.
  std::vector<std::size_t> Targets() const {
    std::vector<std::size_t> offsets = {0};
    std::size_t first = 0;
    if (report_.file_system != "NTFS") {
      first = image_.size() - static_cast<std::size_t>(report_.clusters) * report_.cluster_size;
      for (std::size_t at = 0; at < first; at += 512) offsets.push_back(at);
    }
    const auto add = [&](const CheckedItem& item) {
      for (const CheckedExtent& extent : item.extents) {
        if (extent.lcn < 0) continue;
        for (std::int64_t k = 0; k < extent.count; ++k) {
          offsets.push_back(first +
                            static_cast<std::size_t>(extent.lcn + k) * report_.cluster_size);
        }
      }
    };
    for (const CheckedItem& item : report_.metafiles) {
      if (item.path != "/$LogFile") add(item);
    }
    for (const CheckedItem& item : report_.items) {
      if (item.is_folder || item.compressed) add(item);
    }
    return offsets;
  }

  std::vector<std::uint8_t> image_;
  CheckReport report_;
};

TEST_P(GarbageTest, ChecksEnd) {
  const std::uint64_t seed = test::TestSeed();
  std::cout << test::SeedNote(seed) << std::endl;  // known even after a crash
  SeededRandom random(seed);
  const std::vector<std::size_t> targets = Targets();
  std::vector<std::uint8_t> broken = image_;
  for (int round = 0; round < 150; ++round) {
    std::vector<std::size_t> changed;
    for (std::size_t k = random() % 12 + 1; k > 0; --k) {
      const std::size_t at = targets[random() % targets.size()] + random() % 1024;
      if (at >= broken.size()) continue;
      constexpr std::uint8_t kTelling[] = {0, 1, 0x7F, 0x80, 0xFF};
      broken[at] = random() % 2 == 0 ? kTelling[random() % std::size(kTelling)]
                                     : static_cast<std::uint8_t>(random());
      changed.push_back(at);
    }
    const CheckReport report =
        CheckVolume(MemorySource(broken), {.hash = round % 4 == 0, .max_problems = 20});
    EXPECT_LE(report.problems.size(), 21U);
    for (const std::size_t at : changed) broken[at] = image_[at];
  }
}

TEST_P(GarbageTest, ShortImagesAreReported) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{100}, std::size_t{512},
                                 std::size_t{5000}, image_.size() / 2, image_.size() - 513}) {
    const std::span<const std::uint8_t> part(image_.data(), size);
    EXPECT_FALSE(CheckVolume(MemorySource(part), {.hash = true}).Clean()) << size;
    EXPECT_FALSE(CheckVolume(MemorySource(part), {.offset = size + 1}).Clean()) << size;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, GarbageTest,
    testing::Values(
        "ntfs size=8M files=60 folders=5 crowd=40 streams=20% sparse=20% compressed=20% "
        "links=10% shredded=1:400",
        "fat12 size=2M files=40 folders=8", "fat32 size=34M files=40 folders=8"),
    [](const auto& made) {
      return std::string(made.param).substr(0, 4) + std::to_string(made.index);
    });

}  // namespace
}  // namespace vornalux
