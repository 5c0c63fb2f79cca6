// SPDX-License-Identifier: GPL-2.0-or-later
#include "host/mounted/mounted_platform.h"

#include <gtest/gtest.h>

#include "host/simulated/simulated_volume.h"

namespace vornalux {
namespace {

constexpr FileFlags kBackup = FileFlags::BackupSemantics;

class MountedPlatformTest : public testing::Test {
 protected:
  MountedPlatformTest() {
    volume_.AddFile("Dir\\Sub\\File.txt", {{100, 2}, {200, 3}});
    volume_.AddStream(*volume_.Find("Dir\\Sub\\File.txt"), "Extra",
                      std::vector<SimulatedRun>{{300, 1}});
    volume_.AddFile("empty");
    volume_.AddFile("Dir\\holes", {{110, 1}, {-1, 4}, {120, 2}});
    volume_.AddMft({{16, 20}});
    const ItemId dir = *volume_.Find("Dir");
    volume_.AddStream(dir, "tag", std::vector<SimulatedRun>{{310, 1}});
    volume_.AddItem(dir, "case", std::vector<SimulatedRun>{{400, 1}}, attribute::kArchive);
    volume_.AddItem(dir, "CASE", std::vector<SimulatedRun>{{401, 1}}, attribute::kArchive);
    volume_.AddItem(dir, "a:b", std::vector<SimulatedRun>{{402, 1}}, attribute::kArchive);
    platform_.Mount('c', volume_);
  }

  // The LCN at which what the path opens begins; -1 without clusters, else minus the error.
  std::int64_t StartOf(const std::string& path) {
    const OpenedFile opened = platform_.OpenPath(path, FileAccess::ReadAttributes, kBackup);
    if (opened.error != error::kSuccess) return -std::int64_t{opened.error};
    ExtentChunk chunk;
    const ErrorCode error = platform_.RetrievalPointers(opened.handle, 0, 1, chunk);
    platform_.CloseFile(opened.handle);
    return error == error::kHandleEof ? -1 : chunk.extents.at(0).Lcn;
  }

  SimulatedVolume volume_{
      {.total_clusters = 1003, .mft_zone = {.mft_zone_start = 10, .mft_zone_end = 90}}};
  MountedPlatform platform_{{.windows_folder = "C:\\Windows", .seed = 7}};
};

TEST_F(MountedPlatformTest, PathsLeadToWhatTheyName) {
  // LCN, -1 for items without clusters, else minus the error, and the paths.
  const std::pair<std::int64_t, std::vector<const char*>> cases[] = {
      {100,
       {R"(C:\Dir\Sub\File.txt)", R"(\\?\C:\Dir\Sub\File.txt)", R"(c:\dIR\sUB\fILE.TXT)",
        R"(C:\Dir\Sub\File.txt::$DATA)", R"(C:\Dir\Sub\File.txt::$data)"}},
      {300, {R"(C:\Dir\Sub\File.txt:extra:$DATA)", R"(C:\Dir\Sub\File.txt:Extra)"}},
      {16, {R"(C:\$Mft)"}},
      {400, {R"(C:\Dir\case)", R"(C:\Dir\Case)"}},
      {401, {R"(C:\Dir\CASE)"}},
      {402, {R"(C:\Dir\a:b)"}},
      {-1,
       {R"(C:\)", R"(C:\Dir)", R"(C:\Dir\)", R"(\\?\C:\Dir\Sub\)", R"(C:\Dir::$INDEX_ALLOCATION)",
        R"(C:\empty)"}},
      {-std::int64_t{error::kFileNotFound},
       {R"(C:\Dir\Sub\File.txt:none:$DATA)", R"(C:\Dir::$DATA)", R"(C:\none)", R"(C:\Dir\none)",
        R"(C:\Dir\.)"}},
      {-std::int64_t{error::kPathNotFound},
       {R"(C:\none\File.txt)", R"(C:\empty\File.txt)", R"(D:\Dir)"}},
      {-std::int64_t{error::kInvalidName},
       {R"(C:\Dir\\Sub)", R"(C:\Dir\\)", R"(C:\empty\)", R"(C:\Dir:tag\)", R"(C:\\)",
        R"(C:\Dir\fi*e)", R"(C:\Dir\Sub/File.txt)", R"(C:\empty:)", R"(C:\empty::)",
        R"(C:\empty:a:b:c)", "C:", "C:Dir", "Dir", "", R"(\\?\)", R"(1:\Dir)"}},
  };
  for (const auto& [start, paths] : cases) {
    for (const char* path : paths) EXPECT_EQ(StartOf(path), start) << path;
  }
  EXPECT_EQ(StartOf("C:\\" + std::string(40000, 'x')), -std::int64_t{error::kInvalidName});
  EXPECT_EQ(StartOf(std::string("C:\\a\0b", 6)), -std::int64_t{error::kInvalidName});
  EXPECT_EQ(platform_.OpenHandles(), 0U);
}

TEST_F(MountedPlatformTest, FoldersOpenWithBackupSemanticsOnly) {
  for (const FileAccess access : {FileAccess::ReadAttributes, FileAccess::GenericRead}) {
    for (const FileFlags flags : {FileFlags::None, FileFlags::NoBuffering}) {
      EXPECT_EQ(platform_.OpenPath("C:\\Dir", access, flags).error, error::kAccessDenied);
      EXPECT_EQ(platform_.OpenPath("C:\\", access, flags).error, error::kAccessDenied);
      EXPECT_EQ(platform_.OpenPath("C:\\Dir\\holes", access, flags).error, error::kSuccess);
      EXPECT_EQ(platform_.OpenPath("C:\\Dir:tag", access, flags).error, error::kSuccess);
    }
    EXPECT_EQ(platform_.OpenPath("C:\\Dir", access, kBackup).error, error::kSuccess);
  }
}

TEST_F(MountedPlatformTest, RetrievalPointersStartAtTheExtentAskedFor) {
  const OpenedFile file =
      platform_.OpenPath("C:\\Dir\\holes", FileAccess::ReadAttributes, FileFlags::None);
  const std::vector<Extent> all = {{1, 110}, {5, -1}, {7, 120}};
  const struct {
    std::int64_t vcn;
    std::size_t most;
    ErrorCode error;
    std::int64_t start;
    std::size_t first, count;
  } cases[] = {
      {0, 3, error::kSuccess, 0, 0, 3},           {0, 2, error::kMoreData, 0, 0, 2},
      {1, 1, error::kMoreData, 1, 1, 1},          {4, 9, error::kSuccess, 1, 1, 2},
      {5, 1, error::kSuccess, 5, 2, 1},           {6, 1, error::kSuccess, 5, 2, 1},
      {7, 1, error::kHandleEof, 0, 0, 0},         {INT64_MAX, 1, error::kHandleEof, 0, 0, 0},
      {-1, 1, error::kInvalidParameter, 0, 0, 0}, {0, 0, error::kInvalidParameter, 0, 0, 0}};
  for (const auto& ask : cases) {
    SCOPED_TRACE("vcn " + std::to_string(ask.vcn) + ", most " + std::to_string(ask.most));
    ExtentChunk chunk;
    ASSERT_EQ(platform_.RetrievalPointers(file.handle, ask.vcn, ask.most, chunk), ask.error);
    EXPECT_EQ(chunk.starting_vcn, ask.start);
    const auto from = all.begin() + static_cast<std::ptrdiff_t>(ask.first);
    EXPECT_EQ(chunk.extents,
              (std::vector<Extent>{from, from + static_cast<std::ptrdiff_t>(ask.count)}));
  }
}

// What it has asked once costs too much to be asked again: seen by changes behind its back.
TEST(MountedPlatformCost, ExtentsAreAskedForOnceUntilAMove) {
  SimulatedVolume volume({.total_clusters = 10000});
  std::vector<SimulatedRun> runs;
  for (std::int64_t i = 0; i < 3000; ++i) runs.push_back({i * 2, 1});
  const ItemId item = volume.AddFile("f", runs);
  MountedPlatform platform;
  platform.Mount('C', volume);
  const Handle disk = platform.OpenVolume(R"(\\.\c:)");
  const Handle file =
      platform.OpenPath("C:\\f", FileAccess::ReadAttributes, FileFlags::None).handle;

  ErrorCode error = error::kMoreData;
  std::vector<Extent> all;
  ExtentChunk chunk;
  while (error == error::kMoreData) {
    error = platform.RetrievalPointers(file, all.empty() ? 0 : all.back().NextVcn, 1024, chunk);
    all.insert(all.end(), chunk.extents.begin(), chunk.extents.end());
    if (all.size() == 1024) volume.Move({item, {}}, 2999, 9000, 1);
  }
  EXPECT_EQ(error, error::kSuccess);
  ASSERT_EQ(all.size(), 3000U);
  EXPECT_EQ(all.back(), (Extent{3000, 5998}));

  ASSERT_EQ(platform.MoveClusters(disk, file, 0, 9500, 1), error::kSuccess);
  ASSERT_EQ(platform.RetrievalPointers(file, 0, 1, chunk), error::kMoreData);
  EXPECT_EQ(chunk.extents[0], (Extent{1, 9500}));
  ASSERT_EQ(platform.RetrievalPointers(file, 2999, 1, chunk), error::kSuccess);
  EXPECT_EQ(chunk.extents[0], (Extent{3000, 9000}));

  // Read inside a move they are those of before it, and known no longer afterwards. The file may
  // even be closed there.
  int heard = 0;
  const MoveCheckpoint checkpoint = {.every = 32, .reached = [&](std::int64_t) {
                                       ++heard;
                                       const ErrorCode again =
                                           platform.MoveClusters(disk, file, 0, 7000, 1);
                                       EXPECT_EQ(again, error::kNotReady);
                                       platform.RetrievalPointers(file, 0, 1, chunk);
                                       EXPECT_EQ(chunk.extents[0], (Extent{1, 9500}));
                                       return false;
                                     }};
  ASSERT_EQ(platform.MoveClusters(disk, file, 0, 6000, 64, checkpoint), error::kSuccess);
  EXPECT_EQ(heard, 1);
  ASSERT_EQ(platform.RetrievalPointers(file, 0, 1, chunk), error::kMoreData);
  EXPECT_EQ(chunk.extents[0], (Extent{64, 6000}));
  const auto close = [&](std::int64_t) {
    platform.CloseFile(file);
    return false;
  };
  ASSERT_EQ(platform.MoveClusters(disk, file, 0, 7000, 64, {.every = 32, .reached = close}),
            error::kSuccess);
  volume.Extents({item, {}}, all);
  EXPECT_EQ(all[0], (Extent{64, 7000}));
}

TEST(MountedPlatformCost, EachFolderIsListedOnce) {
  SimulatedVolume volume;
  volume.AddFile("a\\b\\file");
  MountedPlatform platform;
  platform.Mount('C', volume);
  const auto open = [&](const std::string& path) {
    return platform.OpenPath(path, FileAccess::ReadAttributes, FileFlags::None).error;
  };
  EXPECT_EQ(open("C:\\A\\B\\FILE"), error::kSuccess);
  volume.AddFile("a\\b\\late");
  volume.AddFile("late");
  EXPECT_EQ(open("C:\\a\\b\\late"), error::kFileNotFound);
  EXPECT_EQ(open("C:\\late"), error::kFileNotFound);
  EXPECT_EQ(open("C:\\a\\b\\file"), error::kSuccess);
}

TEST_F(MountedPlatformTest, BitmapComesInPiecesThatStartAtWholeBytes) {
  const Handle disk = platform_.OpenVolume(R"(\\.\C:)");
  const struct {
    std::int64_t lcn;
    std::size_t most;
    ErrorCode error;
    std::int64_t start, size;
    std::size_t bytes;
  } cases[] = {
      {0, 126, error::kSuccess, 0, 1003, 126},     {0, 4096, error::kSuccess, 0, 1003, 126},
      {0, 125, error::kMoreData, 0, 1003, 125},    {15, 10, error::kMoreData, 8, 995, 10},
      {1002, 10, error::kSuccess, 1000, 3, 1},     {1003, 10, error::kInvalidParameter, 0, 0, 0},
      {-1, 10, error::kInvalidParameter, 0, 0, 0}, {0, 0, error::kInvalidParameter, 0, 0, 0}};
  for (const auto& ask : cases) {
    SCOPED_TRACE("lcn " + std::to_string(ask.lcn) + ", most " + std::to_string(ask.most));
    BitmapChunk chunk;
    EXPECT_EQ(platform_.VolumeBitmap(disk, ask.lcn, ask.most, chunk), ask.error);
    EXPECT_EQ(chunk.starting_lcn, ask.start);
    EXPECT_EQ(chunk.bitmap_size, ask.size);
    EXPECT_EQ(chunk.bits.size(), ask.bytes);
  }
}

TEST_F(MountedPlatformTest, VolumesAnswerByDriveAndRoot) {
  SimulatedVolume fat({.total_clusters = 64, .file_system = "FAT32", .label = "STICK"});
  platform_.Mount('E', fat);
  for (const char* bad : {"C:", R"(\\.\C)", R"(\\.\C:\)", R"(\\.\D:)", R"(\\?\C:)", ""}) {
    EXPECT_EQ(platform_.OpenVolume(bad), kInvalidHandle) << bad;
  }
  FreeSpace figures;
  VolumeName names;
  for (const char* bad : {"D:\\", "C:", "C:\\Dir", ""}) {
    EXPECT_EQ(platform_.FreeSpaceFigures(bad, figures), error::kPathNotFound) << bad;
    EXPECT_EQ(platform_.VolumeNames(bad, names), error::kPathNotFound) << bad;
  }
  ASSERT_EQ(platform_.VolumeNames("e:\\", names), error::kSuccess);
  EXPECT_EQ(names.label + names.file_system, "STICKFAT32");

  NtfsVolumeData data;
  const Handle ntfs_disk = platform_.OpenVolume(R"(\\.\C:)");
  const Handle fat_disk = platform_.OpenVolume(R"(\\.\E:)");
  EXPECT_EQ(platform_.NtfsData(fat_disk, data), error::kInvalidParameter);
  ASSERT_EQ(platform_.NtfsData(ntfs_disk, data), error::kSuccess);
  EXPECT_EQ(data.mft_zone_end, 90);
  EXPECT_THROW(platform_.Mount('c', fat), std::invalid_argument);
  EXPECT_THROW(platform_.Mount('5', fat), std::invalid_argument);
}

TEST_F(MountedPlatformTest, MovesTakeOneOpenVolumeAndOneOfItsFiles) {
  SimulatedVolume other;
  platform_.Mount('D', other);
  const Handle disk = platform_.OpenVolume(R"(\\.\C:)");
  const Handle wrong = platform_.OpenVolume(R"(\\.\D:)");
  const Handle file =
      platform_.OpenPath("C:\\Dir\\holes", FileAccess::ReadAttributes, FileFlags::None).handle;
  EXPECT_EQ(platform_.MoveClusters(wrong, file, 0, 500, 9), error::kInvalidParameter);
  EXPECT_EQ(platform_.MoveClusters(disk, disk, 0, 500, 9), error::kInvalidHandle);
  EXPECT_EQ(platform_.MoveClusters(file, file, 0, 500, 9), error::kInvalidHandle);
  EXPECT_EQ(platform_.MoveClusters(disk, file, 0, 500, 9), error::kSuccess);
  EXPECT_EQ(StartOf("C:\\Dir\\holes"), 500);
  platform_.CloseFile(file);
  platform_.CloseFile(file);
  const Handle next = platform_.OpenPath("C:\\empty", FileAccess::GenericRead, kBackup).handle;
  EXPECT_NE(next, file);
  platform_.CloseFile(next);
  EXPECT_EQ(platform_.MoveClusters(disk, file, 0, 600, 9), error::kInvalidHandle);
  platform_.CloseVolume(disk);
  platform_.CloseVolume(wrong);
  BitmapChunk chunk;
  EXPECT_EQ(platform_.VolumeBitmap(disk, 0, 8, chunk), error::kInvalidHandle);
  EXPECT_EQ(platform_.OpenHandles(), 0U);
}

TEST_F(MountedPlatformTest, EnumerationGivesDotsThenTheVolumesOrder) {
  const auto names = [&](const std::string& pattern) {
    std::string joined;
    FolderEntry entry;
    const auto search = platform_.FindFirst(pattern);
    while (search && search->Next(entry)) joined += entry.name + "|";
    if (search) {
      EXPECT_FALSE(search->Next(entry));
    }
    return search ? joined : std::string("none");
  };
  EXPECT_EQ(names("C:\\*"), "Dir|empty|");
  EXPECT_EQ(names(R"(\\?\c:\dir\*)"), ".|..|Sub|holes|case|CASE|a:b|");
  for (const char* bad : {"C:\\none\\*", "C:\\empty\\*", "C:\\Dir", "C:\\Dir\\", "C:\\Dir\\*.txt",
                          "C:\\Dir*", "D:\\*", "*", ""}) {
    EXPECT_EQ(names(bad), "none") << bad;
  }
}

TEST_F(MountedPlatformTest, ReadBytesGivesWholeSmallFiles) {
  const ItemId file = *volume_.Find("empty");
  std::string bytes = "before";
  for (const std::size_t size :
       {std::size_t{0}, std::size_t{5}, std::size_t{1} << 20, std::size_t{64} << 20}) {
    volume_.SetContent(file, std::string(size, 'x'));
    ASSERT_EQ(platform_.ReadBytes("C:\\empty", bytes), error::kSuccess) << size;
    EXPECT_EQ(bytes.size(), size);
  }
  volume_.SetContent(file, std::string((std::size_t{64} << 20) + 1, 'x'));
  EXPECT_EQ(platform_.ReadBytes("C:\\empty", bytes), error::kNotEnoughMemory);
  EXPECT_EQ(platform_.ReadBytes("C:\\Dir", bytes), error::kAccessDenied);
  EXPECT_EQ(platform_.ReadBytes("C:\\none", bytes), error::kFileNotFound);
  EXPECT_EQ(platform_.OpenHandles(), 0U);
}

}  // namespace
}  // namespace vornalux
