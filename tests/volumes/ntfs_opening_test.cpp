// SPDX-License-Identifier: GPL-2.0-or-later
// What is opened, what is refused, and that neither changes the volume.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <functional>

#include "check/ntfs_check.h"
#include "host/image/image_file.h"
#include "host/image/little_endian.h"
#include "support/image_folder.h"
#include "volumes/maker_editor.h"
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

class NtfsOpening : public ImageFolder {
 protected:
  NtfsOpening() { Put("v.img", MakeStrange(4096, "size=8M files=40 folders=2", 8)); }

  void MakeEmpty() const { Put("v.img", MakeNtfs("ntfs size=8M cluster=4096 files=0 folders=0")); }

  std::unique_ptr<MountedVolume> Open(bool writable, bool allow_dirty = false) const {
    OpenReport report;
    OpenOptions options;
    options.writable = writable;
    options.allow_dirty = allow_dirty;
    return OpenImage(Path("v.img"), options, report);
  }

  // What the refusal says; empty when the volume was opened. The image must stay as it is.
  std::string Refusal(bool writable, bool allow_dirty) const {
    const Bytes before = Get("v.img");
    std::string said;
    try {
      Open(writable, allow_dirty);
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
  EXPECT_EQ(Refusal(true, false), "");
}

TEST_F(NtfsOpening, UncleanVolumesAreRefused) {
  struct Case {
    const char* what;
    std::function<void(NtfsEditor&)> make;
    const char* says;
  };
  const auto log = [](std::uint16_t major, bool clean) {
    return [=](NtfsEditor& editor) {
      std::ranges::copy(RestartPages(major, clean),
                        editor.At(editor.Meta("/$LogFile").extents[0].lcn).begin());
    };
  };
  const Case cases[] = {
      {"dirty",
       [](NtfsEditor& editor) {
         editor.Attribute(3, 0x70, [](ByteSpan a) { a[test::Get(a, 20, 2) + 10] |= 1; });
       },
       "chkdsk"},
      {"hibernated",
       [this](NtfsEditor& editor) {
         Put("in", {'h', 'i', 'b', 'r'});
         Run("truncate -s 8192 in && ntfscp -q -f v.img in hiberfil.sys");
         editor.bytes = Get("v.img");
       },
       "shutdown /s /f"},
      {"unfinished log", log(1, false), "$LogFile"},
      {"fast startup", log(2, true), "shutdown /s /f"},
      {"finished log", log(1, true), nullptr},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.what);
    MakeEmpty();
    const CheckReport report = CheckNtfs(Path("v.img"));
    NtfsEditor editor(Get("v.img"), report);
    each.make(editor);
    Put("v.img", editor.bytes);
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
    EXPECT_NE(Refusal(true, false), "");
    EXPECT_NE(Refusal(false, true), "");
  }
}

}  // namespace
}  // namespace vornalux::test
