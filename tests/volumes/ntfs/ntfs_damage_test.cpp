// SPDX-License-Identifier: GPL-2.0-or-later
// Volumes from strangers: whatever they say, there is an error code or an answer, and no crash.
#include <gtest/gtest.h>

#include <cstring>

#include "check/ntfs_check.h"
#include "host/image/volume/refused.h"
#include "host/simulated/seeded_random.h"
#include "support/seed.h"
#include "volumes/maker/maker_editor.h"
#include "volumes/ntfs/ntfs_image.h"

namespace vornalux::test {
namespace {

// Offsets of file records and index blocks.
std::vector<std::size_t> Structures(const Bytes& image) {
  std::vector<std::size_t> found;
  for (std::size_t at = 0; at + 512 <= image.size(); at += 512) {
    if (std::memcmp(&image[at], "FILE", 4) == 0 || std::memcmp(&image[at], "INDX", 4) == 0) {
      found.push_back(at);
    }
  }
  return found;
}

void Damage(Bytes& image, std::size_t structure, SeededRandom& random) {
  const std::uint64_t edge = ~std::uint64_t{0} >> random() % 64;
  for (std::uint64_t changes = 1 + random() % 3; changes > 0; --changes) {
    const std::size_t at = structure + random() % 500;
    const std::uint64_t values[] = {random(), edge, edge + 1, random() % 8};
    const std::uint64_t value = values[random() % std::size(values)];
    std::memcpy(&image[at], &value, std::size_t{1} << random() % 4);
  }
}

Bytes ReadStart(MountedVolume& volume, const StreamRef& stream) {
  Bytes content(1 << 16);
  std::size_t done = 0;
  if (volume.Read(stream, 0, content, done) != error::kSuccess) return {};
  content.resize(done);
  return content;
}

// Does every cluster have one owner at most? Else writing one file's structures changes another.
bool OwnersAreClear(const Bytes& image) {
  const std::string problems = CheckNtfs(MemorySource(image)).ProblemText();
  return problems.find(" belong to ") == std::string::npos &&
         problems.find("marked free but owned") == std::string::npos;
}

// Asks everything and moves a little of everything.
void Exercise(MountedVolume& volume, const Bytes& image, SeededRandom& random) {
  const std::int64_t total = volume.Facts().total_clusters;
  for (const KnownStream& each : AllStreams(volume)) {
    std::vector<Extent> extents;
    volume.Extents(each.ref, extents);
    const Bytes content = ReadStart(volume, each.ref);
    if (extents.empty()) continue;
    const bool is_mft = each.path.starts_with("$MFT");  // which moving something changes
    const auto vcn =
        static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(extents.back().NextVcn));
    const auto lcn = static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(total));
    const ErrorCode code = volume.Move(each.ref, vcn, lcn, 1 + static_cast<int>(random() % 3));
    if (code != error::kSuccess || content.empty() || is_mft) continue;
    EXPECT_TRUE(ReadStart(volume, each.ref) == content || !OwnersAreClear(image)) << each.path;
  }
}

TEST(NtfsDamage, NoDamageCrashes) {
  const std::uint64_t seed = TestSeed();
  SCOPED_TRACE(SeedNote(seed));
  const Bytes whole =
      MakeStrange(512, "size=4M files=50 folders=3 compressed=15% shredded=1:300", 1);
  const std::vector<std::size_t> structures = Structures(whole);
  int opened = 0;
  for (std::uint64_t round = 0; round < 300; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    SeededRandom random(seed * 100000 + round);
    Bytes bytes = whole;
    for (std::uint64_t i = 1 + random() % 8; i > 0; --i) {
      Damage(bytes, structures[random() % structures.size()], random);
    }
    try {
      MemoryVolume volume(bytes, true);
      ++opened;
      Exercise(*volume, bytes, random);
    } catch (const VolumeRefused&) {
    }
  }
  EXPECT_GT(opened, 100);
}

// The first index entry of a folder says that it is the folder itself.
TEST(NtfsDamage, FoldersInsideThemselvesAreListedOnce) {
  Bytes image = MakeNtfs("ntfs size=8M files=20 folders=3");
  const CheckReport report = CheckNtfs(MemorySource(image));
  NtfsEditor editor(image, report);
  // Items come in the order of their paths: what lies in a folder follows it.
  const auto folder = std::adjacent_find(report.items.begin(), report.items.end(),
                                         [](const CheckedItem& item, const CheckedItem& next) {
                                           return item.is_folder && item.extents.empty() &&
                                                  next.path.starts_with(item.path + "/");
                                         });
  const ItemId outer = folder->id | Get(editor.RawRecord(folder->id), 16, 2) << 48;
  constexpr std::uint32_t kIndexRoot = 0x90;
  editor.Attribute(
      folder->id, kIndexRoot,
      [&](ByteSpan a) {
        const std::size_t header = Get(a, 20, 2) + 16;
        const std::size_t entry = header + Get(a, header, 4);
        Put(a, entry, 8, outer);
        Put(a, entry + 16 + 56, 4, 0x10000000);  // what its name says: a folder
      },
      4);
  MemoryVolume volume(editor.bytes);
  std::vector<FolderItem> items;
  ASSERT_EQ(volume->ListFolder(volume->Root(), items), error::kSuccess);
  ASSERT_EQ(volume->ListFolder(outer, items), error::kSuccess);
  const auto self = std::find_if(items.begin(), items.end(),
                                 [&](const FolderItem& item) { return item.id == outer; });
  ASSERT_NE(self, items.end());
  EXPECT_EQ(volume->ListFolder(self->id, items), error::kFileCorrupt);
}

// A record that the attribute list of one file names says that it is the other's.
TEST(NtfsDamage, RecordsOfAnotherFileAreNotTakenForOwn) {
  Bytes image = MakeNtfs("ntfs size=8M cluster=512 files=5 shredded=2:600");
  const CheckReport report = CheckNtfs(MemorySource(image));
  NtfsEditor editor(image, report);
  MemoryVolume sound(image);
  const StreamRef thief = FindStream(*sound, "shredded 0.bin");
  const StreamRef owner = FindStream(*sound, "shredded 1.bin");
  constexpr std::uint64_t kNumber = 0xFFFFFFFFFFFF;
  const std::uint64_t stolen = Get(editor.LaterDataEntry(thief.item & kNumber), 16, 6);
  editor.Record(stolen, [&](ByteSpan record) { Put(record, 0x20, 8, owner.item); });
  EXPECT_THROW(MemoryVolume{editor.bytes}, VolumeRefused);
  MemoryVolume volume(editor.bytes, true);
  std::vector<Extent> extents;
  EXPECT_EQ(volume->Extents(owner, extents), error::kSuccess);
  EXPECT_EQ(extents.size(), 600U);
  const std::int64_t last = extents.back().NextVcn - 1;
  EXPECT_EQ(volume->Extents(thief, extents), error::kFileCorrupt);
  EXPECT_EQ(volume->Move(thief, last, FreeRun(*volume, 0, 1), 1), error::kFileCorrupt);
}

}  // namespace
}  // namespace vornalux::test
