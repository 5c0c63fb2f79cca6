// SPDX-License-Identifier: GPL-2.0-or-later
#include "check/ntfs_check.h"
#include "host/image/device/little_endian.h"
#include "host/image/opening/image_file.h"
#include "support/image_folder.h"
#include "volumes/ntfs/ntfs_image.h"

namespace vornalux::test {
namespace {

using NtfsOpening = ImageFolder;

TEST_F(NtfsOpening, TellsWhatTheVolumeIsAndMarksItWhileAtWork) {
  Put("v.img", MakeStrange(4096, "size=8M files=40 folders=2", 8));
  Run("ntfslabel v.img Tést");
  OpenOptions options;
  options.writable = true;
  OpenReport report;
  const auto volume = OpenImage(Path("v.img"), options, report);
  EXPECT_EQ(volume->Facts().file_system, "NTFS");
  EXPECT_EQ(volume->Facts().label, "Tést");
  EXPECT_EQ(volume->Facts().serial, LoadLittle<std::uint64_t>(Get("v.img"), 0x48));
  EXPECT_EQ(volume->Facts().sectors_per_cluster, 8U);
  EXPECT_EQ(volume->Facts().total_clusters, (8 << 20) / 4096 - 1);
  EXPECT_FALSE(volume->Dirty());

  const StreamRef file = FindStream(*volume, "marked");
  ASSERT_EQ(volume->Move(file, 0, FreeRun(*volume, 0, 1), 1), error::kSuccess);
  ASSERT_EQ(volume->Commit(), error::kSuccess);
  EXPECT_TRUE(CheckNtfs(Path("v.img")).dirty);
  ASSERT_EQ(volume->Close(), error::kSuccess);
  EXPECT_FALSE(CheckNtfs(Path("v.img")).dirty);
}

}  // namespace
}  // namespace vornalux::test
