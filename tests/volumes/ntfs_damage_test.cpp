// SPDX-License-Identifier: GPL-2.0-or-later
// Volumes from strangers: whatever they say, there is an error code or an answer, and no crash.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "check/ntfs_check.h"
#include "host/image/refused.h"
#include "support/seed.h"
#include "volumes/ntfs_image.h"

extern "C" {
#include <ntfs-3g/attrlist.h>
}
#undef min
#undef max

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

void Damage(Bytes& image, std::size_t structure, std::mt19937_64& random) {
  constexpr std::uint64_t kNasty[] = {0,
                                      1,
                                      7,
                                      0x7F,
                                      0x80,
                                      0xFF,
                                      0x7FFF,
                                      0xFFFF,
                                      0xFFFFFFFF,
                                      0x7FFFFFFFFFFFFFFF,
                                      0xFFFFFFFFFFFFFFFF};
  for (std::uint64_t changes = 1 + random() % 3; changes > 0; --changes) {
    const std::size_t at = structure + random() % 500;
    const std::uint64_t value = random() % 2 == 0 ? random() : kNasty[random() % std::size(kNasty)];
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
void Exercise(MountedVolume& volume, const Bytes& image, std::mt19937_64& random) {
  const std::int64_t total = volume.Facts().total_clusters;
  for (const NamedStream& each : AllStreams(volume)) {
    std::vector<Extent> extents;
    volume.Extents(each.stream, extents);
    const Bytes content = ReadStart(volume, each.stream);
    if (extents.empty()) continue;
    const bool is_mft = each.path.starts_with("/$MFT");  // which moving something changes
    const auto vcn =
        static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(extents.back().NextVcn));
    const auto lcn = static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(total));
    const ErrorCode code = volume.Move(each.stream, vcn, lcn, 1 + static_cast<int>(random() % 3));
    if (code != error::kSuccess || content.empty() || is_mft) continue;
    EXPECT_TRUE(ReadStart(volume, each.stream) == content || !OwnersAreClear(image)) << each.path;
  }
}

TEST(NtfsDamage, NoDamageCrashes) {
  const std::uint64_t seed = TestSeed();
  SCOPED_TRACE(SeedNote(seed));
  const ImageFile image("damage");
  MakeFilled(image, 4 << 20, 512, 50, 1);
  {
    LibraryVolume library(image, LibraryVolume::Mode::ReadWrite);
    library.AddShattered(FILE_root, u"shattered", Content(400 * 512, 1), 5000);
  }
  const Bytes whole = image.Content();
  const std::vector<std::size_t> structures = Structures(whole);
  int opened = 0;
  for (std::uint64_t round = 0; round < 300; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    std::mt19937_64 random(seed * 100000 + round);
    Bytes bytes = whole;
    for (std::uint64_t i = 1 + random() % 8; i > 0; --i) {
      Damage(bytes, structures[random() % structures.size()], random);
    }
    try {
      MemoryVolume volume(bytes);
      ++opened;
      Exercise(*volume, bytes, random);
    } catch (const VolumeRefused&) {
    }
  }
  EXPECT_GT(opened, 100);
}

// The index entry of a folder's only item says that it is the folder itself.
TEST(NtfsDamage, FoldersInsideThemselvesAreListedOnce) {
  const ImageFile image("loop");
  MakeNtfs(image, 4 << 20, 4096);
  std::uint64_t outer = 0;
  {
    LibraryVolume library(image, LibraryVolume::Mode::ReadWrite);
    outer = library.AddFolder(FILE_root, u"outer");
    library.AddFolder(outer, u"inner");
    ntfs_inode* inode = ntfs_inode_open(library.Volume(), outer);
    {
      const SearchContext context(ntfs_attr_get_search_ctx(inode, nullptr));
      ASSERT_EQ(ntfs_attr_lookup(AT_INDEX_ROOT, NTFS_INDEX_I30, 4, CASE_SENSITIVE, 0, nullptr, 0,
                                 context.get()),
                0);
      auto* root = reinterpret_cast<std::uint8_t*>(context->attr) +
                   le16_to_cpu(context->attr->value_offset) + offsetof(INDEX_ROOT, index);
      auto* entry = reinterpret_cast<INDEX_ENTRY*>(
          root + le32_to_cpu(reinterpret_cast<INDEX_HEADER*>(root)->entries_offset));
      entry->indexed_file = cpu_to_le64(outer);
      ntfs_inode_mark_dirty(inode);
    }
    ASSERT_EQ(ntfs_inode_close(inode), 0);
  }
  MemoryVolume volume(image.Content());
  std::vector<FolderItem> items;
  ASSERT_EQ(volume->ListFolder(volume->Root(), items), error::kSuccess);
  ASSERT_EQ(items.size(), 1U);
  ASSERT_EQ(volume->ListFolder(outer, items), error::kSuccess);
  ASSERT_EQ(items.size(), 1U);
  EXPECT_EQ(items[0].id, outer);
  EXPECT_EQ(volume->ListFolder(items[0].id, items), error::kFileCorrupt);
}

// Two files alike; the attribute list of one names the records of the other.
TEST(NtfsDamage, RecordsOfAnotherFileAreNotTakenForOwn) {
  const ImageFile image("stolen");
  MakeNtfs(image, 8 << 20, 512);
  StreamRef thief;
  StreamRef owner;
  {
    LibraryVolume library(image, LibraryVolume::Mode::ReadWrite);
    thief.item = library.AddShattered(FILE_root, u"thief", Content(600 * 512, 1), 9000);
    owner.item = library.AddShattered(FILE_root, u"owner", Content(600 * 512, 2), 12000);
    ntfs_inode* from = ntfs_inode_open(library.Volume(), owner.item);
    ntfs_inode* to = ntfs_inode_open(library.Volume(), thief.item);
    ASSERT_TRUE(from->attr_list_size > 0 && from->attr_list_size == to->attr_list_size);
    for (std::uint32_t at = 0; at < to->attr_list_size;) {
      auto* entry = reinterpret_cast<ATTR_LIST_ENTRY*>(to->attr_list + at);
      const auto* other = reinterpret_cast<const ATTR_LIST_ENTRY*>(from->attr_list + at);
      if (entry->lowest_vcn != 0) entry->mft_reference = other->mft_reference;
      at += le16_to_cpu(entry->length);
    }
    ntfs_attrlist_mark_dirty(to);
    ASSERT_EQ(ntfs_inode_close(to) | ntfs_inode_close(from), 0);
  }
  MemoryVolume volume(image.Content());
  std::vector<Extent> extents;
  EXPECT_EQ(volume->Extents(owner, extents), error::kSuccess);
  EXPECT_EQ(extents.size(), 600U);
  EXPECT_EQ(volume->Extents(thief, extents), error::kFileCorrupt);
  EXPECT_EQ(volume->Move(thief, 599, 15000, 1), error::kFileCorrupt);
}

}  // namespace
}  // namespace vornalux::test
