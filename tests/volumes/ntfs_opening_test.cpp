// SPDX-License-Identifier: GPL-2.0-or-later
// What is opened, what is refused, and that neither changes the volume.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "check/ntfs_check.h"
#include "host/image/image_file.h"
#include "host/image/little_endian.h"
#include "support/image_folder.h"
#include "volumes/maker_editor.h"
#include "volumes/ntfs_image.h"
#include "volumes/unclean_states.h"

namespace vornalux::test {
namespace {

class NtfsOpening : public ImageFolder {
 protected:
  NtfsOpening() { Put("v.img", MakeStrange(4096, "size=8M files=40 folders=2", 8)); }

  std::unique_ptr<MountedVolume> Open(bool writable) {
    OpenOptions options;
    options.writable = writable;
    return OpenImage(Path("v.img"), options, report_);
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

  OpenReport report_;
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

TEST_F(NtfsOpening, LookingLeavesEveryByteAsItIs) {
  const Bytes before = Get("v.img");
  for (const bool writable : {false, true}) {
    const auto volume = Open(writable);
    Bytes content(1 << 16);
    for (const KnownStream& each : AllStreams(*volume)) {
      std::vector<Extent> extents;
      std::size_t done = 0;
      EXPECT_EQ(volume->Extents(each.ref, extents), error::kSuccess) << each.path;
      if (!each.IsFolder() && !each.path.ends_with("$BITMAP")) {
        EXPECT_EQ(volume->Read(each.ref, 0, content, done), error::kSuccess) << each.path;
      }
    }
    EXPECT_EQ(volume->Close(), error::kSuccess);
  }
  EXPECT_TRUE(Get("v.img") == before);
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

TEST_F(NtfsOpening, UncleanVolumesAreRefusedToWorkAndCanBeLookedAt) {
  Put("v.img", MakeNtfs("ntfs size=8M cluster=4096 files=0 folders=0", {{"hiberfil.sys", 8192}}));
  const CheckReport sound = CheckNtfs(Path("v.img"));
  NtfsEditor clean(Get("v.img"), sound);
  std::ranges::fill(clean.At(sound.Find("/hiberfil.sys")->extents[0].lcn).first(8192), 0);
  const auto make = [&](const std::function<void(NtfsEditor&)>& state) {
    NtfsEditor editor(clean.bytes, sound);
    state(editor);
    Put("v.img", editor.bytes);
  };
  for (const UncleanState& state : UncleanStates()) {
    SCOPED_TRACE(state.what);
    make(state.make);
    const std::string said = Refusal(true);
    for (const char* part : {state.finding, "not unmounted cleanly", "chkdsk /f", "Fast Startup",
                             "shutdown /s /f /t 0", "unfinished", "mount it once"}) {
      EXPECT_NE(said.find(part), std::string::npos) << part << "\n" << said;
    }
    EXPECT_EQ(Refusal(false), "");
    EXPECT_EQ(report_.objections, std::vector<std::string>{said});
  }
  make([](NtfsEditor& editor) { WriteLog(editor, 1, true); });
  EXPECT_EQ(Refusal(true), "");
  EXPECT_EQ(Refusal(false), "");
  EXPECT_EQ(report_.objections, std::vector<std::string>());
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
