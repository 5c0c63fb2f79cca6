// SPDX-License-Identifier: GPL-2.0-or-later
// Volumes that are made must be what the recipe says, in the eyes of the checker and of others.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>

#include "check/volume_check.h"
#include "host/simulated/seeded_random.h"
#include "mkvolume/maker.h"
#include "support/image_folder.h"
#include "support/seed.h"

namespace vornalux {
namespace {

class MakerTest : public test::ImageFolder {
 protected:
  // Makes a volume and checks structure and content.
  CheckReport Make(const Recipe& recipe) {
    manifest_ = MakeVolume(recipe, Path("v.img"));
    CheckReport report = CheckVolume(Path("v.img"), {.hash = true});
    EXPECT_TRUE(report.Clean()) << report.ProblemText();
    EXPECT_FALSE(report.dirty);
    for (const std::string& line : CompareContent(report.items, manifest_)) ADD_FAILURE() << line;
    return report;
  }
  CheckReport Make(const std::string& recipe) { return Make(Recipe::Parse(recipe)); }

  // The output of a program that reads the volume, hashed.
  std::string HashOf(const std::string& command) {
    Run(command + " >content 2>errors");
    const test::Bytes bytes = Get("content");
    ContentHash hash;
    hash.Add(bytes);
    return hash.Finish();
  }

  Manifest manifest_;
};

bool IsAscii(const std::string& text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

TEST_F(MakerTest, AreCleanAndFilledAsAskedFor) {
  const char* const recipes[] = {
      "fat12 size=3M files=80 folders=10 fill=70%",
      "fat12 size=6M files=150 sector=1024 deleted=20% bad=4",
      "fat16 size=40M files=400 fill=90% fragmented=100% pieces=20 windows=1 deleted=10% bad=30",
      "fat16 size=100M cluster=16K files=300 big=3",
      "fat32 size=80M files=1500 crowd=1000 fill=50% fragmented-folders=100% shredded=2:300",
      "ntfs size=16M files=200 fill=85%",
      "ntfs size=40M cluster=512 files=400 streams=10% sparse=10% compressed=10% links=10%",
      "ntfs size=64M files=900 crowd=600 dos-names=10% links=10% windows=1 fragmented-folders=100%",
      "ntfs size=64M sector=4096 files=300 fragmented=100% pieces=30 fill=60%",
      "ntfs size=200M cluster=64K files=300 sparse=10% links=5% fill=70%",
      "ntfs size=64M files=400 shredded=2:2000 mft-pieces=100 fill=70%",
  };
  const std::uint64_t seed = test::TestSeed();
  for (const char* text : recipes) {
    Recipe recipe = Recipe::Parse(text);
    recipe.seed = seed;
    SCOPED_TRACE(recipe.Text() + " " + test::SeedNote(seed));
    const CheckReport report = Make(recipe);
    if (recipe.fill > 0) {
      const double fill =
          static_cast<double>(report.clusters_used) / static_cast<double>(report.clusters);
      EXPECT_NEAR(fill, recipe.fill, 0.02);
    }
    EXPECT_EQ(report.clusters_bad, recipe.bad);
    EXPECT_GE(report.files, recipe.files + recipe.big + recipe.shredded);
    EXPECT_GE(report.folders, recipe.folders);
    std::int64_t shredded = 0;
    for (const CheckedItem& item : report.items) {
      if (item.path.find("/shredded ") == std::string::npos) continue;
      ++shredded;
      EXPECT_EQ(item.Fragments(), static_cast<std::size_t>(recipe.shredded_extents));
    }
    EXPECT_EQ(shredded, recipe.shredded);
    if (recipe.IsNtfs()) {
      const auto mft = std::find_if(report.metafiles.begin(), report.metafiles.end(),
                                    [](const CheckedItem& item) { return item.path == "/$MFT"; });
      EXPECT_EQ(mft->Fragments(), static_cast<std::size_t>(recipe.mft_pieces));
    } else {
      Run("fsck.fat -n v.img");
    }
  }
}

// What libntfs-3g and mtools read must be what the manifest says.
TEST_F(MakerTest, OthersReadTheSameContent) {
  struct Reader {
    const char* recipe;
    std::function<std::string(const std::string& path, const std::string& stream)> command;
  };
  const auto by_ntfscat = [](const std::string& path, const std::string& stream) {
    return "ntfscat " + (stream.empty() ? "" : "-n '" + stream + "'") + " v.img '" + path + "'";
  };
  const auto by_mtype = [](const std::string& path, const std::string&) {
    return "mtype -i v.img '::" + path + "'";
  };
  const Reader readers[] = {
      {"ntfs files=250 streams=20% sparse=10% compressed=10% links=10% fragmented=60%", by_ntfscat},
      {"fat12 size=4M files=60 odd-names=50% fragmented=60%", by_mtype},
      {"fat32 size=40M files=100 odd-names=50% fragmented=60%", by_mtype},
  };
  const std::uint64_t seed = test::TestSeed();
  SeededRandom random(seed);
  for (const Reader& reader : readers) {
    Recipe recipe = Recipe::Parse(reader.recipe);
    recipe.seed = seed;
    SCOPED_TRACE(recipe.Text() + " " + test::SeedNote(seed));
    Make(recipe);
    for (const auto& [key, entry] : manifest_.entries) {
      // Other names depend on the locale, the shell, or are patterns to mtools.
      const bool plain = IsAscii(key) && key.find_first_of("['") == std::string::npos;
      if (entry.sha256 == "-" || !plain || random() % 4 != 0) continue;
      const std::size_t colon = key.find(':');
      const std::string stream = colon == std::string::npos ? "" : key.substr(colon + 1);
      EXPECT_EQ(HashOf(reader.command(key.substr(0, colon), stream)), entry.sha256) << key;
    }
  }
}

TEST_F(MakerTest, TheSameRecipeGivesTheSameVolume) {
  const char* const recipes[] = {
      "fat32 size=40M files=150 fragmented=40% deleted=10% bad=3",
      "ntfs files=150 fragmented=40% streams=5% sparse=5% compressed=5% links=5%"};
  for (const char* text : recipes) {
    SCOPED_TRACE(text);
    const CheckReport first = Make(text);
    const Manifest manifest = manifest_;
    const CheckReport second = Make(text);
    EXPECT_EQ(manifest_.entries, manifest.entries);
    ASSERT_EQ(second.items.size(), first.items.size());
    for (std::size_t i = 0; i < first.items.size(); ++i) {
      EXPECT_EQ(second.items[i].extents, first.items[i].extents) << first.items[i].path;
    }
    Make(std::string(text) + " seed=2");
    EXPECT_NE(manifest_.entries, manifest.entries);
  }
}

// Exact: not a fragment too few (parts that happen to adjoin) or too many.
TEST_F(MakerTest, FragmentsAreExact) {
  for (const std::string kind : {"fat16 size=60M", "fat32 size=60M", "ntfs size=60M"}) {
    for (const std::string fill : {"30%", "90%"}) {
      const std::string rest = " files=300 folders=20 crowd=200 fill=" + fill;
      SCOPED_TRACE(kind + rest);
      for (const CheckedItem& item :
           Make(kind + rest + " fragmented=0 fragmented-folders=0").items) {
        EXPECT_LE(item.Fragments(), 1U) << item.path;
      }
      for (const CheckedItem& item :
           Make(kind + rest + " fragmented=1 fragmented-folders=1 pieces=4").items) {
        std::int64_t clusters = 0;
        for (const CheckedExtent& extent : item.extents) clusters += extent.count;
        if (clusters < 2) continue;
        EXPECT_GE(item.Fragments(), 2U) << item.path;
        EXPECT_LE(item.Fragments(), 6U) << item.path;
      }
    }
  }
}

TEST_F(MakerTest, WindowsHasALayoutListOfExistingFiles) {
  for (const std::string kind : {"ntfs", "fat16"}) {
    SCOPED_TRACE(kind);
    const CheckReport report = Make(kind + " files=400 windows=1 drive=E");
    Run(kind == "ntfs" ? "ntfscat v.img /Windows/Prefetch/layout.ini >list"
                       : "mcopy -n -i v.img ::/Windows/Prefetch/layout.ini list");
    std::ifstream list(Path("list"), std::ios::binary);
    std::string line;
    std::getline(list, line);
    EXPECT_EQ(line, "[OptimalLayoutFile]\r");
    std::getline(list, line);
    int named = 0;
    while (std::getline(list, line)) {
      ASSERT_EQ(line.back(), '\r');
      line.pop_back();
      ASSERT_EQ(line.substr(0, 3), "E:\\");
      std::string path = line.substr(2);
      std::replace(path.begin(), path.end(), '\\', '/');
      EXPECT_NE(report.Find(path), nullptr) << path;
      ++named;
    }
    EXPECT_GE(named, 30);
  }
}

}  // namespace
}  // namespace vornalux
