// SPDX-License-Identifier: GPL-2.0-or-later
// What is not sound is refused to passes; what is accepted loses nothing; what is sound is
// accepted.
#include "host/image/ntfs/ntfs_soundness.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
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

TEST(NtfsSoundness, NoMutantThatIsAcceptedLosesAnything) {
#ifdef __SANITIZE_ADDRESS__
  constexpr std::uint64_t kMutants = 240;
#else
  constexpr std::uint64_t kMutants = 2400;
#endif
  const std::uint64_t seed = TestSeed();
  std::cout << SeedNote(seed) << "\n";
  const std::vector<NtfsMutants> volumes = SmallVolumes();
  std::uint64_t refused = 0;
  std::uint64_t losses = 0;
  for (std::uint64_t round = 0; round < kMutants; ++round) {
    Random random(seed * 1000003 + round);
    const Mutant mutant = volumes[round % volumes.size()].Make(random);
    try {
      MemoryVolume{mutant.image};
    } catch (const VolumeRefused&) {
      ++refused;
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
}

// --- One fault each, judged without the library.

constexpr std::uint32_t kList = 0x20, kData = 0x80, kBitmap = 0xB0;

std::string Judge(const Bytes& image, BlockDevice& device) {
  const CheckReport report = CheckNtfs(MemorySource(image));
  NtfsEditor editor(image, report);
  const NtfsGeometry geometry{.cluster_size = report.cluster_size,
                              .clusters = report.clusters,
                              .record_size = 1024,
                              .mft_lcn = static_cast<std::int64_t>(Get(editor.bytes, 48, 8)),
                              .mirror_lcn = static_cast<std::int64_t>(Get(editor.bytes, 56, 8))};
  AllocationMap map(report.clusters);
  map.Load(0, editor.At(editor.Meta("/$Bitmap").extents[0].lcn)
                  .first(static_cast<std::size_t>(report.clusters + 7) / 8));
  return FindUnsoundness(device, geometry, map);
}

std::string Judge(const Bytes& image) {
  MemoryDevice device(image);
  return Judge(image, device);
}

struct Fault {
  const char* what;
  std::function<void(NtfsEditor&)> make;
  const char* says;  // null: it is none
};

std::uint64_t Shredded(const NtfsEditor& e) {
  for (const CheckedItem& item : e.report.items) {
    if (item.path.ends_with("/shredded 0.bin")) return item.id;
  }
  throw std::logic_error("no shredded file");
}
std::uint64_t LaterRecord(NtfsEditor& e) { return Get(e.LaterDataEntry(Shredded(e)), 16, 6); }

using Edit = std::function<void(ByteSpan)>;
std::function<void(NtfsEditor&)> InData(const Edit& edit) {
  return [=](NtfsEditor& e) { e.Attribute(e.Whole(0).id, kData, edit); };
}
std::function<void(NtfsEditor&)> InRecord(const Edit& edit) {
  return [=](NtfsEditor& e) { e.Record(e.Whole(0).id, edit); };
}
std::function<void(NtfsEditor&)> InEntry(const Edit& edit) {
  return [=](NtfsEditor& e) { edit(e.LaterDataEntry(Shredded(e))); };
}
Edit Plus(std::size_t at, std::size_t width, std::uint64_t value) {
  return [=](ByteSpan bytes) { Put(bytes, at, width, Get(bytes, at, width) + value); };
}
void SetLcn(ByteSpan a, std::int64_t lcn) {
  const std::size_t runs = Get(a, 32, 2);
  Put(a, runs + 1 + (a[runs] & 15U), a[runs] >> 4, static_cast<std::uint64_t>(lcn));
}
// Of a record that is not in use.
std::uint64_t FreeRecord(NtfsEditor& e) {
  for (std::uint64_t n = e.Meta("/$MFT").size / 1024; n-- > 24;) {
    if ((Get(e.RawRecord(n), 22, 2) & 1) == 0) return n;
  }
  throw std::logic_error("no free record");
}
void FlipRecordBit(NtfsEditor& e, std::uint64_t number) {
  std::int64_t lcn = 0;
  e.Attribute(0, kBitmap, [&](ByteSpan a) { lcn = NtfsEditor::FirstLcn(a); });
  e.At(lcn)[number / 8] ^= static_cast<std::uint8_t>(1U << number % 8);
}
void Name(ByteSpan record, const char* magic) { std::memcpy(record.data(), magic, 4); }
// The whole-volume hole of $BadClus gets a cluster in its middle.
void AddBadCluster(NtfsEditor& e, std::int64_t lcn) {
  e.Record(8, [&](ByteSpan record) {
    const std::size_t at = NtfsEditor::FindAttribute(record, kData, 4);
    const std::size_t runs = at + Get(record, at + 32, 2);
    const std::size_t old = (Get(record, at + 4, 4) - Get(record, at + 32, 2) + 7) / 8 * 8;
    const std::size_t used = Get(record, 24, 4);
    std::copy_backward(&record[runs + old], &record[used], &record[used + 16]);
    Put(record, 24, 4, used + 16);
    Put(record, at + 4, 4, Get(record, at + 4, 4) + 16);
    const ByteSpan bytes = record.subspan(runs, old + 16);
    std::ranges::fill(bytes, std::uint8_t{0});
    Put(bytes, 0, 1, 0x04);
    Put(bytes, 1, 4, static_cast<std::uint64_t>(lcn));
    Put(bytes, 5, 1, 0x41);
    Put(bytes, 6, 1, 1);
    Put(bytes, 7, 4, static_cast<std::uint64_t>(lcn));
    Put(bytes, 11, 1, 0x04);
    Put(bytes, 12, 4, static_cast<std::uint64_t>(e.report.clusters - lcn - 1));
  });
}
std::int64_t FreeCluster(NtfsEditor& e) {
  std::int64_t lcn = e.report.clusters / 2;
  while (e.ClusterBit(lcn)) ++lcn;
  return lcn;
}

const Fault kFaults[] = {
    {"owned cluster free", [](NtfsEditor& e) { e.FlipClusterBit(e.Whole(0).extents[0].lcn + 1); },
     "is marked free"},
    {"cluster of two files",
     [](NtfsEditor& e) {
       e.Attribute(e.Whole(0).id, kData, [&](ByteSpan a) { SetLcn(a, e.Whole(1).extents[0].lcn); });
     },
     "belongs to more than one stream"},
    {"cluster of a file and the boot sector", InData([](ByteSpan a) { SetLcn(a, 0); }),
     "belongs to more than one stream"},
    {"$Boot nowhere",
     [](NtfsEditor& e) { e.Attribute(7, kData, [](ByteSpan a) { a[Get(a, 32, 2)] &= 0x0F; }); },
     "$Boot does not lie"},
    {"run outside the volume", InData([](ByteSpan a) { SetLcn(a, 0x7FFF); }), "outside the volume"},
    {"run before the volume", InData([](ByteSpan a) { SetLcn(a, -2); }), "outside the volume"},
    {"allocated size", InData(Plus(40, 8, 512)), "allocated size"},
    {"size", InData(Plus(48, 8, 1 << 20)), "its size"},
    {"last VCN", InData(Plus(24, 8, 1)), "last VCN"},
    {"stored in an unknown way", InData(Plus(12, 2, 4)), "unknown way"},
    {"attribute's length", InData(Plus(4, 4, 4096)), "impossible length"},
    {"two attributes of one number", InRecord([](ByteSpan r) {
       const std::size_t first = Get(r, 20, 2);
       Put(r, first + 14, 2, Get(r, first + Get(r, first + 4, 4) + 14, 2));
     }),
     "given to two attributes"},
    {"next number taken", InRecord([](ByteSpan r) { Put(r, 40, 2, 0); }), "a number that is taken"},
    {"record written in part", [](NtfsEditor& e) { e.RawRecord(e.Whole(0).id)[1022] ^= 1; },
     "written only in part"},
    {"record that is no more one", [](NtfsEditor& e) { Name(e.RawRecord(e.Whole(0).id), "BAAD"); },
     "is no file record"},
    {"record marked free", [](NtfsEditor& e) { FlipRecordBit(e, e.Whole(0).id); },
     "marked free in $MFT's $BITMAP"},
    {"$MFT cut short",
     [](NtfsEditor& e) {
       const std::uint64_t size = 1024 * (e.Whole(0).id - 1);
       e.Attribute(0, kData, [&](ByteSpan a) {
         Put(a, 48, 8, size);
         Put(a, 56, 8, size);
       });
     },
     "holds a file past the end of $MFT"},
    {"extension marked free", [](NtfsEditor& e) { FlipRecordBit(e, LaterRecord(e)); },
     "marked free in $MFT's $BITMAP"},
    {"extension freed",
     [](NtfsEditor& e) { e.Record(LaterRecord(e), [](ByteSpan r) { r[22] ^= 1; }); },
     "that is not in record"},
    {"extension of nobody",
     [](NtfsEditor& e) {
       e.Record(LaterRecord(e), [&](ByteSpan r) { Put(r, 32, 6, e.Whole(0).id); });
     },
     "says that it continues this one"},
    {"extension of an earlier file", [](NtfsEditor& e) { e.Record(Shredded(e), Plus(16, 2, 1)); },
     "another sequence number"},
    {"list entry's record", InEntry(Plus(16, 6, 1)), "that is not in record"},
    {"list entry's sequence", InEntry(Plus(22, 2, 1)), "that is not in record"},
    {"list entry's VCN", InEntry(Plus(8, 8, 1)), "that is not in record"},
    {"list entry's instance", InEntry(Plus(24, 2, 1)), "that is not in record"},
    {"list entry's length", InEntry(Plus(4, 2, 8)), "attribute list"},
    {"list cut short",
     [](NtfsEditor& e) { e.Attribute(Shredded(e), kList, Plus(48, 8, ~std::uint64_t{31})); },
     "leaves out $DATA"},
    {"last VCN left out where more follow",
     [](NtfsEditor& e) { e.Attribute(Shredded(e), kData, [](ByteSpan a) { Put(a, 24, 8, 0); }); },
     "last VCN"},
    {"endless list",
     [](NtfsEditor& e) {
       e.Attribute(Shredded(e), kList, [](ByteSpan a) { Put(a, 48, 8, 0x7FFFFFFFFFFF); });
     },
     "impossible length"},
    {"later piece's first VCN",
     [](NtfsEditor& e) {
       e.Attribute(LaterRecord(e), kData, Plus(16, 8, 1));
       e.Attribute(LaterRecord(e), kData, Plus(24, 8, 1));
       Plus(8, 8, 1)(e.LaterDataEntry(Shredded(e)));
     },
     "is due"},
    {"mirror differs", [](NtfsEditor& e) { e.At(e.Meta("/$MFTMirr").extents[0].lcn)[100] ^= 1; },
     "$MFTMirr is no copy of record 0"},
    {"bad cluster marked free", [](NtfsEditor& e) { AddBadCluster(e, FreeCluster(e)); },
     "is marked free"},
    {"bad cluster",
     [](NtfsEditor& e) {
       const std::int64_t lcn = FreeCluster(e);
       AddBadCluster(e, lcn);
       e.FlipClusterBit(lcn);
     },
     nullptr},
    {"cluster in use for nobody", [](NtfsEditor& e) { e.FlipClusterBit(FreeCluster(e)); }, nullptr},
    {"record in use for nobody", [](NtfsEditor& e) { FlipRecordBit(e, FreeRecord(e)); }, nullptr},
    {"free record that is none", [](NtfsEditor& e) { Name(e.RawRecord(FreeRecord(e)), "BAAD"); },
     nullptr},
    {"free record written in part", [](NtfsEditor& e) { e.RawRecord(FreeRecord(e))[510] ^= 1; },
     nullptr},
    {"last VCN left out", InData([](ByteSpan a) { Put(a, 24, 8, 0); }), nullptr},
};

TEST(NtfsSoundness, EveryFaultIsToldAndNothingElse) {
  const Bytes whole = MakeNtfs(
      "ntfs size=8M cluster=512 files=40 folders=2 shredded=1:600 fragmented=50% mft-pieces=2");
  ASSERT_EQ(Judge(whole), "");
  const CheckReport report = CheckNtfs(MemorySource(whole));
  for (const Fault& fault : kFaults) {
    SCOPED_TRACE(fault.what);
    NtfsEditor editor(whole, report);
    fault.make(editor);
    ASSERT_NE(editor.bytes, whole);
    MemoryDevice device(editor.bytes);
    const std::string text = Judge(editor.bytes, device);
    if (fault.says == nullptr) {
      EXPECT_EQ(text, "");
    } else {
      EXPECT_NE(text.find(fault.says), std::string::npos) << text;
    }
    EXPECT_TRUE(device.Content() == editor.bytes);
  }
}

TEST(NtfsSoundness, WhatCannotBeReadIsNotSound) {
  const Bytes whole = MakeNtfs("ntfs size=8M cluster=512 files=40 shredded=1:600 mft-pieces=3");
  MemoryDevice memory(whole);
  FailingDevice device(memory, FailingDevice::kReads);
  bool struck = true;
  for (std::int64_t nth = 0; struck; ++nth) {
    device.FailAt(nth, true);
    const std::string text = Judge(whole, device);
    struck = device.HasFailed();
    EXPECT_EQ(text.empty(), !struck) << nth;
  }
}

// What passes leave is as sound as what they found.
TEST(NtfsSoundness, PassesLeaveSoundVolumes) {
  for (const NtfsMutants& volume : SmallVolumes()) {
    Bytes image = volume.Sound();
    for (const char* job : kPasses) {
      MemoryVolume opened(image);
      Pass(*opened, job);
      ASSERT_EQ(opened.Finish(image), error::kSuccess);
      EXPECT_EQ(Judge(image), "") << job;
    }
  }
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
