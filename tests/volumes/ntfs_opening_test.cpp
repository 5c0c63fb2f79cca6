// SPDX-License-Identifier: GPL-2.0-or-later
// What is opened, what is refused, and that neither changes the volume.
#include <gtest/gtest.h>

#include <functional>

#include "check/ntfs_check.h"
#include "host/image/refused.h"
#include "volumes/ntfs_image.h"

namespace vornalux::test {
namespace {

class NtfsOpening : public testing::Test {
 protected:
  NtfsOpening() : image_("opening") {
    MakeNtfs(image_, 8 << 20, 4096);
    LibraryVolume library(image_, LibraryVolume::Mode::ReadWrite);
    FillVolume(library, 40, 8);
  }

  // What the refusal says; empty when the volume was opened. The image must stay as it is.
  std::string Refusal(bool writable, bool allow_dirty) const {
    const Bytes before = image_.Content();
    std::string said;
    try {
      OpenFile(image_, writable, allow_dirty);
    } catch (const VolumeRefused& refused) {
      said = refused.what();
      EXPECT_NE(said, "");
    }
    EXPECT_EQ(image_.Content() == before, true) << "the image has changed";
    return said;
  }

  ImageFile image_;
};

TEST_F(NtfsOpening, LookingLeavesEveryByteAsItIs) {
  const Bytes before = image_.Content();
  for (const bool writable : {false, true}) {
    const auto volume = OpenFile(image_, writable);
    EXPECT_EQ(volume->Facts().file_system, "NTFS");
    EXPECT_EQ(volume->Facts().label, "T\u00e9st");
    EXPECT_EQ(volume->Facts().sectors_per_cluster, 8U);
    EXPECT_EQ(volume->Facts().total_clusters, (8 << 20) / 4096 - 1);
    EXPECT_FALSE(volume->Dirty());
    Bytes content(1 << 16);
    for (const NamedStream& each : AllStreams(*volume)) {
      std::vector<Extent> extents;
      std::size_t done = 0;
      EXPECT_EQ(volume->Extents(each.stream, extents), error::kSuccess) << each.path;
      if (each.stream.stream.ends_with("$DATA")) {
        EXPECT_EQ(volume->Read(each.stream, 0, content, done), error::kSuccess) << each.path;
      }
    }
    EXPECT_EQ(volume->Close(), error::kSuccess);
  }
  EXPECT_TRUE(image_.Content() == before);
}

TEST_F(NtfsOpening, WorkMarksTheVolumeDirtyAndEndsClean) {
  auto volume = OpenFile(image_, true);
  const auto streams = AllStreams(*volume);
  std::vector<Extent> extents;
  for (const NamedStream& each : streams) {
    if (each.path.starts_with("/$MFT")) continue;
    volume->Extents(each.stream, extents);
    if (extents.empty() || extents.front().Lcn < 0) continue;
    ASSERT_EQ(volume->Move(each.stream, 0, 1800, 1), error::kSuccess) << each.path;
    break;
  }
  ASSERT_EQ(volume->Commit(), error::kSuccess);
  EXPECT_TRUE(CheckNtfs(image_.Path()).dirty);
  ASSERT_EQ(volume->Close(), error::kSuccess);
  volume.reset();
  EXPECT_EQ(Refusal(true, false), "");
}

TEST_F(NtfsOpening, UncleanVolumesAreRefused) {
  struct Case {
    const char* what;
    std::function<void(LibraryVolume&)> make;
    const char* says;
  };
  const Case cases[] = {
      {"dirty",
       [](LibraryVolume& library) {
         ntfs_volume_write_flags(library.Volume(), library.Volume()->flags | VOLUME_IS_DIRTY);
       },
       "chkdsk"},
      {"hibernated",
       [](LibraryVolume& library) {
         Bytes header(8192);
         std::copy_n("hibr", 4, header.begin());
         library.AddFile(FILE_root, u"hiberfil.sys", header);
       },
       "shutdown /s /f"},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.what);
    MakeNtfs(image_, 8 << 20, 4096);
    {
      LibraryVolume library(image_, LibraryVolume::Mode::ReadWrite);
      each.make(library);
    }
    for (const bool writable : {false, true}) {
      EXPECT_NE(Refusal(writable, false).find(each.says), std::string::npos);
    }
    EXPECT_EQ(Refusal(false, true), "");
  }
}

TEST_F(NtfsOpening, DamagedVolumesAreRefused) {
  const Bytes whole = image_.Content();
  const std::uint64_t mft = 4 * 4096;  // where mkntfs puts it
  const std::pair<const char*, std::function<void()>> cases[] = {
      {"cut short", [&] { std::filesystem::resize_file(image_.Path(), (8 << 20) - 8192); }},
      {"no sectors", [&] { image_.Poke(0x28, Bytes(8)); }},
      {"far too many sectors", [&] { image_.Poke(0x28, Bytes(8, 0x7F)); }},
      {"$MFT elsewhere",
       [&] {
         image_.Poke(0x30, {9, 1});
       }},
      {"$MFT's record gone", [&] { image_.Poke(mft, Bytes(1024)); }},
      {"$MFTMirr differs", [&] { image_.Poke(mft + 0x40, Bytes(8, 0xAA)); }},
      {"$Bitmap's record gone", [&] { image_.Poke(mft + 6 * 1024, Bytes(1024)); }},
      {"root's record gone", [&] { image_.Poke(mft + 5 * 1024, Bytes(1024)); }},
  };
  for (const auto& [what, damage] : cases) {
    SCOPED_TRACE(what);
    image_.SetContent(whole);
    damage();
    EXPECT_NE(Refusal(true, false), "");
    EXPECT_NE(Refusal(false, true), "");
  }
}

}  // namespace
}  // namespace vornalux::test
