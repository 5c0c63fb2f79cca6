// SPDX-License-Identifier: GPL-2.0-or-later
// What is opened, what is refused, and that neither changes the volume.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <functional>

#include "check/ntfs_check.h"
#include "host/image/little_endian.h"
#include "host/image/refused.h"
#include "volumes/ntfs_image.h"

namespace vornalux::test {
namespace {

// The two pages with which a $LogFile that Windows has used begins.
Bytes RestartPages(std::uint16_t major, bool clean) {
  constexpr std::size_t kPage = 4096;
  constexpr std::uint64_t kFileSize = 2 << 20;
  Bytes pages(2 * kPage);
  const std::span<std::uint8_t> header(pages);
  std::copy_n("RSTR", 4, pages.begin());
  StoreLittle<std::uint16_t>(header, 4, 30);  // update sequence array: offset, count
  StoreLittle<std::uint16_t>(header, 6, 9);
  StoreLittle<std::uint32_t>(header, 16, kPage);
  StoreLittle<std::uint32_t>(header, 20, kPage);
  StoreLittle<std::uint16_t>(header, 24, 48);  // restart area
  StoreLittle<std::uint16_t>(header, 26, major == 1 ? 1 : 0);
  StoreLittle<std::uint16_t>(header, 28, major);
  StoreLittle<std::uint16_t>(header, 30, 1);
  const std::span<std::uint8_t> area = header.subspan(48);
  StoreLittle<std::uint16_t>(area, 8, 1);  // clients: one, not free, in use
  StoreLittle<std::uint16_t>(area, 10, 0xFFFF);
  StoreLittle<std::uint16_t>(area, 12, 0);
  StoreLittle<std::uint16_t>(area, 14, clean ? 2 : 0);
  StoreLittle<std::uint32_t>(area, 16, 67 - std::bit_width(kFileSize));
  StoreLittle<std::uint16_t>(area, 20, 48 + 160);
  StoreLittle<std::uint16_t>(area, 22, 48);
  StoreLittle<std::uint64_t>(area, 24, kFileSize);
  StoreLittle<std::uint32_t>(area, 48 + 16, 0xFFFFFFFF);
  for (std::size_t end = 512; end <= kPage; end += 512) {
    StoreLittle<std::uint16_t>(header, end - 2, 1);
  }
  std::copy_n(pages.begin(), kPage, pages.begin() + kPage);
  return pages;
}

class NtfsOpening : public testing::Test {
 protected:
  NtfsOpening() : image_("opening") { MakeFilled(image_, 8 << 20, 4096, 40, 8); }

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

TEST_F(NtfsOpening, TellsWhatTheVolumeIs) {
  MakeNtfs(image_, 8 << 20, 4096);
  const auto volume = OpenFile(image_, false);
  EXPECT_EQ(volume->Facts().file_system, "NTFS");
  EXPECT_EQ(volume->Facts().label, "T\u00e9st");
  EXPECT_EQ(volume->Facts().serial, LoadLittle<std::uint64_t>(image_.Peek(0x48, 8), 0));
  EXPECT_EQ(volume->Facts().sectors_per_cluster, 8U);
  EXPECT_EQ(volume->Facts().total_clusters, (8 << 20) / 4096 - 1);
  EXPECT_FALSE(volume->Dirty());
}

TEST_F(NtfsOpening, LookingLeavesEveryByteAsItIs) {
  const Bytes before = image_.Content();
  for (const bool writable : {false, true}) {
    const auto volume = OpenFile(image_, writable);
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
    ASSERT_EQ(volume->Move(each.stream, 0, FreeRun(*volume, 0, 1), 1), error::kSuccess)
        << each.path;
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
      {"unfinished log",
       [](LibraryVolume& library) { library.Write(FILE_LogFile, u"", 0, RestartPages(1, false)); },
       "$LogFile"},
      {"fast startup",
       [](LibraryVolume& library) { library.Write(FILE_LogFile, u"", 0, RestartPages(2, true)); },
       "shutdown /s /f"},
      {"finished log",
       [](LibraryVolume& library) { library.Write(FILE_LogFile, u"", 0, RestartPages(1, true)); },
       nullptr},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.what);
    MakeNtfs(image_, 8 << 20, 4096);
    {
      LibraryVolume library(image_, LibraryVolume::Mode::ReadWrite);
      each.make(library);
    }
    for (const bool writable : {false, true}) {
      const std::string said = Refusal(writable, false);
      if (each.says == nullptr) {
        EXPECT_EQ(said, "");
      } else {
        EXPECT_NE(said.find(each.says), std::string::npos) << said;
      }
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
