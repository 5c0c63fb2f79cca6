// SPDX-License-Identifier: GPL-2.0-or-later
// What is opened, what is refused, and that neither changes the volume.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "check/ntfs_check.h"
#include "host/image/device/little_endian.h"
#include "host/image/opening/image_file.h"
#include "support/image_folder.h"
#include "volumes/maker/maker_editor.h"
#include "volumes/ntfs/ntfs_image.h"

namespace vornalux::test {
namespace {

class NtfsOpening : public ImageFolder {
 protected:
  NtfsOpening() { Put("v.img", MakeStrange(4096, "size=8M files=40 folders=2", 8)); }

  std::unique_ptr<MountedVolume> Open(bool writable) {
    OpenOptions options;
    options.writable = writable;
    OpenReport report;
    return OpenImage(Path("v.img"), options, report);
  }

  // What the refusal says; empty when the volume was opened. The image must stay as it is.
  std::string Refusal(bool writable) {
    const Bytes before = Get("v.img");
    std::string said;
    try {
      Open(writable);
    } catch (const VolumeRefused& refused) {
      said = refused.what();
      EXPECT_NE(said, "");
    }
    EXPECT_TRUE(Get("v.img") == before) << "the image has changed";
    return said;
  }
};

TEST_F(NtfsOpening, TellsWhatTheVolumeIs) {
  Run("ntfslabel v.img Tést");
  const auto volume = Open(false);
  EXPECT_EQ(volume->Facts().file_system, "NTFS");
  EXPECT_EQ(volume->Facts().label, "Tést");
  EXPECT_EQ(volume->Facts().serial, LoadLittle<std::uint64_t>(Get("v.img"), 0x48));
  EXPECT_EQ(volume->Facts().sectors_per_cluster, 8U);
  EXPECT_EQ(volume->Facts().total_clusters, (8 << 20) / 4096 - 1);
  EXPECT_FALSE(volume->Dirty());
}

TEST_F(NtfsOpening, WorkMarksTheVolumeDirtyAndEndsClean) {
  auto volume = Open(true);
  const StreamRef file = FindStream(*volume, "marked");
  ASSERT_EQ(volume->Move(file, 0, FreeRun(*volume, 0, 1), 1), error::kSuccess);
  ASSERT_EQ(volume->Commit(), error::kSuccess);
  EXPECT_TRUE(CheckNtfs(Path("v.img")).dirty);
  ASSERT_EQ(volume->Close(), error::kSuccess);
  volume.reset();
  EXPECT_EQ(Refusal(true), "");
}

TEST_F(NtfsOpening, DamagedVolumesAreRefused) {
  const Bytes whole = Get("v.img");
  const CheckReport report = CheckNtfs(Path("v.img"));
  const auto wipe = [](ByteSpan bytes) { std::ranges::fill(bytes, std::uint8_t{0}); };
  const std::pair<const char*, std::function<void(NtfsEditor&)>> cases[] = {
      {"cut short", [](NtfsEditor& e) { e.bytes.resize(e.bytes.size() - 8192); }},
      {"no sectors", [](NtfsEditor& e) { test::Put(e.bytes, 0x28, 8, 0); }},
      {"far too many sectors",
       [](NtfsEditor& e) { test::Put(e.bytes, 0x28, 8, 0x7F7F7F7F7F7F7F7F); }},
      {"$MFT elsewhere", [](NtfsEditor& e) { test::Put(e.bytes, 0x30, 2, 0x109); }},
      {"$MFT's record gone", [&](NtfsEditor& e) { wipe(e.RawRecord(0)); }},
      {"$MFTMirr differs",
       [](NtfsEditor& e) { test::Put(e.RawRecord(0), 0x40, 8, 0xAAAAAAAAAAAAAAAA); }},
      {"$Bitmap's record gone", [&](NtfsEditor& e) { wipe(e.RawRecord(6)); }},
      {"root's record gone", [&](NtfsEditor& e) { wipe(e.RawRecord(5)); }},
  };
  for (const auto& [what, damage] : cases) {
    SCOPED_TRACE(what);
    NtfsEditor editor(whole, report);
    damage(editor);
    Put("v.img", editor.bytes);
    EXPECT_NE(Refusal(true), "");
    EXPECT_NE(Refusal(false), "");
  }
}

}  // namespace
}  // namespace vornalux::test
