// SPDX-License-Identifier: GPL-2.0-or-later
// Opening images, and opening them again after a run that did not end.
#include <sys/wait.h>

#include "host/image/image_file.h"
#include "support/image_folder.h"

namespace vornalux::test {
namespace {

// The only file of the volume.
StreamRef OnlyFile(MountedVolume& volume) {
  std::vector<FolderItem> items;
  EXPECT_EQ(volume.ListFolder(volume.Root(), items), error::kSuccess);
  for (const FolderItem& item : items) {
    if (item.name == "file.bin") return {item.id, {}};
  }
  ADD_FAILURE() << "no file";
  return {};
}

std::int64_t FirstCluster(MountedVolume& volume) {
  std::vector<Extent> extents;
  EXPECT_EQ(volume.Extents(OnlyFile(volume), extents), error::kSuccess);
  return extents.empty() ? -2 : extents.front().Lcn;
}

// The last free cluster but one.
std::int64_t FreeCluster(const MountedVolume& volume) {
  const std::int64_t total = volume.Facts().total_clusters;
  for (std::int64_t lcn = total - 2; lcn >= 0; --lcn) {
    Bytes byte(1);
    volume.CopyBitmap(lcn / 8 * 8, byte);
    if ((byte[0] >> lcn % 8 & 1) == 0) return lcn;
  }
  return -1;
}

enum class Ending { Commit, Move };

class OpenImageTest : public ImageFolder, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    Put("file.bin", Bytes(9000, 0x5A));
    const bool ntfs = GetParam() == std::string("NTFS");
    Put("image", ntfs ? Ntfs() : Fat());
    Run(ntfs ? "ntfscp -f image file.bin file.bin" : "mcopy -i image file.bin ::file.bin");
  }

  std::unique_ptr<MountedVolume> Open(bool writable, OpenReport& report) const {
    OpenOptions options;
    options.writable = writable;
    return OpenImage(Path("image"), options, report);
  }

  bool JournalExists() const { return std::filesystem::exists(Path("image.vornalux-journal")); }

  // Moves the file's first cluster in a process that then ends as told. Where it went.
  std::int64_t MoveInAnotherProcess(Ending ending) const {
    OpenReport report;
    const std::int64_t target = FreeCluster(*Open(false, report));
    const pid_t child = ::fork();
    if (child == 0) {
      const auto volume = Open(true, report);
      bool good = volume->Move(OnlyFile(*volume), 0, target, 1) == error::kSuccess;
      if (ending == Ending::Commit) good = good && volume->Commit() == error::kSuccess;
      ::_exit(good ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    return target;
  }
};

TEST_P(OpenImageTest, RecoversARunThatWasKilled) {
  OpenReport report;
  const std::int64_t before = FirstCluster(*Open(false, report));
  for (const Ending ending : {Ending::Move, Ending::Commit}) {
    const bool committed = ending == Ending::Commit;
    const std::int64_t target = MoveInAnotherProcess(ending);
    ASSERT_TRUE(JournalExists());
    auto volume = Open(committed, report);
    EXPECT_TRUE(report.recovered);
    EXPECT_FALSE(report.recovery.empty());
    EXPECT_EQ(JournalExists(), committed) << "its own";
    EXPECT_FALSE(volume->Dirty());
    EXPECT_EQ(FirstCluster(*volume), committed ? target : before);
    EXPECT_EQ(volume->Close(), error::kSuccess);
    volume.reset();
    EXPECT_FALSE(JournalExists());
  }
  EXPECT_FALSE(Open(true, report)->Dirty());
  EXPECT_FALSE(report.recovered);
}

TEST_P(OpenImageTest, LeavesAJournalAloneThatIsNotItsOwn) {
  const Bytes image = Get("image");
  Put("image.vornalux-journal", Bytes(5000, 'x'));
  OpenReport report;
  const auto names_it = [&](const std::string& why) {
    return why.find(Path("image.vornalux-journal")) != std::string::npos;
  };
  Open(false, report);
  ASSERT_EQ(report.objections.size(), 1U);
  EXPECT_TRUE(names_it(report.objections.front())) << report.objections.front();
  try {
    Open(true, report);
    ADD_FAILURE() << "opened";
  } catch (const VolumeRefused& refused) {
    EXPECT_TRUE(names_it(refused.what())) << refused.what();
  }
  EXPECT_EQ(Get("image"), image);
  EXPECT_EQ(Get("image.vornalux-journal"), Bytes(5000, 'x'));

  Put("image.vornalux-journal", {});
  Open(false, report);
  EXPECT_FALSE(report.recovered);
  EXPECT_FALSE(JournalExists()) << "one that never got to be one is swept up";
}

INSTANTIATE_TEST_SUITE_P(FileSystems, OpenImageTest, testing::Values("FAT", "NTFS"),
                         [](const auto& kind) { return std::string(kind.param); });

}  // namespace
}  // namespace vornalux::test
