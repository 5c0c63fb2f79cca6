// SPDX-License-Identifier: GPL-2.0-or-later
// Free space given back: only what is free, only from a volume at rest, and only of the file that
// was opened.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <functional>

#include "host/image/drive/discard_limits.h"
#include "host/image/opening/discard_free.h"
#include "host/image/opening/image_file.h"
#include "support/loop_device.h"
#include "support/made_volume.h"
#include "support/setting.h"

// What comes before a hole in this program's files; 0, or the error that it fails with.
static std::function<int(off64_t, off64_t)> before_hole;
static std::string calls;  // "u" removed, "f" flushed, "h" hole

extern "C" int fallocate(int file, int mode, off64_t offset, off64_t length) {
  if ((mode & FALLOC_FL_PUNCH_HOLE) != 0) {
    calls += 'h';
    errno = before_hole ? before_hole(offset, length) : 0;
    if (errno != 0) return -1;
  }
  return static_cast<int>(syscall(SYS_fallocate, file, mode, offset, length));
}
extern "C" int fdatasync(int file) {
  calls += 'f';
  return static_cast<int>(syscall(SYS_fdatasync, file));
}
extern "C" int unlink(const char* path) noexcept {
  calls += 'u';
  return static_cast<int>(syscall(SYS_unlink, path));
}

namespace vornalux::test {
namespace {

class DiscardTest : public MadeVolume {
 protected:
  void TearDown() override { before_hole = {}; }

  // A device as the kernel tells of it; what it says of itself goes into the folder returned.
  std::string Device(const std::string& folder, const std::string& number) const {
    const std::string block = Path("sys/devices/" + folder);
    std::filesystem::create_directories(block + "/queue");
    std::filesystem::create_directories(Path("sys/dev/block"));
    std::filesystem::create_directory_symlink(block, Path("sys/dev/block/" + number));
    return block;
  }
  static std::uint64_t Stored(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    return static_cast<std::uint64_t>(status.st_blocks) * 512;
  }
  // With blocks for all of it, as a machine leaves an image that it has worked in.
  void Fill() const { Put("disk.img", Get("disk.img")); }
  std::string Refusal(const OpenOptions& options = {}) const {
    try {
      TrimImage(image_, options, {});
      return "";
    } catch (const VolumeRefused& refused) {
      return refused.what();
    }
  }
};

// What the checker, which counts for itself, says is free comes back, and nothing else: neither bad
// clusters nor what lies before or behind the volume.
TEST_F(DiscardTest, AllThatIsFreeAndNothingElseComesBack) {
  for (const char* recipe :
       {"ntfs size=24M files=200 fragmented=90% pieces=6 fill=60%",
        "ntfs size=24M cluster=512 files=100 fill=40% partitioned=1 streams=20% sparse=20%",
        "fat12 size=4M files=60 fragmented=50% fill=60% bad=30 deleted=20%",
        "fat16 size=24M cluster=2K files=100 fill=50% bad=20",
        "fat32 size=40M cluster=512 files=100 fill=30% bad=50 deleted=20% partitioned=1"}) {
    Make(recipe);
    SCOPED_TRACE(recipe_);
    const std::uint64_t offset = recipe_.find("partitioned") != std::string::npos ? kMebibyte : 0;
    Bytes full = before_;
    const std::string footer = "conectix, as a virtual disk ends";
    full.insert(full.end(), footer.begin(), footer.end());
    Put("disk.img", full);
    const CheckReport found = CheckVolume(image_, {.offset = offset});
    const auto free_bytes =
        static_cast<std::uint64_t>(found.clusters - found.clusters_used) * found.cluster_size;
    OpenOptions dry;
    dry.dry_run = true;
    const DiscardResult told = TrimImage(image_, dry, {}).discard;
    EXPECT_EQ(Get("disk.img"), full);
    const std::uint64_t stored = Stored(image_);
    EXPECT_GE(stored, full.size());
    EXPECT_EQ(told.free_bytes, free_bytes);

    const DiscardResult given = TrimImage(image_, {}, {}).discard;
    EXPECT_EQ(given.free_bytes, free_bytes);
    EXPECT_EQ(given.discarded, told.discarded);
    EXPECT_LE(given.discarded, free_bytes);
    EXPECT_EQ(given.stored_before, stored);
    EXPECT_EQ(given.stored_after, Stored(image_));
    // The file system keeps a list of what it keeps.
    EXPECT_NEAR(double(*given.GivenBack()), double(given.discarded), 65536);
    EXPECT_NEAR(double(*told.GivenBack()), double(*given.GivenBack()), 65536);
    const Bytes after = Get("disk.img");
    ASSERT_EQ(after.size(), full.size());
    EXPECT_TRUE(std::equal(after.begin(), after.begin() + std::ptrdiff_t(offset), full.begin()));
    EXPECT_TRUE(std::equal(footer.rbegin(), footer.rend(), after.rbegin()));
    std::size_t changed = 0;
    for (std::size_t i = 0; i < after.size(); ++i) changed += after[i] != full[i];
    EXPECT_LE(changed, given.discarded);
    ExpectIntact(image_, manifest_, offset);
    const CheckReport left = CheckVolume(image_, {.offset = offset});
    EXPECT_EQ(left.clusters_bad, found.clusters_bad);
    EXPECT_EQ(*TrimImage(image_, {}, {}).discard.GivenBack(), 0u) << "there is no more";
    if (HasFailure()) return;
  }
}

// After a pass the metadata that gave the space up is durable and its journal gone before the first
// hole; alone, whatever somebody else has written to the image.
TEST_F(DiscardTest, HolesComeLast) {
  Make("fat16 size=16M files=40 fragmented=80% fill=50%");
  OpenOptions options;
  options.writable = options.discard = true;
  OpenReport report;
  std::unique_ptr<MountedVolume> volume = OpenImage(image_, options, report);
  std::vector<FolderItem> items;
  ASSERT_EQ(volume->ListFolder(volume->Root(), items), error::kSuccess);
  bool moved = false;
  for (const FolderItem& item : items) {
    for (std::int64_t lcn = volume->Facts().total_clusters - 1; lcn > 0 && !moved; --lcn) {
      moved = volume->Move({item.id, ""}, 0, lcn, 1) == error::kSuccess;
    }
  }
  ASSERT_TRUE(moved);
  calls.clear();
  VolumeFacts facts;
  EXPECT_THROW(DiscardFree(*report.source, false, {}, facts), VolumeRefused) << "still at work";
  EXPECT_EQ(calls.find('h'), std::string::npos);
  calls.clear();
  ASSERT_EQ(volume->Close(), error::kSuccess);
  DiscardFree(*report.source, false, {}, facts);
  const std::size_t removed = calls.find('u'), hole = calls.find('h');
  ASSERT_NE(hole, std::string::npos) << calls;
  EXPECT_LT(removed, hole) << calls;
  EXPECT_LT(calls.rfind('f', removed), removed) << calls;
  volume.reset();
  report = {};
  calls.clear();
  TrimImage(image_, {}, {});
  EXPECT_LT(calls.find('f'), calls.find('h')) << calls;
  ExpectWhole();
}

TEST_F(DiscardTest, WhatAPassRefusesIsLeftAlone) {
  struct Case {
    const char* what;
    const char* recipe;
    std::function<void(Bytes&)> spoil;
    const char* says;
  };
  const auto ntfs = "ntfs size=16M files=30";
  const Case kCases[] = {
      {"tables differ", "fat16 size=16M files=20",
       [](Bytes& b) { b[std::size_t{b[14]} * 512 + 40] ^= 1; }, "differ"},
      {"damaged boot sector", ntfs, [](Bytes& b) { b[0x30] ^= 0x55; }, "damaged"},
      {"cut short", ntfs, [](Bytes& b) { b.resize(b.size() / 2); }, "truncated"},
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.what);
    Make(c.recipe);
    Bytes spoilt = before_;
    c.spoil(spoilt);
    Put("disk.img", spoilt);
    calls.clear();
    EXPECT_NE(Refusal().find(c.says), std::string::npos) << Refusal();
    EXPECT_EQ(calls.find('h'), std::string::npos);
    EXPECT_EQ(Get("disk.img"), spoilt);
  }
  Make(ntfs);
  std::ofstream(image_ + ".vornalux-journal") << "something else";
  EXPECT_NE(Refusal().find("journal"), std::string::npos) << Refusal();
  std::filesystem::remove(image_ + ".vornalux-journal");
  const LoopDevice device(image_);
  EXPECT_TRUE(device.Node().empty() || Refusal().find("attached") != std::string::npos);
  EXPECT_EQ(Get("disk.img"), before_);
}

// Between the pass and the holes the image may have become another one.
TEST_F(DiscardTest, AnotherFileInItsPlaceIsLeftAlone) {
  const std::pair<const char*, std::function<void()>> kCases[] = {
      {"another file", [&] { Run("mv disk.img old.img; cp old.img disk.img"); }},
      {"no file", [&] { Run("mv disk.img old.img"); }},
      {"another volume", [&] { Run("mkfs.fat -i 12345678 disk.img"); }},
      {"longer", [&] { Run("truncate -s +1M disk.img"); }},
      {"a journal", [&] { Run("touch disk.img.vornalux-journal"); }},
      {"marked dirty", [&] { Run("printf '\\001' | dd of=disk.img bs=1 seek=37 conv=notrunc"); }},
  };
  for (const auto& [what, happens] : kCases) {
    SCOPED_TRACE(what);
    Make("fat16 size=16M files=20");
    Fill();
    OpenOptions options;
    options.writable = options.discard = true;
    OpenReport report;
    ASSERT_EQ(OpenImage(image_, options, report)->Close(), error::kSuccess);
    happens();
    VolumeFacts facts;
    EXPECT_THROW(DiscardFree(*report.source, false, {}, facts), VolumeRefused);
    EXPECT_GE(Stored(Exists("old.img") ? Path("old.img") : image_), before_.size());
    Run("rm -f old.img disk.img.vornalux-journal");
  }
}

TEST_F(DiscardTest, WhatDoesNotWorkIsTold) {
  Make("ntfs size=16M files=60 fragmented=90% fill=50%");
  Fill();
  int holes = 0;
  const auto fail_at = [&](int at, int error) {
    holes = 0;
    before_hole = [&holes, at, error](off64_t, off64_t) { return ++holes == at ? error : 0; };
    return TrimImage(image_, {}, {}).discard;
  };
  const DiscardResult impossible = fail_at(1, EOPNOTSUPP);
  EXPECT_TRUE(impossible.cannot && !impossible.failed && impossible.discarded == 0);
  EXPECT_NE(impossible.note, "");
  const DiscardResult broken = fail_at(3, EIO);
  EXPECT_TRUE(broken.failed && !broken.cannot && broken.discarded > 0);
  EXPECT_EQ(holes, 3);
  EXPECT_TRUE(!fail_at(2, EINTR).failed);
  before_hole = {};
  Fill();
  int asked = 0;
  const DiscardResult stopped = TrimImage(image_, {}, [&] { return ++asked == 4; }).discard;
  EXPECT_TRUE(stopped.stopped && *stopped.GivenBack() > 0);
  EXPECT_LT(stopped.discarded, stopped.free_bytes);
  ExpectWhole();
}

TEST_F(DiscardTest, DevicesAreToldInTheirUnits) {
  const std::string block = Device("sda", "8:0");
  Device("sda/sda1", "8:1");
  const auto put = [&](const std::string& name, const char* text) {
    std::ofstream(block + "/" + name) << text << "\n";
  };
  put("sda1/partition", "1");
  put("sda1/discard_alignment", "512");
  put("queue/discard_granularity", "4096");
  put("queue/discard_max_bytes", "0");
  EXPECT_FALSE(ReadDiscardLimits(Path("sys"), "8:1")) << "forgets nothing";
  EXPECT_FALSE(ReadDiscardLimits(Path("sys"), "8:7")) << "not known";
  put("queue/discard_max_bytes", "1048576");
  EXPECT_EQ(ReadDiscardLimits(Path("sys"), "8:1")->unit, 4096u);
  EXPECT_EQ(ReadDiscardLimits(Path("sys"), "8:1")->first, 512u);
  EXPECT_EQ(ReadDiscardLimits(Path("sys"), "8:0")->first, 0u);

  for (const char* recipe : {"ntfs size=24M cluster=512 files=60 fill=40%",
                             "fat32 size=40M cluster=512 files=60 fill=40% partitioned=1"}) {
    Make(recipe);
    Fill();
    {
      const LoopDevice device(image_, "--partscan");
      if (device.Node().empty()) GTEST_SKIP() << "no loop devices here";
      const bool disk = recipe_.find("partitioned") != std::string::npos;
      const std::string node = device.Node() + (disk ? "p1" : "");
      if (!std::filesystem::exists(node)) continue;
      const DiscardResult given = TrimImage(node, {}, {}).discard;
      EXPECT_FALSE(given.failed || given.cannot || given.stored_after) << given.note;
      EXPECT_LT(Stored(image_) + given.discarded / 2, before_.size());
    }
    ExpectIntact(image_, manifest_,
                 recipe_.find("partitioned") != std::string::npos ? kMebibyte : 0);
  }
}

// Nothing there gets faster; to look, and a loop device, which stands for a file, is another thing.
TEST_F(DiscardTest, ADiskThatDoesNotTurnIsWorkedOnWhenItIsForced) {
  Make("fat16 size=16M files=5");
  const LoopDevice device(image_);
  if (device.Node().empty()) GTEST_SKIP() << "no loop devices here";
  struct stat status {};
  ASSERT_EQ(::stat(device.Node().c_str(), &status), 0);
  const std::string block = Device("a", "7:" + std::to_string(minor(status.st_rdev)));
  const auto refused = [&](bool refuse, bool dry_run, bool writable, const std::string& sysfs) {
    OpenOptions options;
    options.writable = writable;
    options.dry_run = dry_run;
    options.refuse_solid = refuse;
    options.sysfs = sysfs;
    OpenReport report;
    const Setting folder("VORNALUX_STATE_DIR", Path("state"));
    try {
      OpenImage(device.Node(), options, report)->Close();
      return std::string();
    } catch (const VolumeRefused& why) {
      return std::string(why.what());
    }
  };
  for (const char* turns : {"1", "0"}) {
    std::ofstream(block + "/queue/rotational") << turns << "\n";
    const bool solid = *turns == '0';
    EXPECT_EQ(refused(true, false, true, Path("sys")).find("--force") != std::string::npos, solid);
    EXPECT_EQ(refused(false, false, true, Path("sys")), "") << "forced";
    EXPECT_EQ(refused(true, true, true, Path("sys")), "") << "dry run";
    EXPECT_EQ(refused(true, false, false, Path("sys")), "") << "looking";
  }
  std::filesystem::create_directories(block + "/loop");
  EXPECT_EQ(refused(true, false, true, Path("sys")), "") << "a file's";
  EXPECT_EQ(refused(true, false, true, Path("none")), "") << "nobody says";
}

}  // namespace
}  // namespace vornalux::test
