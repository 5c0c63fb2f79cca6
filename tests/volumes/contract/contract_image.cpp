// SPDX-License-Identifier: GPL-2.0-or-later
// The contract over images of every file system, opened the way that users open them. The judge is
// the checker, which shares no code with the volumes, and what the maker says it wrote.
#include "check/content.h"
#include "check/volume_check.h"
#include "host/image/opening/image_file.h"
#include "mkvolume/maker.h"
#include "support/image_folder.h"
#include "volumes/contract/contract.h"

namespace vornalux::contract {

namespace {

constexpr std::uint64_t kFirstPartition = 1 << 20;  // bytes, where the maker puts it

class ImageSubject final : public Subject {
 public:
  ImageSubject(const std::string& recipe, std::uint64_t seed)
      : image_(folder_.Path("volume.img")),
        partitioned_(recipe.find("partitioned") != std::string::npos),
        expected_(MakeVolume(recipe + " seed=" + std::to_string(seed), image_)) {
    Open();
  }

  MountedVolume& Volume() override { return *volume_; }

  ErrorCode CloseAndReopen() override {
    const ErrorCode error = volume_->Close();
    Open();
    return error;
  }

  std::vector<std::string> CloseAndJudge() override {
    const ErrorCode error = volume_->Close();
    volume_.reset();
    if (error != error::kSuccess) return {"closing failed with error " + std::to_string(error)};
    CheckOptions options;
    options.hash = true;
    options.offset = partitioned_ ? kFirstPartition : 0;
    const CheckReport report = CheckVolume(image_, options);
    std::vector<std::string> faults = report.problems;
    if (report.dirty) faults.emplace_back("left dirty");
    for (const std::string& line : CompareContent(report.items, expected_)) faults.push_back(line);
    return faults;
  }

 private:
  void Open() {
    volume_.reset();  // gives up the lock
    OpenReport report;
    OpenOptions options;
    options.writable = true;
    if (partitioned_) options.partition = 1;
    volume_ = OpenImage(image_, options, report);
    EXPECT_FALSE(report.recovered) << report.recovery;
  }

  test::ScratchFolder folder_;
  std::string image_;
  bool partitioned_;
  Manifest expected_;
  std::unique_ptr<MountedVolume> volume_;
};

Kind ImageKind(const std::string& name, const std::string& recipe) {
  const bool ntfs = recipe.starts_with("ntfs");
  return {
      .name = name,
      .make = [recipe](std::uint64_t seed) { return std::make_unique<ImageSubject>(recipe, seed); },
      .has_holes = ntfs,
      .has_streams = ntfs,
      .all_visible = !ntfs,
      .grows_metadata = ntfs,
      .sorted = ntfs};
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(
    Images, VolumeContract,
    testing::Values(
        ImageKind("ntfs",
                  "ntfs size=48M files=150 folders=20 fragmented=50% fill=50% streams=20% "
                  "sparse=20% compressed=20% links=10% dos-names=10% mft-pieces=3"),
        ImageKind("ntfsCluster512",
                  "ntfs partitioned=1 size=24M cluster=512 files=150 fragmented=50% fill=50% "
                  "streams=20% sparse=20% fragmented-folders=50%"),
        ImageKind("ntfsCluster65536",
                  "ntfs size=96M cluster=65536 files=150 fragmented=50% "
                  "fill=50% streams=20% sparse=20%"),
        ImageKind("ntfsSector4096",
                  "ntfs size=48M sector=4096 cluster=4096 files=80 crowd=70 "
                  "fragmented=50% fill=50% streams=20% sparse=20%"),
        ImageKind("fat12", "fat12 size=4M files=60 folders=8 fragmented=50% deleted=10%"),
        ImageKind("fat16InPartition",
                  "fat16 partitioned=1 size=32M files=150 folders=20 fragmented=50% deleted=10%"),
        ImageKind("fat32",
                  "fat32 size=48M cluster=512 files=150 folders=20 fragmented=50% "
                  "fragmented-folders=50% deleted=10%")),
    [](const auto& test) { return test.param.name; });

}  // namespace vornalux::contract
