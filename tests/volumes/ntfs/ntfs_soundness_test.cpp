// SPDX-License-Identifier: GPL-2.0-or-later
// What is not sound is refused to passes, and looking at it crashes nothing; what is accepted loses
// nothing; what is sound is accepted.
#include <gtest/gtest.h>

#include <iostream>

#include "app/program.h"
#include "host/image/opening/image_file.h"
#include "host/image/volume/refused.h"
#include "host/simulated/simulated_platform.h"
#include "support/image_folder.h"
#include "support/seed.h"
#include "volumes/ntfs/ntfs_image.h"
#include "volumes/ntfs/ntfs_mutants.h"

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

// Asks a volume that no pass would take everything, and moves a little of everything.
void Exercise(const Bytes& image, Random& random) {
  MemoryVolume volume(image, true);
  const auto total = static_cast<std::uint64_t>(volume->Facts().total_clusters);
  Bytes content(1 << 16);
  std::size_t done = 0;
  for (const KnownStream& each : AllStreams(*volume)) {
    volume->Read(each.ref, 0, content, done);
    std::vector<Extent> extents;
    volume->Extents(each.ref, extents);
    if (extents.empty()) continue;
    const auto vcns = static_cast<std::uint64_t>(extents.back().NextVcn);
    volume->Move(each.ref, static_cast<std::int64_t>(Below(random, vcns)),
                 static_cast<std::int64_t>(Below(random, total)),
                 1 + static_cast<std::int64_t>(Below(random, 3)));
  }
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

TEST(NtfsSoundness, NoMutantCrashesAndNoneThatIsAcceptedLosesAnything) {
#ifdef __SANITIZE_ADDRESS__
  constexpr std::uint64_t kMutants = 240;
#else
  constexpr std::uint64_t kMutants = 2400;
#endif
  const std::uint64_t seed = TestSeed();
  std::cout << SeedNote(seed) << "\n";
  const std::vector<NtfsMutants> volumes = SmallVolumes();
  std::uint64_t refused = 0;
  std::uint64_t exercised = 0;
  std::uint64_t losses = 0;
  for (std::uint64_t round = 0; round < kMutants; ++round) {
    Random random(seed * 1000003 + round);
    const Mutant mutant = volumes[round % volumes.size()].Make(random);
    try {
      MemoryVolume{mutant.image};
    } catch (const VolumeRefused&) {
      ++refused;
      try {
        Exercise(mutant.image, random);
        ++exercised;
      } catch (const VolumeRefused&) {
      }
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
  EXPECT_GT(exercised, kMutants / 10);
}

class NtfsUnsound : public ImageFolder {
 protected:
  std::unique_ptr<MountedVolume> Open(bool writable, bool dry = false) {
    OpenOptions options;
    options.writable = writable;
    options.dry_run = dry;
    return OpenImage(Path("v.img"), options, report_);
  }

  OpenReport report_;
};

TEST_F(NtfsUnsound, NewVolumesOfAllSizesAreSound) {
  for (const int sector : {512, 1024, 2048, 4096}) {
    for (int cluster = sector; cluster <= 1 << 20; cluster *= 4) {
      SCOPED_TRACE(std::to_string(sector) + ", " + std::to_string(cluster));
      Run("rm -f v.img; truncate -s 24M v.img; mkntfs -F -Q -q -s " + std::to_string(sector) +
          " -c " + std::to_string(cluster) +
          " v.img; head -c 3000000 /dev/urandom > in; "
          "ntfscp -q v.img in a; ntfscp -q v.img in b");
      EXPECT_NO_THROW(Open(true));
    }
  }
}

TEST_F(NtfsUnsound, PassesAreRefusedAndLookingGoesOn) {
  Put("v.img", MakeNtfs("ntfs size=8M files=40 folders=2"));
  const CheckReport sound = CheckNtfs(Path("v.img"));
  NtfsEditor editor(Get("v.img"), sound);
  const std::int64_t lcn = editor.Whole(0).extents[0].lcn;
  editor.FlipClusterBit(lcn);
  Put("v.img", editor.bytes);
  try {
    Open(true);
    ADD_FAILURE() << "accepted";
  } catch (const VolumeRefused& refused) {
    const std::string says = refused.what();
    for (const std::string& words :
         {"record " + std::to_string(editor.Whole(0).id), std::string("$DATA"),
          "cluster " + std::to_string(lcn) + " is marked free", std::string("chkdsk /f")}) {
      EXPECT_NE(says.find(words), std::string::npos) << says;
    }
  }
  for (const bool dry : {false, true}) {
    const auto volume = Open(dry, dry);
    ASSERT_EQ(report_.objections.size(), 1U);
    EXPECT_NE(report_.objections[0].find("is marked free"), std::string::npos);
    EXPECT_EQ(AllStreams(*volume).size(), sound.items.size() + 3);  // the root, $MFT's two
  }
  EXPECT_TRUE(Get("v.img") == editor.bytes);
  EXPECT_FALSE(std::filesystem::exists(Path("v.img.vornalux-journal")));
}

}  // namespace
}  // namespace vornalux::test
