// SPDX-License-Identifier: GPL-2.0-or-later
// Folders by path: what is remembered of the last way never changes an answer, and saves the rest.
#include "host/mounted/folder_tree.h"

#include <gtest/gtest.h>

#include <map>

#include "host/simulated/seeded_random.h"
#include "support/seed.h"
#include "text/ascii_case.h"

namespace vornalux::test {
namespace {

// Folders and nothing else. Counts how often a name is looked at.
class FoldersOnly final : public MountedVolume {
 public:
  ItemId Add(ItemId parent, const std::string& name) {
    folders_[parent].push_back({name, attribute::kDirectory, ++last_});
    return last_;
  }
  mutable int folded = 0;

  const VolumeFacts& Facts() const override { return facts_; }
  std::int64_t FreeClusters() const override { return 0; }
  std::optional<NtfsVolumeData> NtfsData() const override { return std::nullopt; }
  void CopyBitmap(std::int64_t, std::span<std::uint8_t>) const override {}
  ItemId Root() const override { return 0; }
  ErrorCode List(ItemId folder, FolderListing& out) override {
    for (const FolderItem& item : folders_[folder]) out.Add(item.name, item.attributes, item.id);
    return error::kSuccess;
  }
  std::string FoldName(std::string_view name) const override {
    ++folded;
    return LowerCase(std::string(name));
  }
  std::optional<FolderItem> HiddenItem(ItemId, std::string_view) override { return std::nullopt; }
  ErrorCode Extents(const StreamRef&, std::vector<Extent>&) override { return 0; }
  ErrorCode StreamNames(ItemId, std::vector<std::string>&) override { return 0; }
  ErrorCode Read(const StreamRef&, std::uint64_t, std::span<std::uint8_t>, std::size_t&) override {
    return 0;
  }
  ErrorCode Move(const StreamRef&, std::int64_t, std::int64_t, std::int64_t,
                 const MoveCheckpoint&) override {
    return 0;
  }
  ErrorCode Commit() override { return 0; }
  ErrorCode Close() override { return 0; }
  bool Dirty() const override { return false; }

 private:
  VolumeFacts facts_;
  std::map<ItemId, std::vector<FolderItem>> folders_;
  ItemId last_ = 0;
};

TEST(FolderTree, AnswersAsIfItHadNeverBeenAskedBefore) {
  TestRandom random;
  const std::string names[] = {"a", "b", "ab", "A", "aa"};
  FoldersOnly volume;
  std::vector<ItemId> folders = {0};
  for (int i = 0; i < 200; ++i) {
    folders.push_back(volume.Add(folders[random() % folders.size()], names[random() % 5]));
  }
  FolderTree tree(volume);
  std::string path = "a";
  int found = 0;
  for (int i = 0; i < 5000; ++i) {
    // Near the last one, mostly: one down, some up, another case, an empty name, a wrong one.
    const std::size_t cut = random() % (path.size() + 1);
    switch (random() % 6) {
      case 0:
        path.resize(cut);
        break;
      case 1:
        path = names[random() % 5];
        break;
      case 2:
        path.insert(cut, random() % 8 == 0 ? "\\" : "");
        break;
      default:
        path += (path.empty() ? "" : "\\") + names[random() % 5];
    }
    ItemId with = 0;
    ItemId without = 0;
    const ErrorCode code = tree.FindFolder(path, with);
    ASSERT_EQ(code, FolderTree(volume).FindFolder(path, without)) << path;
    if (code != error::kSuccess) continue;
    ASSERT_EQ(with, without) << path;
    ++found;
  }
  EXPECT_GT(found, 500);
}

TEST(FolderTree, GoesNoWayTwice) {
  constexpr int kDeep = 1000;
  FoldersOnly volume;
  ItemId folder = 0;
  for (int i = 0; i < kDeep; ++i) folder = volume.Add(folder, "d");
  FolderTree tree(volume);
  // Down, up again, and here and there between.
  for (int i = 0; i < 3 * kDeep; ++i) {
    const int depth = i < kDeep ? i : i < 2 * kDeep ? 2 * kDeep - i - 1 : i * 7919 % kDeep;
    std::string path = "d";
    for (int k = 0; k < depth; ++k) path += "\\d";
    ItemId out = 0;
    ASSERT_EQ(tree.FindFolder(path, out), error::kSuccess);
    ASSERT_EQ(out, static_cast<ItemId>(depth + 1));
  }
  EXPECT_LT(volume.folded, 4 * kDeep);
}

}  // namespace
}  // namespace vornalux::test
