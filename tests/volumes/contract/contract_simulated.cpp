// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/simulated/random_volume.h"
#include "volumes/contract/contract.h"

namespace vornalux::contract {

namespace {

class SimulatedSubject final : public Subject {
 public:
  explicit SimulatedSubject(std::unique_ptr<SimulatedVolume> volume) : volume_(std::move(volume)) {}

  MountedVolume& Volume() override { return *volume_; }
  ErrorCode CloseAndReopen() override {
    const ErrorCode error = volume_->Close();
    volume_->Reopen();
    return error;
  }
  std::vector<std::string> CloseAndJudge() override {
    std::vector<std::string> faults = volume_->ConsistencyProblems();
    for (const std::string& damaged : volume_->DamagedContent()) {
      faults.push_back("content lost: " + damaged);
    }
    return faults;
  }

 private:
  std::unique_ptr<SimulatedVolume> volume_;
};

Kind SimulatedKind(const std::string& name, const RandomVolumeOptions& options) {
  const bool ntfs = options.geometry.file_system == "NTFS";
  return {.name = name,
          .make =
              [options](std::uint64_t seed) {
                return std::make_unique<SimulatedSubject>(MakeRandomVolume(options, seed));
              },
          .has_holes = options.with_holes > 0,
          .has_streams = ntfs && options.with_stream > 0};
}

}  // namespace

// 4099 and 2001: no multiple of 8, so that the last bitmap byte is a part of one.
INSTANTIATE_TEST_SUITE_P(
    Simulated, VolumeContract,
    testing::Values(SimulatedKind("likeNtfs", {.geometry = {.total_clusters = 4099},
                                               .files = 120,
                                               .with_holes = 0.2,
                                               .with_stream = 0.3,
                                               .immovable = 0}),
                    SimulatedKind("likeFat", {.geometry = {.total_clusters = 2001,
                                                           .sectors_per_cluster = 1,
                                                           .file_system = "FAT32"},
                                              .fragmented = 0.8,
                                              .with_holes = 0,
                                              .immovable = 0})),
    [](const auto& test) { return test.param.name; });

}  // namespace vornalux::contract
