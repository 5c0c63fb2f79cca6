// SPDX-License-Identifier: GPL-2.0-or-later
// What is not sound is refused to passes; what is accepted loses nothing; what is sound is
// accepted.
#include <gtest/gtest.h>

#include <iostream>
#include <map>

#include "app/program.h"
#include "host/image/refused.h"
#include "host/simulated/simulated_platform.h"
#include "support/image_folder.h"
#include "support/seed.h"
#include "volumes/ntfs_image.h"
#include "volumes/ntfs_mutants.h"

namespace vornalux::test {
namespace {

constexpr const char* kPasses[] = {"/drv C: /d", "/drv C: /o", "/drv C: /c"};

// The engine's pass over a volume in memory.
void Pass(ImageVolume& volume, const char* job) {
  SimulatedPlatform platform({.windows_folder = "C:\\Windows"});
  platform.Mount('C', volume);
  Program program(platform.All());
  program.launcher.SelectDrive("C:\\");
  program.launcher.process_cmd_line(job);
}

// What a pass took away of what could be read before.
std::string Lost(const Bytes& image, const std::set<std::string>& before, const char* job) {
  MemoryVolume volume(image);
  Pass(*volume, job);
  Bytes after;
  volume.Finish(after);
  const std::set<std::string> now = Snapshot(after);
  std::string lost;
  for (const std::string& line : before) {
    if (!line.ends_with(", ") && !now.contains(line)) lost += line + "\n";
  }
  return lost;
}

// A few small volumes that have, together, whatever a record can hold.
std::vector<NtfsMutants> SmallVolumes() {
  std::vector<NtfsMutants> volumes;
  volumes.emplace_back(MakeStrange(512, "size=6M files=25 folders=3 shredded=1:200", 1));
  volumes.emplace_back(MakeNtfs(
      "ntfs size=4M cluster=1024 files=60 folders=3 crowd=30 fill=60% fragmented=70% pieces=5 "
      "mft-pieces=3 shredded=1:400 fragmented-folders=80%"));
  volumes.emplace_back(MakeStrange(4096, "size=5M files=25 folders=3 compressed=15%", 2));
  return volumes;
}

TEST(NtfsSoundness, NoMutantThatIsAcceptedLosesAnything) {
  constexpr std::uint64_t kMutants = 2400;
  const std::uint64_t seed = TestSeed();
  std::cout << SeedNote(seed) << "\n";
  const std::vector<NtfsMutants> volumes = SmallVolumes();
  std::uint64_t refused = 0;
  std::uint64_t losses = 0;
  for (std::uint64_t round = 0; round < kMutants; ++round) {
    Random random(seed * 1000003 + round);
    const Mutant mutant = volumes[round % volumes.size()].Make(random);
    try {
      MemoryVolume{mutant.image};
    } catch (const VolumeRefused&) {
      ++refused;
      continue;
    }
    const std::set<std::string> before = Snapshot(mutant.image);
    for (const char* job : kPasses) {
      const std::string lost = Lost(mutant.image, before, job);
      losses += !lost.empty();
      EXPECT_EQ(lost, "") << SeedNote(seed) << ", round " << round << ", " << job << ": "
                          << mutant.what;
    }
  }
  std::cout << kMutants << " mutants: " << refused << " refused, " << kMutants - refused
            << " accepted, " << losses << " passes lost something\n";
  EXPECT_GT(refused, kMutants / 3);
  EXPECT_LT(refused, kMutants * 4 / 5);
}

}  // namespace
}  // namespace vornalux::test
